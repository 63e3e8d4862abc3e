// The body of `./dev bench`: runs the benchmark in several processes, because a single one may be fast or slow by
// chance, prints tables of the medians, and compares them with the goals.
//   bench.mjs PROGRAM [CASE] [--strict] [--processes N] [--write FILE|DIR]
import { spawnSync } from 'node:child_process';
import { existsSync, readFileSync, statSync, writeFileSync } from 'node:fs';
import { cpus } from 'node:os';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { parseArgs } from 'node:util';

import { Goals } from './goals.mjs';

const Contenders = ['receiver', 'scalar', 'reference', 'libyuv', 'swscale'];
const Headings = ['case', 'us', ...Contenders, 'to libyuv', 'goal', 'result'];
const ResultsFolder = fileURLToPath(new URL('results', import.meta.url));
const LeastProcesses = 5;
const Usage = 'usage: ./dev bench [CASE] [--strict] [--processes N] [--write FILE|DIR]';

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
        throw new Error(`--strict and --write need at least ${LeastProcesses} processes`);
    }
    if (values.write && positionals.length > 1) {
        throw new Error('--write needs all cases; leave CASE out');
    }
    return { ...values, processes, program: positionals[0], filter: positionals[1] ?? '' };
}

const median = (values) => [...values].sort((a, b) => a - b)[values.length >> 1];

// The lines that one process prints.
function runOnce(program, words) {
    const { status, stdout, error } = spawnSync(program, words, {
        encoding: 'utf8', maxBuffer: 1 << 26, stdio: ['ignore', 'pipe', 'inherit'],
    });
    if (error || status !== 0) {
        throw error ?? new Error(`${program} exited with code ${status}`);
    }
    return stdout.trim().split('\n').map((line) => JSON.parse(line));
}

