// The body of `./dev bench`: runs the benchmark in several processes, since no single one can be trusted, and makes one
// table of what they measured.
//   bench.mjs PROGRAM [CASE] [--strict] [--processes N] [--write FILE]
import { spawnSync } from 'node:child_process';
import { existsSync, readFileSync, writeFileSync } from 'node:fs';
import { cpus } from 'node:os';
import { parseArgs } from 'node:util';

import { Goals, GoalsOf } from './goals.mjs';

const Contenders = ['receiver', 'scalar', 'reference', 'libyuv', 'swscale'];
const LeastProcesses = 5;
const Usage = 'usage: ./dev bench [CASE] [--strict] [--processes N] [--write FILE]';

function parseOptions(words) {
    const { values, positionals } = parseArgs({
        args: words, allowPositionals: true, options: {
            strict: { type: 'boolean' }, processes: { type: 'string', default: '5' }, write: { type: 'string' },
        },
    });
    const processes = Number(values.processes);
    if (!Number.isInteger(processes) || processes < 1 || positionals.length > 2) {
        throw new Error(Usage);
    }
    if ((values.strict || values.write) && processes < LeastProcesses) {
        throw new Error(`--strict and --write take ${LeastProcesses} processes or more: no single one can be trusted`);
    }
    if (values.write && positionals.length > 1) {
        throw new Error('--write takes the whole table, without a CASE');
    }
    return { ...values, processes, program: positionals[0], filter: positionals[1] ?? '' };
}

const median = (values) => [...values].sort((a, b) => a - b)[values.length >> 1];

// One process's lines.
function runOnce(program, words) {
    const { status, stdout, error } = spawnSync(program, words, {
        encoding: 'utf8', maxBuffer: 1 << 26, stdio: ['ignore', 'pipe', 'inherit'],
    });
    if (error || status !== 0) {
        throw error ?? new Error(`${program} ended with ${status}`);
    }
    return stdout.trim().split('\n').map((line) => JSON.parse(line));
}

// Rows by name, each a map of contenders: { ratios, ratio, low, high, microseconds, identical }; ratios has one of each
// process.
function measure({ program, filter, processes }, temperature, progress) {
    const seen = new Map();
    let head;
    for (let count = 1; count <= processes; ++count) {
        progress(`${temperature} source, process ${count} of ${processes}`);
        const [first, ...lines] = runOnce(program, [...(temperature === 'cold' ? ['--cold'] : []), filter]);
        head = first;
        for (const { row, contender, ...figures } of lines) {
            // A message's two measurements are rows of their own.
            const isContender = Contenders.includes(contender);
            const name = isContender ? row : `${row}, ${contender}`;
            if (!seen.has(name)) {
                seen.set(name, new Map());
            }
            const of = seen.get(name);
            const key = isContender ? contender : 'receiver';
            of.set(key, [...(of.get(key) ?? []), figures]);
        }
    }
    const rows = new Map([...seen].map(([name, contenders]) => [name, new Map([...contenders].map(([key, all]) => {
        const ratios = all.map(({ ratio }) => ratio);
        return [key, {
            ratios, ratio: median(ratios), low: Math.min(...ratios), high: Math.max(...ratios),
            microseconds: median(all.map(({ microseconds }) => microseconds)),
            identical: all.every(({ identical }) => identical),
        }];
    }))]));
    return { head, rows };
}

const figure = (value) => (value >= 100 ? value.toFixed(0) : value >= 10 ? value.toFixed(1)
    : value >= 0.1 ? value.toFixed(2) : value.toFixed(4));

function cell(timing) {
    return timing ? `${figure(timing.ratio)}${timing.identical ? '' : '*'} ` +
        `[${figure(timing.low)}..${figure(timing.high)}]` : '';
}

// The receiver's part of libyuv's time, NaN where that was not measured. Both are related to the bounds around them, in
// the same process: machines that others use too are faster at one time than at another.
function partOfLibyuv(contenders) {
    const libyuv = contenders.get('libyuv');
    return libyuv ? median(contenders.get('receiver').ratios.map((ratio, i) => ratio / libyuv.ratios[i])) : NaN;
}

// What a row misses of its goals, as texts.
function misses(name, contenders) {
    const goal = Goals[name];
    const own = contenders.get('receiver');
    const missed = [];
    const check = (what, value, limit) => {
        if (limit !== undefined && !(value <= limit)) {
            missed.push(`${what} ${figure(value)} is above ${figure(limit)}`);
        }
    };
    check('bound', own.ratio, goal.bound);
    check('libyuv', partOfLibyuv(contenders), goal.libyuv);
    check('nanoseconds', own.microseconds * 1000, goal.nanoseconds);
    return missed;
}

function goalText({ bound, libyuv, nanoseconds } = {}) {
    return [bound && figure(bound), libyuv && `${figure(libyuv)} libyuv`, nanoseconds && `${nanoseconds} ns`]
        .filter(Boolean).join(', ');
}

function table(headings, lines) {
    const widths = headings.map((heading, column) =>
        Math.max(heading.length, ...lines.map((line) => line[column].length)));
    const row = (cells) => `| ${cells.map((text, column) => text.padEnd(widths[column])).join(' | ')} |`;
    return [row(headings), `|${widths.map((width) => '-'.repeat(width + 2)).join('|')}|`, ...lines.map(row)].join('\n');
}

