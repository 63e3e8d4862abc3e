// Two receivers on one machine at the same time, and a receiver that stood still for a while.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { test } from 'node:test';
import { setTimeout as delay } from 'node:timers/promises';

import { within } from '../processes.mjs';
import { recordingFile } from './capture_files.mjs';
import { mediaResult } from './page_messages.mjs';
import { logTexts } from './receiver_texts.mjs';
import { goodMessage, Ok, serveSlotPage, SlotPage, startOnSlotPage } from './slot_page_run.mjs';

const EventLimitMs = 60000;
const StillMs = 3000; // longer than the 2 seconds after which a camera shows no picture
const ClockSlackMs = 500; // The program's clock moves in steps.
const TicksPerMs = 10000; // of a recording's times

test('two receivers share the machine', async (t) => {
    const first = await startOnSlotPage(t);
    const { run, frameFile } = first;
    await first.connect();
    await first.post('before the second', goodMessage());

    const controllerMade = once(run.browser.events, 'controller');
    const secondProgram = await run.startAnother(`--url=${await serveSlotPage(t)}?second`);
    const [page] = await within(EventLimitMs, 'second browser', controllerMade);
    await run.waitForLog(/Navigation completed: success=1.*\?second/);
    const texts = await logTexts(run);
    assert.equal(texts.filter((text) => text === 'Vistel receiver log').length, 1);
    assert.equal(texts[1], 'Receiver starting');
    assert.ok(!texts.includes('Web message: before the second'));

    const second = new SlotPage(run, page);
    await second.connect();
    assert.equal(frameFile.header().sequence, 2);
    for (const [round, slotPage] of [first, second, first, second].entries()) {
        await slotPage.post(goodMessage(), `round ${round}`);
        const { sequence, activeBuffer } = frameFile.header();
        assert.deepEqual({ sequence, activeBuffer }, { sequence: 4 + 2 * round, activeBuffer: round % 2 });
        assert.ok((await logTexts(run)).includes(`Web message: round ${round}`));
    }

    const isMainWindow = ({ class: name, process }) =>
        name === 'VistelReceiverWindow' && process === secondProgram.process;
    await run.driver.ask('system', (await run.driver.windows()).find(isMainWindow).window, 'close');
    assert.equal(await within(EventLimitMs, 'end of the second receiver', secondProgram.exited), 0);
    await first.post(goodMessage());
    assert.equal(frameFile.header().sequence, 12);
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
