// Two receivers on one machine at the same time, and a receiver that stood still for a while.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { test } from 'node:test';
import { setTimeout as delay } from 'node:timers/promises';

import { within } from '../processes.mjs';
import { recordingFile } from './capture_files.mjs';
import { mediaResult } from './page_messages.mjs';
import { logTexts } from './receiver_texts.mjs';
import { goodMessage, noisePicture, Ok, serveSlotPage, SlotPage, startOnSlotPage } from './slot_page_run.mjs';
import { stopDuring } from './stopped_receiver.mjs';

const EventLimitMs = 60000;
const StillMs = 3000; // longer than the 2 seconds after which a camera shows no picture
const ClockSlackMs = 500; // The program's clock moves in steps.
const TicksPerMs = 10000; // of a recording's times
const PageBytes = 4096;

// Starts one more receiver in the sandbox directory of a first one: { program, slotPage }.
async function startSecond(t, run) {
    const controllerMade = once(run.browser.events, 'controller');
    const program = await run.startAnother(`--url=${await serveSlotPage(t)}?second`);
    const [page] = await within(EventLimitMs, 'second browser', controllerMade);
    await run.waitForLog(/Navigation completed: success=1.*\?second/);
    return { program, slotPage: new SlotPage(run, page) };
}

async function closeSecond(run, program) {
    const isMainWindow = ({ class: name, process }) =>
        name === 'VistelReceiverWindow' && process === program.process;
    await run.driver.ask('system', (await run.driver.windows()).find(isMainWindow).window, 'close');
    assert.equal(await within(EventLimitMs, 'end of the second receiver', program.exited), 0);
}

test('two receivers share the machine', async (t) => {
    const first = await startOnSlotPage(t);
    const { run, frameFile } = first;
    await first.connect();
    await first.post('before the second', goodMessage());

    const { program, slotPage: second } = await startSecond(t, run);
    const texts = await logTexts(run);
    assert.equal(texts.filter((text) => text === 'Vistel receiver log').length, 1);
    assert.equal(texts[1], 'Receiver starting');
    assert.ok(!texts.includes('Web message: before the second'));

    await second.connect();
    assert.equal(frameFile.header().sequence, 2);
    for (const [round, slotPage] of [first, second, first, second].entries()) {
        await slotPage.post(goodMessage(), `round ${round}`);
        const { sequence, activeBuffer } = frameFile.header();
        assert.deepEqual({ sequence, activeBuffer }, { sequence: 4 + 2 * round, activeBuffer: round % 2 });
        assert.ok((await logTexts(run)).includes(`Web message: round ${round}`));
    }

    await closeSecond(run, program);
    await first.post(goodMessage());
    assert.equal(frameFile.header().sequence, 12);
    assert.equal(await run.closeWindow(), 0);
});

// What docs/reliability.md does not guarantee: the second one completes a frame while the first one writes another into
// the same buffer.
test('two receivers that publish at the same moment mix one picture', async (t) => {
    const size = [1920, 1080];
    const first = await startOnSlotPage(t);
    const { run, frameFile } = first;
    await first.connect();
    await first.post('quality:1080p');
    await first.fill(0, 1);
    await first.fill(1, 2);
    const { program, slotPage: second } = await startSecond(t, run);
    await second.connect();
    await second.post('quality:1080p');
    await second.fill(0, 3);
    const [picture0, picture1, secondPicture] = [1, 2, 3].map((seed) => noisePicture(seed, size));

    // Each slot twice, so that a buffer gets another picture each time.
    let posted = 0;
    const slot = () => (posted >> 1) % 2;
    const nextMessages = () => {
        ++posted;
        return [goodMessage(slot(), ...size)];
    };
    const isHalfWritten = () => {
        const { sequence, activeBuffer } = frameFile.header();
        if (sequence % 2 === 0) {
            return false;
        }
        const picture = slot() === 0 ? picture0 : picture1;
        const written = frameFile.buffer(1 - activeBuffer, picture.length);
        const isNew = (start) =>
            written.subarray(start, start + PageBytes).equals(picture.subarray(start, start + PageBytes));
        return isNew(0) && !isNew(picture.length - PageBytes);
    };
    const { id, answers } = await stopDuring(first, nextMessages, isHalfWritten);
    const { sequence } = frameFile.header();
    // Not post(), which would wait for the first receiver, too.
    await second.page.evaluate(`slotPage.post(['${goodMessage(0, ...size)}'])`);
    const { picture: whole, ...wholeHeader } = await frameFile.newestFrame();
    assert.equal(wholeHeader.sequence, sequence + 3);
    assert.ok(whole.equals(secondPicture));

    process.kill(id, 'SIGCONT');
    await answers;
    const mixed = frameFile.header();
    assert.deepEqual(mixed, { ...wholeHeader, sequence: sequence + 4, timestamp: mixed.timestamp });
    for (const picture of [picture0, picture1, secondPicture]) {
        assert.ok(!frameFile.buffer(mixed.activeBuffer, picture.length).equals(picture));
    }

    await second.post(goodMessage(0, ...size));
    const next = await frameFile.newestFrame();
    assert.equal(next.sequence, sequence + 7);
    assert.ok(next.picture.equals(secondPicture));
    await closeSecond(run, program);
    assert.equal(await run.closeWindow(), 0);
});

test('a receiver that stood still goes on with what was posted in the meantime', async (t) => {
    const slotPage = await startOnSlotPage(t);
    const { run, page, frameFile } = slotPage;
    await slotPage.connect();
    const camera = run.camera();
    await run.waitForLog('Virtual camera consumer started requesting frames');
    const [{ path }] = await slotPage.mediaCommand('media:record:start');
    assert.deepEqual(await slotPage.post(goodMessage(0), goodMessage(1)), { [Ok]: 2 });

    const id = await run.linuxProcessId();
    process.kill(id, 'SIGSTOP');
    const stopped = frameFile.header();
    await page.evaluate(`slotPage.post(${JSON.stringify([goodMessage(0), goodMessage(1), goodMessage(0)])})`);
    await delay(StillMs);
    assert.deepEqual(frameFile.header(), stopped);
    process.kill(id, 'SIGCONT');

    await slotPage.post();
    assert.equal(frameFile.header().sequence, stopped.sequence + 6);
    assert.deepEqual((await slotPage.mediaCommand('media:record:stop')).at(-1), mediaResult('recording-stopped', path));
    const [recording] = run.encoder.recordings;
    await recordingFile(run, path, recording, 1280, 720);
    const times = recording.samples.map(({ time }) => time);
    assert.equal(times.length, 5);
    // The pause is in the recording.
    assert.ok(times[2] - times[1] > (StillMs - ClockSlackMs) * TicksPerMs, `times ${times}`);
    const { framesRead, tornReads } = await camera.finish();
    assert.ok(framesRead > 0);
    assert.equal(tornReads, 0);
    assert.equal(await run.closeWindow(), 0);
});
