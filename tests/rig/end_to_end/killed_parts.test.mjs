// Parts that are killed, or stopped and continued: the receiver, its encoder, a camera that reads the frame file, and a
// page that is loaded again and again. What was left behind hinders nothing. VISTEL_PAGE_ROUNDS is the number of times
// that the page is loaded.
import assert from 'node:assert/strict';
import { createHash } from 'node:crypto';
import { once } from 'node:events';
import * as fs from 'node:fs/promises';
import { dirname, join } from 'node:path';
import { createInterface } from 'node:readline';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { end, start, until, within } from '../processes.mjs';
import { captureFile, captureNames, decodeJpeg, decodeVideo, recordingFile } from './capture_files.mjs';
import { FrameFileBytes } from './frame_file.mjs';
import { mediaResult } from './page_messages.mjs';
import { assertHoldsNoMore } from './receiver_health.mjs';
import { watchForLeftovers } from './run_traces.mjs';
import { goodMessage, noisePicture, Ok, SlotPage, startOnSlotPage } from './slot_page_run.mjs';
import { isStopped, stopDuring } from './stopped_receiver.mjs';

const EventLimitMs = 60000;
const SlackKb = 128;
const BatchFrames = 100;
const PageRounds = Number(process.env.VISTEL_PAGE_ROUNDS ?? 5);
const QualityChanges = 60; // in each round, an even number
const Failed = 0x80004005;
const EndOfJpeg = Buffer.from([0xff, 0xd9]);
const Python = '/usr/bin/python3'; // Debian's, which has Debian's numpy
const Sizes = { '720p': [1280, 720], '1080p': [1920, 1080] };

// What a reader that does not follow docs/frame-file.md does: it maps a file of any size.
const MapsAnySize = `
import mmap, sys
with open(sys.argv[1], "rb") as file:
    view = mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ)
print("mapped", flush=True)
sys.stdin.read()
print(view[:8].hex(), flush=True)`;

// Each slot twice, so that a buffer of the frame file gets another picture each time.
const batch = ([width, height]) =>
    Array.from({ length: BatchFrames }, (_, i) => goodMessage((i >> 1) % 2, width, height));

const stopInFrame = (slotPage, size) =>
    stopDuring(slotPage, () => batch(size), () => slotPage.frameFile.header().sequence % 2 === 1);

async function kill(run) {
    process.kill(await run.linuxProcessId(), 'SIGKILL');
    await run.waitForExit();
}

// Starts the receiver again in the sandbox directory of the one that has ended.
async function startAgain(run, address) {
    const controllerMade = once(run.browser.events, 'controller');
    await run.startProgram(`--url=${address}`);
    const [page] = await within(EventLimitMs, 'browser of the next receiver', controllerMade);
    await run.waitForLog(/Navigation completed: success=1/);
    return new SlotPage(run, page);
}

// Publishes a frame in each slot and checks the pictures.
async function assertPublishes(slotPage, quality = '720p') {
    const size = Sizes[quality];
    await slotPage.post(`quality:${quality}`);
    for (const slot of [0, 1]) {
        const { sequence } = slotPage.frameFile.header();
        await slotPage.fill(slot, slot + 1);
        assert.deepEqual(await slotPage.post(goodMessage(slot, ...size)), { [Ok]: 1 });
        const frame = await slotPage.frameFile.newestFrame();
        assert.equal(frame.sequence, sequence + 2 + sequence % 2);
        assert.ok(frame.picture.equals(noisePicture(slot + 1, size)));
    }
}

async function startRecording(slotPage) {
    const [started] = await slotPage.mediaCommand('media:record:start');
    assert.deepEqual(started, mediaResult('recording-started', started.path));
    return started.path;
}

// A recording of two frames is whole.
async function assertRecords(slotPage) {
    const path = await startRecording(slotPage);
    assert.deepEqual(await slotPage.post(goodMessage(0), goodMessage(1)), { [Ok]: 2 });
    assert.deepEqual(await slotPage.mediaCommand('media:record:stop'), [mediaResult('recording-stopped', path)]);
    const file = await recordingFile(slotPage.run, path, slotPage.run.encoder.recordings.at(-1), 1280, 720);
    assert.equal((await decodeVideo(file, 1280, 720)).length, 2);
}

