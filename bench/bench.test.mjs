// What the benchmark makes of measured lines: medians, marks, goals, exit codes, and the tables that are kept.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import * as fs from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { Goals } from './goals.mjs';

const Head = { kernels: 'AVX2', compiler: '12.2.0' };
// Each process measures another one of these.
const Ratios = [0.9, 0.5, 0.7, 0.6, 0.8];

const times = (factor, ratios) => ratios.map((ratio) => factor * ratio);

const line = (row, contender, more = {}) => ({
    row, contender, ratios: Ratios, microseconds: 20, identical: true, ...more,
});

// In the place of the program that measures: its process number n prints the lines, each with its ratio number n.
const Program = `#!${process.execPath}
import { appendFileSync, readFileSync } from 'node:fs';
const read = (name) => readFileSync(new URL(name, import.meta.url), 'utf8');
appendFileSync(new URL('starts', import.meta.url), '.');
const { head, lines } = JSON.parse(read('measured.json'));
console.log(JSON.stringify(head));
for (const { ratios, ...figures } of lines) {
    console.log(JSON.stringify({ ...figures, ratio: ratios[read('starts').length % ratios.length] }));
}
`;

// Runs the benchmark over these lines; { status, stdout, stderr, folder }.
async function bench(t, { lines, head = Head, words = [], files = {} }) {
    const folder = await fs.mkdtemp(join(tmpdir(), 'bench-test-'));
    t.after(() => fs.rm(folder, { recursive: true }));
    const program = join(folder, 'program.mjs');
    await fs.writeFile(program, Program, { mode: 0o755 });
    await fs.writeFile(join(folder, 'measured.json'), JSON.stringify({ head, lines }));
    for (const [name, text] of Object.entries(files)) {
        await fs.writeFile(join(folder, name), text);
    }
    const allWords = [fileURLToPath(new URL('bench.mjs', import.meta.url)), program, ...words];
    return { folder, ...spawnSync(process.execPath, allWords, { encoding: 'utf8', cwd: folder }) };
}

// The cells of a row of the first table.
const cells = (stdout, row) => stdout.split('\n').map((text) => text.split('|').map((cell) => cell.trim()))
    .find((found) => found[1] === row)?.slice(2, -1);

test('a row holds medians of the processes and their comparisons, the spread, whose bytes differ', async (t) => {
    const { status, stdout } = await bench(t, {
        words: ['720p'],
        lines: [
            line('720p NV12', 'receiver'),
            line('720p NV12', 'libyuv', { identical: false, ratios: [1.8, 0.5, 1.4, 0.6, 0.8] }),
            line('message of a 720p NV12 frame', 'parsed', { microseconds: 0.05 }),
        ],
    });
    assert.equal(status, 0);
    assert.deepEqual(cells(stdout, '720p NV12'), [
        '20.0', '0.70 [0.50..0.90]', '', '', '0.80* [0.50..1.80]', '', '1.00', '0.95, 1.05 libyuv', 'met',
    ]);
    assert.equal(cells(stdout, 'message of a 720p NV12 frame, parsed')[0], '0.0500');
});

test('each kind of goal can be missed', async (t) => {
    const row = '720p NV12';
    const message = 'message of a 720p NV12 frame';
    const slow = Ratios.map((ratio) => ratio + 0.3);
    for (const [lines, [name, text], kept] of [
        [[line(row, 'receiver', { ratios: slow }), line(row, 'libyuv', { ratios: slow })],
         [row, 'missed: bound 1.00 is above 0.95'], '1 of 1'],
        [[line(row, 'receiver', { ratios: times(1.1, Ratios) }), line(row, 'libyuv')],
         [row, 'missed: libyuv 1.10 is above 1.05'], '0 of 1'],
        [[line(message, 'parsed', { microseconds: 0.061, ratios: [0.001] })],
         [`${message}, parsed`, 'missed: nanoseconds 61.0 is above 60.0'], '0 of 0'],
    ]) {
        for (const [words, expected] of [[['720p'], 0], [['720p', '--strict'], 1]]) {
            const { status, stdout } = await bench(t, { lines, words });
            assert.equal(status, expected);
            assert.equal(cells(stdout, name).at(-1), text);
            assert.ok(stdout.includes(`\n0 of 1 goals met, ${kept} limits against libyuv kept.`), stdout);
        }
    }
});

test('all goals met is a success, a machine without AVX2 is not', async (t) => {
    const lines = [line('720p NV12', 'receiver'), line('720p NV12', 'libyuv')];
    const met = await bench(t, { lines, words: ['720p', '--strict'] });
    assert.equal(met.status, 0);
    assert.match(met.stdout, /^1 of 1 goals met, 1 of 1 limits/m);
    const plain = await bench(t, { lines, head: { ...Head, kernels: 'scalar' }, words: ['720p', '--strict'] });
    assert.equal(plain.status, 1);
    assert.match(plain.stdout, /^The goals are for AVX2/m);
});

test('the kept tables are those of each processor', async (t) => {
    const lines = Object.keys(Goals).map((row) => line(row, 'receiver'));
    const other = '## A processor of another kind\n\nits tables\n';
    const { folder, status } = await bench(t, {
        lines, words: ['--write', 'kept.md'], files: { 'kept.md': `# An old introduction\n\n${other}` },
    });
    assert.equal(status, 0);
    const kept = await fs.readFile(join(folder, 'kept.md'), 'utf8');
    assert.match(kept, /^# How fast the frame path is\n/);
    assert.doesNotMatch(kept, /old introduction/);
    const [, ...sections] = kept.split(/^(?=## )/m);
    assert.equal(sections.length, 2);
    assert.ok(sections.map((section) => section.trim()).includes(other.trim()));
    assert.deepEqual(cells(kept, '720p NV12').slice(0, 2), ['20.0', '0.70 [0.50..0.90]']);

    const again = await bench(t, { lines, words: ['--write', 'kept.md'], files: { 'kept.md': kept } });
    assert.equal(await fs.readFile(join(again.folder, 'kept.md'), 'utf8'), kept);
});

test('what cannot be measured is said', async (t) => {
    for (const [words, lines, message] of [
        [['no such case'], [], 'no case matches "no such case"'],
        [[], [line('720p NV12', 'receiver')], 'goals for what was not measured'],
        [['--strict', '--processes', '4'], [], 'take 5 processes or more'],
        [['720p', '--write', 'kept.md'], [], '--write takes the whole table'],
        [['--processes', 'many'], [], 'usage: ./dev bench'],
        [['--fast'], [], 'usage: ./dev bench'],
    ]) {
        const { status, stderr } = await bench(t, { words, lines });
        assert.equal(status, 2);
        assert.ok(stderr.includes(message), stderr);
    }
});
