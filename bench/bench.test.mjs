// What bench.mjs makes of measured lines: medians, marks, goals, exit codes and results files.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import * as fs from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { test } from 'node:test';

import { Goals } from './goals.mjs';

const Head = { kernels: 'AVX2', compiler: '12.2.0' };
// Each process prints another one of these ratios.
const Ratios = [0.9, 0.5, 0.7, 0.6, 0.8];

const times = (factor, ratios) => ratios.map((ratio) => factor * ratio);

const line = (row, contender, more = {}) => ({
    row, contender, ratios: Ratios, microseconds: 20, identical: true, ...more,
});

// Takes the place of the measuring program: process number n prints the lines of file warm-n or cold-n. In another
// language, since it is started hundreds of times.
const Program = `#!/bin/sh
cd "\${0%/*}"
printf . >>starts
number=$(($(wc -c <starts) % ${Ratios.length}))
case "$*" in *--cold*) cat "cold-$number" ;; *) cat "warm-$number" ;; esac
`;

// What process number n prints: each line with the line's ratio number n.
const printed = (head, lines, n, cold) => [head, ...lines.map(({ ratios, coldRatios = ratios, ...figures }) => {
    const values = cold ? coldRatios : ratios;
    return { ...figures, ratio: values[n % values.length] };
})].map((each) => `${JSON.stringify(each)}\n`).join('');

// Runs a copy of the benchmark on these lines, in a folder without recorded results other than the given files;
// { status, stdout, stderr, folder }.
async function bench(t, { lines, head = Head, words = [], files = {} }) {
    const folder = await fs.mkdtemp(join(tmpdir(), 'bench-test-'));
    t.after(() => fs.rm(folder, { recursive: true }));
    await fs.mkdir(join(folder, 'results'));
    for (const name of ['bench.mjs', 'goals.mjs']) {
        await fs.copyFile(new URL(name, import.meta.url), join(folder, name));
    }
    const program = join(folder, 'program');
    await fs.writeFile(program, Program, { mode: 0o755 });
    await Promise.all(Ratios.flatMap((_, n) => [
        fs.writeFile(join(folder, `warm-${n}`), printed(head, lines, n, false)),
        fs.writeFile(join(folder, `cold-${n}`), printed(head, lines, n, true)),
    ]));
    for (const [name, text] of Object.entries(files)) {
        await fs.writeFile(join(folder, name), text);
    }
    const allWords = [join(folder, 'bench.mjs'), program, ...words];
    return { folder, ...spawnSync(process.execPath, allWords, { encoding: 'utf8', cwd: folder }) };
}

// The cells of a row of the first table.
const cells = (stdout, row) => stdout.split('\n').map((text) => text.split('|').map((cell) => cell.trim()))
    .find((found) => found[1] === row)?.slice(2, -1);

test('a row holds the median and range of the processes, the ratio to libyuv and a mark for other bytes', async (t) => {
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
         [row, 'missed: baseline 1.00 is above 0.95'], '1 of 1'],
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
            assert.ok(stdout.endsWith(`\nMissed limits that --strict counts: ${name}\n`), stdout);
        }
    }
});

test('--strict succeeds when all goals are met and fails without AVX2', async (t) => {
    const lines = [line('720p NV12', 'receiver'), line('720p NV12', 'libyuv')];
    const met = await bench(t, { lines, words: ['720p', '--strict'] });
    assert.equal(met.status, 0);
    assert.match(met.stdout, /^1 of 1 goals met, 1 of 1 limits/m);
    const plain = await bench(t, { lines, head: { ...Head, kernels: 'scalar' }, words: ['720p', '--strict'] });
    assert.equal(plain.status, 1);
    assert.match(plain.stdout, /^The goals are for AVX2/m);
});

// Lines of all cases with goals, which meet them but for what `more` says of a case's receiver or libyuv.
const allLines = (more = {}) => Object.keys(Goals).flatMap((name) => [
    line(name, 'receiver', { ratios: [0.001], microseconds: 0.05, ...more[name] }),
    ...(Goals[name].libyuv ? [line(name, 'libyuv', { ratios: [1], ...more[`${name}, libyuv`] })] : []),
]);

// The results that these lines make, as { file name: text }.
async function resultsOf(t, lines) {
    const { folder, status, stderr } = await bench(t, { lines, words: ['--write', 'results'] });
    assert.equal(status, 0, stderr);
    const names = await fs.readdir(join(folder, 'results'));
    return Object.fromEntries(await Promise.all(
        names.map(async (name) => [`results/${name}`, await fs.readFile(join(folder, 'results', name), 'utf8')])));
}

test('--write takes a file, or a folder that gets the file of the processor family', async (t) => {
    const lines = allLines({ '720p NV12': { ratios: times(0.1, Ratios), microseconds: 20 } });
    const results = Object.entries(await resultsOf(t, lines));
    assert.equal(results.length, 1);
    const [name, text] = results[0];
    assert.match(name, /^results\/[a-z]+-family-\d+\.tsv$/);
    assert.match(text, /^warm\t720p NV12\t20\.0\t0\.0700 \[0\.0500\.\.0\.0900\]\t.*\tmet$/m);
    assert.match(text, /^cold\t720p NV12\t20\.0\t0\.0700 \[0\.0500\.\.0\.0900\]\t/m);

    const { folder } = await bench(t, { lines, words: ['--write', 'own.tsv'] });
    assert.equal(await fs.readFile(join(folder, 'own.tsv'), 'utf8'), text);
});

test('--strict does not fail for a limit that the recorded results miss, unless it is against libyuv', async (t) => {
    const [copied, parsed] = ['1080p NV12', 'message of a 720p NV12 frame, parsed'];
    const slow = {
        [copied]: { ratios: [2] }, [`${copied}, libyuv`]: { ratios: [2] }, [parsed]: { microseconds: 0.061 },
    };
    const slowerThanLibyuv = { ...slow, [`${copied}, libyuv`]: { ratios: [1] } };
    for (const [recorded, measured, status] of [
        [{}, {}, 0],
        [{}, slow, 1],
        [slow, slow, 0],
        [{ [copied]: slow[copied] }, slow, 1],
        [{ [parsed]: slow[parsed] }, slow, 1],
        [{ ...slow, [copied]: { coldRatios: [2] } }, slow, 1],
        [slowerThanLibyuv, slowerThanLibyuv, 1],
    ]) {
        const files = await resultsOf(t, allLines(recorded));
        const run = await bench(t, { lines: allLines(measured), words: ['--strict'], files });
        assert.equal(run.status, status, run.stdout + run.stderr);
    }
});

test('a wrong command line and a missing case are errors', async (t) => {
    for (const [words, lines, message] of [
        [['no such case'], [], 'no case matches "no such case"'],
        [[], [line('720p NV12', 'receiver')], 'goals for cases that were not measured'],
        [['--strict', '--processes', '4'], [], 'need at least 5 processes'],
        [['720p', '--write', 'own.tsv'], [], '--write needs all cases'],
        [['--processes', 'many'], [], 'usage: ./dev bench'],
        [['--fast'], [], 'usage: ./dev bench'],
    ]) {
        const { status, stderr } = await bench(t, { words, lines });
        assert.equal(status, 2);
        assert.ok(stderr.includes(message), stderr);
    }
});
