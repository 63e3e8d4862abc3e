// Recordings: what was published while one ran stands in its file, each frame at the time at which it came, and
// no failure of a recording stops a frame on its way to the camera.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { existsSync } from 'node:fs';
import * as fs from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { test } from 'node:test';

import { until } from '../processes.mjs';
import { captureFile, captureNames, decodeVideo, recordingFile, similarity } from './capture_files.mjs';
import { mediaResult, UsageOff } from './page_messages.mjs';
import { fillGradient } from './pages/gradient.mjs';
import { answeringDuring } from './receiver_health.mjs';
import { logTexts } from './receiver_texts.mjs';
import { goodMessage, InvalidArgument, Ok, startOnSlotPage } from './slot_page_run.mjs';

const AlreadyExists = 0x800700b7;
const NoDirectory = 0x8007010b;
const DiskFull = 0x80070070;
const Sizes = { '720p': [1280, 720], '1080p': [1920, 1080] };
const BitsPerSecond = { '720p': 6000000, '1080p': 10000000 };
const EndOfSession = 'C:\\windows\\system32\\wineboot.exe';
const EndLimitMs = 60000;
const LeastSimilarity = 33; // dB; two steps of the gradient reach 24

const isMediaResult = ({ type }) => type === 'media-result';

// Starts a recording; the path that the page receives.
async function startRecording(slotPage) {
    const [started, ...others] = await slotPage.mediaCommand('media:record:start');
    assert.deepEqual(started, mediaResult('recording-started', started.path));
    assert.deepEqual(others, []);
    return started.path;
}

async function publish(slotPage, frames, width = 1280, height = 720) {
    for (let step = 0; step < frames; ++step) {
        await slotPage.paint(step % 2, width, height, step);
        assert.deepEqual(await slotPage.post(goodMessage(step % 2, width, height)), { [Ok]: 1 });
    }
}

// The file is complete, and holds what the encoder was given.
async function checkFile(slotPage, path, recording, width, height) {
    return decodeVideo(await recordingFile(slotPage.run, path, recording, width, height), width, height);
}

test('a recording holds every frame that was published, at its time', async (t) => {
    const slotPage = await startOnSlotPage(t);
    await slotPage.connect();
    for (const [quality, [width, height]] of Object.entries(Sizes)) {
        await slotPage.post(`quality:${quality}`);
        const path = await startRecording(slotPage);
        const before = slotPage.frameFile.exists ? slotPage.frameFile.header().sequence : 0;
        await publish(slotPage, 20, width, height);
        assert.deepEqual(await slotPage.post(...Array(5).fill(goodMessage(1, width, height))), { [Ok]: 5 });
        assert.deepEqual(await slotPage.post('frame:0:NV12'), { [InvalidArgument]: 1 });
        const published = (slotPage.frameFile.header().sequence - before) / 2;
        assert.equal(published, 25);
        assert.deepEqual(await slotPage.mediaCommand('media:record:stop'), [mediaResult('recording-stopped', path)]);

        const recording = slotPage.run.encoder.recordings.at(-1);
        assert.deepEqual(recording.output, {
            majorType: 'vids', subtype: 'H264', averageBitRate: BitsPerSecond[quality], interlaceMode: 2,
            frameSize: `${width}:${height}`, frameRate: '30:1', pixelAspectRatio: '1:1',
        });
        assert.equal(recording.samples.length, published);
        const pictures = await checkFile(slotPage, path, recording, width, height);
        assert.equal(pictures.length, published);
        const painted = Array.from({ length: 20 }, (_, step) => {
            const bytes = new Uint8Array(width * height * 3 / 2);
            fillGradient(bytes, width, height, step);
            return bytes;
        });
        pictures.forEach((picture, index) => {
            const step = Math.min(index, 19);
            const found = [step - 1, step, step + 1].map((other) =>
                (painted[other] ? similarity(picture, painted[other]) : 0));
            assert.deepEqual(found.map((similar) => similar > LeastSimilarity), [false, true, false],
                             `frame ${index} of ${quality}: ${found} dB`);
        });
    }
    assert.deepEqual((await captureNames(slotPage.run, 'Videos')).length, 2);
    assert.equal(await slotPage.run.closeWindow(), 0);
});

