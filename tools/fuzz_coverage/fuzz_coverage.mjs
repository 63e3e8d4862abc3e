// Reports which lines of the product the fuzz corpora reach, the kept ones and those of earlier runs:
// `fuzz_coverage.mjs BUILD_FOLDER`, a build of the linux-coverage preset. The exit code is 1 when they reach too few
// lines of the core.
import { execFileSync } from 'node:child_process';
import { existsSync, mkdirSync, readFileSync, readdirSync, rmSync } from 'node:fs';
import { dirname, join, relative, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';

const Root = resolve(dirname(fileURLToPath(import.meta.url)), '../..');
const MinimumPercent = 97;

// Runs every target on its corpora; returns the data of all of them in the format of lcov.
function measure(build) {
    const profiles = join(build, 'profiles');
    rmSync(profiles, { recursive: true, force: true });
    mkdirSync(profiles);
    const programs = readdirSync(join(build, 'fuzz')).filter((name) => name.startsWith('fuzz_'));
    for (const program of programs) {
        const target = program.slice('fuzz_'.length);
        const corpora = [join(Root, 'fuzz/corpus', target), join(Root, 'build/fuzz', target, 'corpus')];
        execFileSync(join(build, 'fuzz', program), corpora.filter((folder) => existsSync(folder)), {
            stdio: 'ignore',
            env: { ...process.env, LLVM_PROFILE_FILE: join(profiles, `${program}.profraw`) },
        });
    }
    const merged = join(profiles, 'merged.profdata');
    execFileSync('llvm-profdata', [
        'merge', `-output=${merged}`, ...programs.map((program) => join(profiles, `${program}.profraw`)),
    ]);
    return execFileSync('llvm-cov', [
        'export', '-format=lcov', `-instr-profile=${merged}`,
        ...programs.map((program) => `-object=${join(build, 'fuzz', program)}`),
    ], { encoding: 'utf8', maxBuffer: 1 << 28 });
}

// By file: the number of lines with code, and the numbers of those that were not reached.
function* filesIn(lcov) {
    for (const record of lcov.split('end_of_record')) {
        const path = /^SF:(.*)$/m.exec(record)?.[1];
        const lines = [...record.matchAll(/^DA:(\d+),(\d+)/gm)].map(([, line, count]) => [Number(line), Number(count)]);
        if (path) {
            yield {
                path: relative(Root, path),
                count: lines.length,
                missed: lines.filter(([, count]) => count === 0).map(([line]) => line),
            };
        }
    }
}

function percentOf(files) {
    const sum = (numbers) => numbers.reduce((a, b) => a + b, 0);
    const all = sum(files.map(({ count }) => count));
    return (all - sum(files.map(({ missed }) => missed.length))) * 100 / all;
}

const [build] = process.argv.slice(2);
const sourcesOfCore = new Set(JSON.parse(readFileSync(join(build, 'compile_commands.json'), 'utf8'))
    .filter(({ command }) => command.includes('receiver_core.dir'))
    .map(({ file }) => relative(Root, file)));
const product = [...filesIn(measure(build))]
    .filter(({ path, count }) => count > 0 && !/^(\.\.|fuzz|tests|build)\//.test(path))
    .sort((a, b) => a.path.localeCompare(b.path));
const core = product.filter(({ path }) => sourcesOfCore.has(path));

for (const file of product) {
    console.log(`${percentOf([file]).toFixed(1).padStart(6)} %  ${file.path}`);
}
for (const { path, missed } of product) {
    const text = readFileSync(join(Root, path), 'utf8').split('\n');
    for (const line of missed) {
        console.log(`${path}:${line}: not reached: ${text[line - 1].trim()}`);
    }
}
const percent = percentOf(core);
console.log(`The corpora reach ${percentOf(product).toFixed(1)} % of the product's lines and ` +
    `${percent.toFixed(1)} % of the core's.`);
if (core.length !== sourcesOfCore.size) {
    throw new Error('a source of the core has no data');
}
if (percent < MinimumPercent) {
    console.log(`That is less than ${MinimumPercent} % of the core's.`);
    process.exitCode = 1;
}