// The receiver serves its page as the first one on a new machine does.
async function assertWorks(slotPage) {
    assert.deepEqual(await slotPage.connect(), [8294400, 8294400]);
    assert.equal(slotPage.frameFile.size, FrameFileBytes);
    await assertPublishes(slotPage);
    const [snapshot] = await slotPage.mediaCommand('media:snapshot');
    assert.deepEqual(snapshot, mediaResult('snapshot', snapshot.path));
    const { width, height } = await decodeJpeg(captureFile(slotPage.run, 'Pictures', snapshot.path));
    assert.deepEqual([width, height], [1280, 720]);
    await assertRecords(slotPage);
}

// Kills the receiver while it makes the slots, after it has opened a frame file of the wrong size that a reader maps.
async function killInReady({ run, page, frameFile }, t) {
    await fs.mkdir(dirname(frameFile.path), { recursive: true });
    await fs.writeFile(frameFile.path, Buffer.alloc(4096, 0x5a));
    const reader = start(Python, ['-c', MapsAnySize, frameFile.path], { stdio: ['pipe', 'pipe', 'inherit'] });
    t.after(() => end(reader));
    const lines = createInterface({ input: reader.stdout })[Symbol.asyncIterator]();
    assert.equal((await within(EventLimitMs, 'reader', lines.next())).value, 'mapped');
    await page.evaluate('slotPage.post(["ready"])');
    const { shmFolder } = run.browser;
    await until(EventLimitMs, 'first slot', async () => (await fs.readdir(shmFolder)).length === 1);
    assert.equal(frameFile.size, FrameFileBytes);
    await kill(run);
    reader.stdin.end();
    // The reader sees the file that the receiver has made of it.
    assert.equal((await within(EventLimitMs, 'header', lines.next())).value, '5653544c02000000');
}

async function killInSnapshot(slotPage) {
    const { run } = slotPage;
    const complete = new Set(await captureNames(run, 'Pictures'));
    await stopDuring(slotPage, () => Array(5).fill('media:snapshot'), async () => {
        const last = (await captureNames(run, 'Pictures')).sort().at(-1);
        const bytes = complete.has(last) ? EndOfJpeg : await fs.readFile(join(run.out, 'Pictures/Vistel', last));
        return !bytes.subarray(-EndOfJpeg.length).equals(EndOfJpeg);
    });
    await kill(run);
}

async function killInFrameOfRecording(slotPage) {
    const { run, frameFile } = slotPage;
    await startRecording(slotPage);
    await stopInFrame(slotPage, Sizes['720p']);
    const { sequence } = frameFile.header();
    await kill(run);
    await until(EventLimitMs, 'end of the recording', () => run.encoder.recordings.at(-1).state === 'abandoned');
    assert.equal(frameFile.header().sequence, sequence);
    assert.equal(sequence % 2, 1);
}

async function killEncoder(slotPage) {
    const { run, frameFile } = slotPage;
    const path = await startRecording(slotPage);
    assert.deepEqual(await slotPage.post(goodMessage(0), goodMessage(1)), { [Ok]: 2 });
    const { sequence } = frameFile.header();
    run.encoder.killEncoders();
    await slotPage.takeReceived();
    assert.deepEqual(await slotPage.post(...batch(Sizes['720p'])), { [Ok]: BatchFrames - 1, 80004005: 1 });
    assert.equal(frameFile.header().sequence, sequence + 2 * BatchFrames);
    assert.deepEqual((await slotPage.takeReceived()).map((text) => JSON.parse(text)), [
        mediaResult('recording-failed', path, Failed),
    ]);
    assert.deepEqual(await slotPage.mediaCommand('media:record:stop'), [mediaResult('recording-stopped', '', 1)]);
    await assertRecords(slotPage);
}