// Cases by name, each a map of contenders: { ratios, ratio, low, high, microseconds, identical }. `ratios` are those to
// the baseline, one per process; `ratio` is their median.
function measure({ program, filter, processes }, temperature, progress) {
    const seen = new Map();
    let head;
    for (let count = 1; count <= processes; ++count) {
        progress(`${temperature} source, process ${count} of ${processes}`);
        const [first, ...lines] = runOnce(program, [...(temperature === 'cold' ? ['--cold'] : []), filter]);
        head = first;
        for (const { row, contender, ...figures } of lines) {
            // Other names are measurements of the receiver alone ("parsed"); each becomes a case of its own.
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

// The receiver's time divided by libyuv's, NaN where libyuv was not measured. The ratios of one process are compared,
// because the speed of a machine that is shared with others changes from process to process.
function ratioToLibyuv(contenders) {
    const libyuv = contenders.get('libyuv');
    return libyuv ? median(contenders.get('receiver').ratios.map((ratio, i) => ratio / libyuv.ratios[i])) : NaN;
}

// The recorded results of this processor family: by case, { ratio, nanoseconds }. Empty where none are recorded.
function readRecorded() {
    const file = join(ResultsFolder, Processor.fileName);
    const lines = existsSync(file) ? readFileSync(file, 'utf8').split('\n').map((line) => line.split('\t')) : [];
    const [us, receiver] = ['us', 'receiver'].map((heading) => Headings.indexOf(heading) + 1);
    return new Map(lines.filter(([source]) => source === 'warm').map((line) => [
        line[1], { ratio: parseFloat(line[receiver]), nanoseconds: parseFloat(line[us]) * 1000 },
    ]));
}

// The limits of its goal that a case misses: { text, isKnown }. The ratio to the baseline and the time depend on the
// processor family: a miss of theirs is known when the recorded results of the family miss the limit as well.
function misses(name, contenders, recorded) {
    const goal = Goals[name];
    const own = contenders.get('receiver');
    const missed = [];
    const check = (what, value, limit, recordedValue = 0) => {
        if (limit !== undefined && !(value <= limit)) {
            missed.push({ text: `${what} ${figure(value)} is above ${figure(limit)}`, isKnown: recordedValue > limit });
        }
    };
    const before = recorded.get(name);
    check('baseline', own.ratio, goal.baseline, before?.ratio);
    check('libyuv', ratioToLibyuv(contenders), goal.libyuv);
    check('nanoseconds', own.microseconds * 1000, goal.nanoseconds, before?.nanoseconds);
    return missed;
}

function goalText({ baseline, libyuv, nanoseconds }) {
    return [baseline && figure(baseline), libyuv && `${figure(libyuv)} libyuv`, nanoseconds && `${nanoseconds} ns`]
        .filter(Boolean).join(', ');
}

const resultText = (missed) => (missed.length > 0 ? `missed: ${missed.map(({ text }) => text).join(', ')}` : 'met');

// One line of cells per case; the last two are empty for a case that is not judged.
function caseLines(rows, missedByCase) {
    return [...rows].map(([name, contenders]) => {
        const ratio = ratioToLibyuv(contenders);
        const missed = missedByCase.get(name);
        return [
            name, figure(contenders.get('receiver').microseconds),
            ...Contenders.map((contender) => cell(contenders.get(contender))),
            ratio ? figure(ratio) : '', ...(missed ? [goalText(Goals[name]), resultText(missed)] : ['', '']),
        ];
    });
}

function table(lines) {
    const widths = Headings.map((heading, column) =>
        Math.max(heading.length, ...lines.map((line) => line[column].length)));
    const row = (cells) => `| ${cells.map((text, column) => text.padEnd(widths[column])).join(' | ')} |`;
    const rule = `|${widths.map((width) => '-'.repeat(width + 2)).join('|')}|`;
    return [row(Headings), rule, ...lines.map(row)].join('\n');
}

// This machine's processor: { name, fileName }. The results of one family are one file.
function readProcessor() {
    const values = new Map(readFileSync('/proc/cpuinfo', 'utf8').split('\n').map((line) => line.split(/\s*: /)));
    const [vendor, family, model] = ['vendor_id', 'cpu family', 'model'].map((name) => values.get(name));
    const shortVendor = (vendor ?? 'unknown').replace(/^(Authentic|Genuine)/, '').toLowerCase();
    return {
        name: `${cpus()[0].model}, family ${family} model ${model}`,
        fileName: `${shortVendor}-family-${family}.tsv`,
    };
}

const Processor = readProcessor();

// How many goals are met.
function summaryOf({ kernels }, rows, missedByCase) {
    if (kernels !== 'AVX2') {
        return 'The goals are for AVX2, which this machine lacks: none is met.';
    }
    const met = [...missedByCase.values()].filter((missed) => missed.length === 0);
    const withLibyuv = [...missedByCase.keys()].filter((name) => Goals[name].libyuv);
    const kept = withLibyuv.filter((name) => ratioToLibyuv(rows.get(name)) <= Goals[name].libyuv);
    return `${met.length} of ${missedByCase.size} goals met, ` +
        `${kept.length} of ${withLibyuv.length} limits against libyuv kept.`;
}

// The text of a results file: comment lines, then lines of cells that tabs separate. docs/performance.md explains it.
function resultsText({ kernels, compiler }, warm, cold, summary, { processes }) {
    return [
        `# ${Processor.name}; ${cpus().length} CPUs, g++ ${compiler}, ${kernels} kernels, ${processes} processes`,
        `# ${summary}`,
        ['source', ...Headings].join('\t'),
        ...warm.map((line) => ['warm', ...line].join('\t').trimEnd()),
        ...cold.map((line) => ['cold', ...line].join('\t').trimEnd()),
        '',
    ].join('\n');
}

// The file that --write names: in a folder, that of this machine's processor family.
function resultsFile(path) {
    return existsSync(path) && statSync(path).isDirectory() ? join(path, Processor.fileName) : path;
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
        throw new Error(`there are goals for cases that were not measured: ${unknown.join('; ')}`);
    }
    const recorded = readRecorded();
    const missedByCase = new Map([...warm.rows].filter(([name]) => Goals[name])
        .map(([name, contenders]) => [name, misses(name, contenders, recorded)]));
    const summary = summaryOf(warm.head, warm.rows, missedByCase);
    const warmCells = caseLines(warm.rows, missedByCase);
    const coldCells = caseLines(cold.rows, new Map()); // The goals are for a warm source.
    process.stdout.write(`Warm source (in the caches):\n${table(warmCells)}\n\n` +
        `Cold source (in memory):\n${table(coldCells)}\n\n${summary}\n`);
    if (options.write) {
        const file = resultsFile(options.write);
        writeFileSync(file, resultsText(warm.head, warmCells, coldCells, summary, options));
        process.stdout.write(`Written to ${file}\n`);
    }
    const counted = [...missedByCase].filter(([, missed]) => missed.some(({ isKnown }) => !isKnown));
    if (counted.length > 0) {
        process.stdout.write(`Missed limits that --strict counts: ${counted.map(([name]) => name).join('; ')}\n`);
    }
    process.exitCode = options.strict && (counted.length > 0 || warm.head.kernels !== 'AVX2') ? 1 : 0;
} catch (error) {
    const isUsage = error.code?.startsWith('ERR_PARSE_ARGS');
    process.stderr.write(`./dev bench: ${error.message}\n${isUsage ? `${Usage}\n` : ''}`);
    process.exitCode = 2;
}
