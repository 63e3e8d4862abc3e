// Runs the contract tests in the rig, in the receiver's place: the rig is judged as Windows would be.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { join } from 'node:path';
import { test } from 'node:test';

import { SourceFolder } from '../rig/prefix.mjs';
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
    // The document lists those that say nothing about Windows.
    const simulated = clauses.filter((clause) => clause.includes('name="simulated"'))
        .map((clause) => `\`${/ classname="(\w+)"/.exec(clause)[1]}\``);
    const document = await readFile(join(SourceFolder, 'docs/only-windows.md'), 'utf8');
    const [, list] = /only simulates\s+the\s+clauses\s+of ([^.]*)\./.exec(document);
    assert.deepEqual([...new Set(simulated)].sort(), list.split(/\s+and\s+|,\s+/).sort());
});
