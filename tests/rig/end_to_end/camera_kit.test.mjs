// The examples for authors of cameras beside the receiver: they see the frames and when they stop, and the one that can
// signal is noticed.
import assert from 'node:assert/strict';
import { join } from 'node:path';
import { createInterface } from 'node:readline';
import { text as readText } from 'node:stream/consumers';
import { test } from 'node:test';

import { startDisplay } from '../display.mjs';
import { createPrefix, SourceFolder } from '../prefix.mjs';
import { end, start, until, within } from '../processes.mjs';
import { BuildFolder } from '../receiver_run.mjs';
import { goodMessage, Ok, startOnSlotPage } from './slot_page_run.mjs';

const LimitMs = 60000;
const PlayLimitMs = 300000;
const Python = '/usr/bin/python3'; // Debian's, which has Debian's numpy

test('the examples of a camera follow the receiver', async (t) => {
    const slotPage = await startOnSlotPage(t);
    const { run } = slotPage;
    await slotPage.connect();
    const program = await run.prefix.addFile(join(BuildFolder, 'tests/print_frames.exe'), 'C:\\rig\\print_frames.exe');
    const camera = run.prefix.start(program, [], run.display.name);
    const pythonCamera = start(Python, [
        '-B', join(SourceFolder, 'examples/camera/frame_reader.py'), slotPage.frameFile.path,
    ], { stdio: ['ignore', 'pipe', 'inherit'] });
    const cameras = [camera, pythonCamera].map((program) => {
        t.after(() => end(program));
        const lines = [];
        createInterface({ input: program.stdout }).on('line', (line) => lines.push(line));
        return lines;
    });
    const waitFor = (wanted) => Promise.all(cameras.map((lines) =>
        until(LimitMs, () => `${wanted} among ${lines.join('; ')}`, async () => {
            const at = lines.findIndex((line) => wanted.test(line));
            return at >= 0 && lines.splice(0, at + 1);
        })));

    await waitFor(/^the receiver has not written a frame yet /);
    await run.waitForLog('Virtual camera consumer started requesting frames');
    assert.deepEqual(await slotPage.post(goodMessage(0)), { [Ok]: 1 });
    await waitFor(/^frame 1: 1280 x 720, \d+ ms old$/);
    await waitFor(/^the picture is live /);
    assert.deepEqual(await slotPage.post('quality:1080p', goodMessage(1, 1920, 1080)), { [Ok]: 2 });
    await waitFor(/^frame 2: 1920 x 1080, /);
    await waitFor(/^the receiver is not running, or its page sends no frames /);
    await end(camera);
    await run.waitForLog('Virtual camera consumer stopped requesting frames');
    assert.equal(await run.closeWindow(), 0);
});

test('the reader for Python passes what the camera probe plays', async (t) => {
    const prefix = await createPrefix();
    t.after(() => prefix.remove());
    const display = await startDisplay();
    t.after(() => display.stop());
    const probe = await prefix.addFile(join(BuildFolder, 'tools/camera_probe/camera_probe.exe'), 'C:\\rig\\probe.exe');
    const played = prefix.unixPath('C:\\rig\\played.bin');
    const judge = start(Python, ['-B', join(SourceFolder, 'tests/examples/camera/judge_played_frames.py'), played], {
        stdio: ['pipe', 'pipe', 'inherit'],
    });
    t.after(() => end(judge));
    const seen = readText(judge.stdout);
    const player = prefix.start(probe, ['--play', 'C:\\rig\\played.bin'], display.name);
    t.after(() => end(player));
    player.stdout.resume();
    assert.equal(await within(PlayLimitMs, 'end of the play', player.exited), 0);
    judge.stdin.end();
    const { whole, mixed, widths, stale } = JSON.parse(await within(LimitMs, 'end of the reader', seen));
    assert.ok(whole > 0);
    assert.equal(mixed, 0);
    assert.deepEqual(widths, [1280, 1920]);
    assert.ok(stale, 'the scenarios have silences');
});
