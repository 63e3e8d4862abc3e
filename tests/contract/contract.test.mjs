// Runs the contract tests in the rig, in the receiver's place: the rig is judged as Windows would be.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { test } from 'node:test';

import { startReceiver } from '../rig/receiver_run.mjs';

const LimitMs = 240000;
const Report = 'C:\\rig\\contract.xml';

test('the rig keeps the contract that the program has with Windows', async (t) => {
    const crashed = [];
    const run = await startReceiver({
        receiverExe: process.env.VISTEL_CONTRACT_TESTS, args: [`--gtest_output=xml:${Report}`],
        prepare: async ({ browser }) => void browser.events.on('crashed', ({ what }) => crashed.push(what)),
    });
    t.after(() => run.stop());
    const code = await run.waitForExit(LimitMs);
    const report = await readFile(run.prefix.unixPath(Report), 'utf8');
    assert.doesNotMatch(report, /<failure/, report);
    assert.equal(code, 0, report);
    assert.match(report, /tests="[1-9]/);
    assert.deepEqual(crashed, ['page', 'browser']); // as their clauses demand
    // Every clause names its source.
    const clauses = report.split('<testcase ').slice(1);
    clauses.forEach((clause) => assert.match(clause, /name="source" value="[^"]+"/, clause));
});