// Stops and continues the receiver and then a reader, each in the middle of a frame: the reader accepts no mixed one.
async function stopAndContinue(slotPage, t) {
    const { frameFile } = slotPage;
    const size = Sizes['1080p'];
    await assertPublishes(slotPage, '1080p');
    const reader = start(Python, [
        '-B', fileURLToPath(new URL('stopping_reader.py', import.meta.url)), frameFile.path,
    ], { stdio: ['ignore', 'pipe', 'inherit'] });
    t.after(() => end(reader));
    const frames = [];
    let waits = false;
    createInterface({ input: reader.stdout }).on('line', (line) => {
        const read = JSON.parse(line);
        waits = read.waits === true;
        if (!waits) {
            frames.push(read);
        }
    });
    // Waits until the reader has read the newest frame, which remains in `frames`, and checks that every frame is that
    // of one slot.
    const digests = [1, 2].map((seed) => createHash('sha1').update(noisePicture(seed, size)).digest('hex'));
    const assertWhole = async () => {
        const { sequence } = frameFile.header();
        await until(EventLimitMs, 'newest frame', () => frames.at(-1)?.sequence === sequence);
        assert.deepEqual(frames.filter(({ digest }) => !digests.includes(digest)), []);
        frames.splice(0, frames.length - 1);
    };
    await assertWhole();

    for (let round = 0; round < 2; ++round) {
        const { id, answers } = await stopInFrame(slotPage, size);
        const { sequence } = frameFile.header();
        await until(EventLimitMs, 'reader that waits', () => waits);
        assert.equal(frameFile.header().sequence, sequence);
        assert.ok(frames.every((frame) => frame.sequence < sequence));
        process.kill(id, 'SIGCONT');
        assert.deepEqual(await answers, { [Ok]: BatchFrames });
        await assertWhole();
        assert.ok(frames[0].sequence > sequence);
    }
    for (const count of [1, 2, 3]) {
        const [{ sequence, retries }] = frames;
        reader.kill('SIGUSR1');
        await slotPage.post(goodMessage(0, ...size));
        await until(EventLimitMs, 'stop of the reader', () => isStopped(reader.pid));
        await slotPage.post(...Array(count).fill(goodMessage(1, ...size)));
        assert.equal(frameFile.header().sequence, sequence + 2 * (count + 1));
        reader.kill('SIGCONT');
        await assertWhole();
        assert.ok(frames[0].retries > retries);
    }
    await end(reader);
}

async function changeQualityAndReload(slotPage) {
    const qualities = Object.entries(Sizes);
    const messages = Array.from({ length: QualityChanges }, (_, i) => {
        const [quality, size] = qualities[i % qualities.length];
        return [`quality:${quality}`, goodMessage(i % 2, ...size)];
    }).flat();
    await assertHoldsNoMore(slotPage.run, PageRounds, SlackKb, async () => {
        assert.deepEqual(await slotPage.post(...messages), { [Ok]: 2 * QualityChanges });
        await slotPage.page.evaluate(`slotPage.repeat('${goodMessage()}')`);
        await slotPage.frameFile.waitForFrames(slotPage.frameFile.header().sequence / 2 + 5, EventLimitMs);
        await slotPage.reload();
        assert.deepEqual(await slotPage.connect(), [8294400, 8294400]);
    });
    for (const quality of Object.keys(Sizes)) {
        await assertPublishes(slotPage, quality);
    }
}

// One test: each start of the receiver is the proof for the kill before it.
test('what is killed, or stopped and continued, hinders nothing after it', async (t) => {
    let slotPage = await startOnSlotPage(t, { faults: 'CreateSharedBuffer:1@600000' });
    const { run } = slotPage;
    const leftovers = await watchForLeftovers(run);
    const address = await slotPage.page.evaluate('location.origin + location.pathname');
    for (const killReceiver of [killInReady, killInSnapshot, killInFrameOfRecording]) {
        t.diagnostic(killReceiver.name);
        await killReceiver(slotPage, t);
        await run.driver.ask('set', 'RIG_FAULTS', '');
        slotPage = await startAgain(run, address);
        await assertWorks(slotPage);
    }
    for (const disturb of [killEncoder, stopAndContinue, changeQualityAndReload]) {
        t.diagnostic(disturb.name);
        await disturb(slotPage, t);
    }
    assert.equal(await run.closeWindow(), 0);
    await run.stop();
    assert.deepEqual(await leftovers(), []);
});
