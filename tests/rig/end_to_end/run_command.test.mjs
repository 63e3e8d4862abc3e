// `./dev run` as a person uses it: started, watched, ended.
import assert from 'node:assert/strict';
import { mkdtemp, readFile, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { test } from 'node:test';

import { SourceFolder } from '../prefix.mjs';
import { end, start, within } from '../processes.mjs';
import { FrameFile } from './frame_file.mjs';

const LimitMs = 90000;

test('a run with a camera tells what a frame has cost', async (t) => {
    const out = await mkdtemp(join(tmpdir(), 'run-test-'));
    const run = start(process.execPath, [join(SourceFolder, 'tests/rig/run_command.mjs'), '--camera', '--out', out],
                      { stdio: ['ignore', 'ignore', 'inherit'] });
    t.after(async () => {
        await end(run);
        await rm(out, { recursive: true });
    });
    await new FrameFile(out).waitForFrames(30, LimitMs);
    run.kill('SIGINT');
    assert.equal(await within(LimitMs, 'end of the run', run.exited), 0);
    const { framesRead, frameCostUs: { median, p99 } } = JSON.parse(await readFile(join(out, 'camera.json'), 'utf8'));
    assert.ok(framesRead > 0);
    assert.ok(median > 0 && median <= p99, `${median} us, ${p99} us`);
});