function warmTable(rows) {
    return table(['case', 'us', ...Contenders, 'of libyuv', 'goal', ''], [...rows].map(([name, contenders]) => {
        const own = contenders.get('receiver');
        const part = partOfLibyuv(contenders);
        const missed = Goals[name] ? misses(name, contenders) : undefined;
        return [
            name, figure(own.microseconds), ...Contenders.map((contender) => cell(contenders.get(contender))),
            part ? figure(part) : '', goalText(Goals[name]),
            missed ? (missed.length > 0 ? `missed: ${missed.join(', ')}` : 'met') : '',
        ];
    }));
}

function coldTable(rows) {
    return table(['case', 'us', ...Contenders], [...rows].map(([name, contenders]) => [
        name, figure(contenders.get('receiver').microseconds),
        ...Contenders.map((contender) => cell(contenders.get(contender))),
    ]));
}

// This machine's processor: { name, hasGoals }, the latter when the goals were set on one like it.
function readProcessor() {
    const values = new Map(readFileSync('/proc/cpuinfo', 'utf8').split('\n').map((line) => line.split(/\s*: /)));
    const [vendor, family, model] = ['vendor_id', 'cpu family', 'model'].map((name) => values.get(name));
    return {
        name: `${cpus()[0].model}, family ${family} model ${model}`,
        hasGoals: vendor === GoalsOf.vendor && Number(family) === GoalsOf.family,
    };
}

const Processor = readProcessor();

// How many goals are met, and what else there is to know of them.
function summaryOf({ kernels }, judged, missed) {
    if (kernels !== 'AVX2') {
        return 'The goals are for AVX2, which this machine lacks: none is met.';
    }
    const origin = Processor.hasGoals ? ''
        : ` They were set on family ${GoalsOf.family} of ${GoalsOf.vendor}; this is ${Processor.name}.`;
    const besideLibyuv = judged.filter(([name]) => Goals[name].libyuv);
    const kept = besideLibyuv.filter(([name, contenders]) => partOfLibyuv(contenders) <= Goals[name].libyuv);
    return `${judged.length - missed.length} of ${judged.length} goals met, ` +
        `${kept.length} of ${besideLibyuv.length} limits against libyuv kept.${origin}`;
}

const Introduction = `# How fast the frame path is

Medians of several processes [lowest..highest process], as ratios to the bound: a memcpy that reads and writes as many
bytes in all, timed around each measurement. The columns are the receiver, its plain kernels (which run where AVX2 is
missing), the tests' pixel-by-pixel reference, and libyuv and swscale as their users would put them together. \`*\`: not
the same bytes as the reference's, so only the speed is compared. Other bounds: for "converted and published" two
copies, the frame's to a canvas and the canvas's to the file; for "first frame" the conversion of a later one that
clears its bars too; for "message" the conversion of its frame. The goals are those of one processor: others copy
faster or slower than they compute.
`;

// The file's text with the tables of this machine's processor in it; those of others stay. The goals' own comes first.
function report(file, { head, warm, cold, summary, options }) {
    const heading = `## ${Processor.name}\n`;
    const others = (existsSync(file) ? readFileSync(file, 'utf8') : '').split(/^(?=## )/m)
        .filter((part) => part.startsWith('## ') && !part.startsWith(heading)).map((part) => `${part.trimEnd()}\n`);
    const own = `${heading}
Made by \`./dev bench --write docs/performance.md\` on ${cpus().length} CPUs with g++ ${head.compiler}, the
${head.kernels} kernels and ${options.processes} processes.

### A source in the caches

${warm}

${summary}

### A source in memory

${cold}
`;
    return [Introduction, ...(Processor.hasGoals ? [own, ...others] : [...others, own])].join('\n');
}

try {
    const options = parseOptions(process.argv.slice(2));
    const progress = (text) => process.stderr.write(process.stderr.isTTY ? `\r\x1b[K${text}` : `${text}\n`);
    const warm = measure(options, 'warm', progress);
    const cold = measure(options, 'cold', progress);
    progress(process.stderr.isTTY ? '' : 'done');
    if (warm.rows.size === 0) {
        throw new Error(`no case matches "${options.filter}"`);
    }
    const unknown = Object.keys(Goals).filter((name) => !warm.rows.has(name));
    if (options.filter === '' && unknown.length > 0) {
        throw new Error(`goals for what was not measured: ${unknown.join('; ')}`);
    }
    const judged = [...warm.rows].filter(([name]) => Goals[name]);
    const missed = judged.filter(([name, contenders]) => misses(name, contenders).length > 0);
    const summary = summaryOf(warm.head, judged, missed);
    const texts = {
        head: warm.head, warm: warmTable(warm.rows), cold: coldTable(cold.rows), summary, options,
    };
    process.stdout.write(
        `A source in the caches:\n${texts.warm}\n\nA source in memory:\n${texts.cold}\n\n${summary}\n`);
    if (options.write) {
        writeFileSync(options.write, report(options.write, texts));
    }
    process.exitCode = options.strict && (missed.length > 0 || warm.head.kernels !== 'AVX2') ? 1 : 0;
} catch (error) {
    const isUsage = error.code?.startsWith('ERR_PARSE_ARGS');
    process.stderr.write(`./dev bench: ${error.message}\n${isUsage ? `${Usage}\n` : ''}`);
    process.exitCode = 2;
}