test('recordings begin and end in any order', async (t) => {
    const slotPage = await startOnSlotPage(t);
    await slotPage.connect();
    const { recordings } = slotPage.run.encoder;
    assert.deepEqual(await slotPage.mediaCommand('media:record:stop'), [mediaResult('recording-stopped', '', 1)]);
    assert.deepEqual(await captureNames(slotPage.run, 'Videos'), []);

    const first = await startRecording(slotPage);
    await publish(slotPage, 2);
    assert.deepEqual(await slotPage.mediaCommand('media:record:start'), [
        mediaResult('recording-started', '', AlreadyExists),
    ]);
    await publish(slotPage, 2);
    assert.deepEqual(await slotPage.mediaCommand('quality:720p'), [mediaResult('recording-stopped', first)]);
    assert.deepEqual(await slotPage.mediaCommand('quality:1080p'), []);
    await publish(slotPage, 1); // belongs to no recording
    assert.equal((await checkFile(slotPage, first, recordings[0], 1280, 720)).length, 4);

    const second = await startRecording(slotPage);
    await publish(slotPage, 3);
    assert.deepEqual(await slotPage.mediaCommand('quality:8k'), [mediaResult('recording-stopped', second)]);
    assert.equal((await checkFile(slotPage, second, recordings[1], 1920, 1080)).length, 3);

    // The end of the program is the end of a recording.
    const last = await startRecording(slotPage);
    await publish(slotPage, 10);
    assert.equal(await slotPage.run.closeWindow(), 0);
    assert.equal((await checkFile(slotPage, last, recordings[2], 1920, 1080)).length, 10);
    assert.deepEqual((await logTexts(slotPage.run)).filter((text) => text.startsWith('Recording')), [
        'Recording stopped', 'Recording started', 'Recording started (HRESULT 0x800700B7)', 'Recording started',
        'Recording started',
    ]);
});

test('each failure of a recording is reported, and the camera goes on', async (t) => {
    // Calls are counted from 0.
    const slotPage = await startOnSlotPage(t, {
        faults: 'MFCreateSinkWriterFromURL:0=C00D1001,AddStream:0=C00D1002,SetInputMediaType:0=C00D1003,' +
            'BeginWriting:0=C00D1004,WriteSample:2=C00D1005,Finalize:1=C00D1006',
    });
    await slotPage.connect();
    for (const code of [0xc00d1001, 0xc00d1002, 0xc00d1003, 0xc00d1004]) {
        assert.deepEqual(await slotPage.mediaCommand('media:record:start'), [
            mediaResult('recording-started', '', code),
        ]);
        await publish(slotPage, 1);
    }
    assert.deepEqual(await slotPage.mediaCommand('media:record:stop'), [mediaResult('recording-stopped', '', 1)]);

    const failing = await startRecording(slotPage);
    await publish(slotPage, 2);
    const { sequence } = slotPage.frameFile.header();
    assert.deepEqual(await slotPage.post(goodMessage()), { C00D1005: 1 });
    assert.equal(slotPage.frameFile.header().sequence, sequence + 2);
    assert.deepEqual((await slotPage.takeReceived()).map((text) => JSON.parse(text)), [
        mediaResult('recording-failed', failing, 0xc00d1005),
    ]);
    await publish(slotPage, 1);
    assert.deepEqual(await slotPage.mediaCommand('media:record:stop'), [mediaResult('recording-stopped', '', 1)]);
    assert.equal((await checkFile(slotPage, failing, slotPage.run.encoder.recordings.at(-1), 1280, 720)).length, 2);

    const unfinished = await startRecording(slotPage);
    await publish(slotPage, 2);
    assert.deepEqual(await slotPage.mediaCommand('media:record:stop'), [
        mediaResult('recording-stopped', unfinished, 0xc00d1006),
    ]);
    const good = await startRecording(slotPage);
    await publish(slotPage, 2);
    assert.deepEqual(await slotPage.mediaCommand('media:record:stop'), [mediaResult('recording-stopped', good)]);
    assert.equal(await slotPage.run.closeWindow(), 0);
});

test('a slow encoder delays everything and loses nothing', async (t) => {
    const slotPage = await startOnSlotPage(t, { faults: 'WriteSample@40,Finalize@5000' });
    const { run } = slotPage;
    await slotPage.connect();
    const path = await startRecording(slotPage);
    const camera = run.camera();
    await run.waitForLog('Virtual camera consumer started requesting frames');
    await publish(slotPage, 20);
    await slotPage.takeReceived();
    const before = slotPage.frameFile.header().sequence;
    // The window answers again as soon as a call has returned, and what was posted in the meantime comes in its order;
    // that the camera has become idle, after it.
    const [results, report] = await Promise.all([
        answeringDuring(run, () => slotPage.post(...Array(5).fill(goodMessage(1)), 'media:record:stop', goodMessage(0),
                                                 'media:snapshot', 'media:record:stop')),
        slotPage.frameFile.waitForFrames(before / 2 + 5, EndLimitMs).then(() => camera.finish()),
    ]);
    assert.deepEqual(results, { [Ok]: 8, '00000001': 1 });
    assert.equal(slotPage.frameFile.header().sequence, before + 12);
    await run.waitForLog('Virtual camera consumer stopped requesting frames');
    await slotPage.post();
    const received = (await slotPage.takeReceived()).map((text) => JSON.parse(text));
    assert.deepEqual(received, [
        mediaResult('recording-stopped', path), mediaResult('snapshot', received[1]?.path),
        mediaResult('recording-stopped', '', 1), JSON.parse(UsageOff),
    ]);
    const [recording] = run.encoder.recordings;
    assert.equal(recording.samples.length, 25);
    assert.equal((await checkFile(slotPage, path, recording, 1280, 720)).length, 25);
    assert.ok(report.framesRead > 0);
    assert.equal(report.tornReads, 0);
    assert.equal(await run.closeWindow(), 0);
});

