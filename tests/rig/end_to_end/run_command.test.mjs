// `./dev run` as a person uses it: started, watched, ended.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { existsSync } from 'node:fs';
import { mkdtemp, readFile, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join, resolve } from 'node:path';
import { test } from 'node:test';

import { SourceFolder } from '../prefix.mjs';
import { end, start, until, within } from '../processes.mjs';

const LimitMs = 90000;

test('a run reports its camera, the time while it was minimized, and the captures of the page', async (t) => {
    const out = await mkdtemp(join(tmpdir(), 'run-test-'));
    const run = start(process.execPath, [
        join(SourceFolder, 'tests/rig/run_command.mjs'), '--camera', '--minimize', '0:1', '--page',
        'snapshot=1&record=1:2', '--out', out,
    ], { stdio: ['ignore', 'pipe', 'inherit'] });
    t.after(async () => {
        await end(run);
        await rm(out, { recursive: true });
    });
    let said = '';
    run.stdout.setEncoding('utf8').on('data', (text) => {
        said += text;
    });
    await until(LimitMs, 'snapshot and recording', async () => {
        const log = await readFile(join(out, 'Temp/vistel-receiver.log'), 'latin1').catch(() => '');
        return log.includes('Snapshot requested') && log.includes('Recording stopped') &&
            said.includes('Restored the window');
    });
    run.kill('SIGINT');
    const [code] = await within(LimitMs, 'end of the run', Promise.all([run.exited, once(run.stdout, 'end')]));
    assert.equal(code, 0);
    for (const line of [/^A snapshot: +(.+\.jpg)$/gm, /^A recording: +(.+\.mp4)$/gm]) {
        const files = [...said.matchAll(line)].map(([, file]) => file);
        assert.equal(files.length, 1, said);
        assert.ok(existsSync(resolve(files[0])), files[0]);
    }
    const facts = JSON.parse(await readFile(join(out, 'camera.json'), 'utf8'));
    const { framesRead, frameCostUs: { median, p99 }, framesPerSecondMinimized } = facts;
    assert.ok(framesPerSecondMinimized >= 0, `${framesPerSecondMinimized} frames per second`);
    assert.ok(framesRead > 0);
    assert.ok(median > 0 && median <= p99, `${median} us, ${p99} us`);
});