// The processes of the browser or of the page end during a recording, and nothing is published from then on.
for (const [what, end] of Object.entries({
    browser: (slotPage) => slotPage.run.browser.killBrowser(), page: (slotPage) => slotPage.page.crash(),
})) {
    test(`a recording holds what was published before the process of the ${what} was killed`, async (t) => {
        const slotPage = await startOnSlotPage(t);
        const { run } = slotPage;
        await slotPage.connect();
        const path = await startRecording(slotPage);
        await publish(slotPage, 5);
        const crashed = once(run.browser.events, 'crashed');
        end(slotPage);
        assert.deepEqual(await crashed, [{ what }]);
        assert.ok(await run.mainWindow());
        assert.equal(await run.closeWindow(), 0);
        assert.equal((await checkFile(slotPage, path, run.encoder.recordings[0], 1280, 720)).length, 5);
    });
}

test('the end of the session ends the program at once, and the recording with it', async (t) => {
    const slotPage = await startOnSlotPage(t);
    const { run } = slotPage;
    await slotPage.connect();
    const path = await startRecording(slotPage);
    await publish(slotPage, 3);
    const { sequence } = slotPage.frameFile.header();
    const ending = run.prefix.start(EndOfSession, ['--end-session'], run.display.name);
    ending.stdout.resume();
    await run.waitForExit();
    assert.equal(slotPage.frameFile.header().sequence, sequence);
    assert.ok(existsSync(captureFile(run, 'Videos', path)));
    await until(EndLimitMs, 'end of the recording', () => run.encoder.recordings[0].state === 'abandoned');
});

test('a full disk ends the recording, not the picture', async (t) => {
    const fileLimitBytes = 300000;
    const slotPage = await startOnSlotPage(t, { fileLimitBytes });
    const { run, frameFile } = slotPage;
    await slotPage.connect();
    const path = await startRecording(slotPage);
    let posted = 0;
    let answers = { [Ok]: 1 };
    for (let seed = 1; answers[Ok]; ++seed) {
        assert.ok(seed < 300, 'the disk is never full');
        await slotPage.fill(0, seed); // hardly anything to compress
        answers = await slotPage.post(goodMessage());
        posted = seed;
    }
    assert.deepEqual(answers, { [DiskFull.toString(16).toUpperCase()]: 1 });
    assert.deepEqual((await slotPage.takeReceived()).map((text) => JSON.parse(text)).filter(isMediaResult),
                     [mediaResult('recording-failed', path, DiskFull)]);
    const file = captureFile(run, 'Videos', path);
    const { size } = await fs.stat(file);
    assert.ok(size > 0 && size <= fileLimitBytes, `a file of ${size} bytes`);
    assert.deepEqual([run.encoder.recordings[0].state, run.encoder.recordings[0].result], ['finalized', DiskFull]);
    await publish(slotPage, 2);
    assert.equal(frameFile.header().sequence, 2 * (posted + 2));
    assert.deepEqual(await slotPage.mediaCommand('media:record:stop'), [mediaResult('recording-stopped', '', 1)]);

    run.encoder.fileLimitBytes = undefined;
    const next = await startRecording(slotPage);
    await publish(slotPage, 3);
    assert.deepEqual(await slotPage.mediaCommand('media:record:stop'), [mediaResult('recording-stopped', next)]);
    assert.equal((await checkFile(slotPage, next, run.encoder.recordings[1], 1280, 720)).length, 3);
    assert.equal((await fs.stat(file)).size, size);
    assert.equal(await run.closeWindow(), 0);
});

test('without a folder for it there is no recording', async (t) => {
    const out = await fs.mkdtemp(join(tmpdir(), 'recordings-test-'));
    t.after(() => fs.rm(out, { recursive: true }));
    const videos = join(out, 'Videos');
    await fs.writeFile(videos, 'a file');
    const slotPage = await startOnSlotPage(t, { out });
    await slotPage.connect();
    const assertRefused = async () => {
        assert.deepEqual(await slotPage.mediaCommand('media:record:start'), [
            mediaResult('recording-started', '', NoDirectory),
        ]);
        await publish(slotPage, 1);
    };
    await assertRefused();
    await fs.rm(videos);
    await fs.mkdir(videos);
    await fs.writeFile(join(videos, 'Vistel'), 'a file');
    await assertRefused();
    await fs.rm(join(videos, 'Vistel'));
    await startRecording(slotPage);
    await publish(slotPage, 1);
    assert.equal(await slotPage.run.closeWindow(), 0);
    assert.equal(slotPage.run.encoder.recordings.length, 1);
});
