// The body of `./dev soak`: soak_command.mjs MINUTES [--minimized]. The report stands on the terminal and in
// build/soak/soak.json.
import { mkdir, writeFile } from 'node:fs/promises';
import { join } from 'node:path';

import { SourceFolder } from '../prefix.mjs';
import { lock } from '../processes.mjs';
import { describeSlope } from './slope.mjs';
import { soak } from './soak.mjs';

const LeastMinimizedRate = 29; // of the page's 30 frames per second
const out = join(SourceFolder, 'build/soak');

function describe({ frames, latencyMs, frameCostUs, recordings, snapshots, held, memory, logLines }) {
    const sum = (name) => recordings.reduce((total, recording) => total + recording[name], 0);
    const show = (holding) => Object.entries(holding).map(([name, value]) => `${value} ${name}`).join(', ');
    const spread = ({ median, p99 }, unit) =>
        `${median.toFixed(2)} ${unit}, ${p99.toFixed(2)} ${unit} at the 99th percentile`;
    return [
        frames && `Frames:      ${frames.posted} posted by the page, ${frames.perSecond.toFixed(2)} a second\n` +
            `             ${frames.published} published; ${frames.dropped} posted and not published, ` +
            `${frames.refused} refused\n` +
            `             ${frames.read} read by the camera; ${frames.overtaken} published and not read, ` +
            `${frames.torn} torn\n` +
            `             ${frames.late} handled when the page may have been writing their slot again`,
        latencyMs && `Latency:     ${spread(latencyMs, 'ms')}, from the page's post to the end of the receiver's work`,
        frameCostUs && `Cost:        ${spread(frameCostUs, 'us')}, of the receiver alone, its recordings included`,
        `Recordings:  ${recordings.length} whole, ${sum('frames')} frames in ${sum('seconds').toFixed(0)} s`,
        `Snapshots:   ${snapshots} whole`,
        held.length > 0 && `Held:        ${show(held[0])}, after the first recording\n` +
            `             ${show(held.at(-1))}, in the end`,
        memory && `Memory:      ${describeSlope(memory)}`,
        logLines && `Log:         ${logLines} lines`,
    ].filter(Boolean).join('\n');
}

await mkdir(out, { recursive: true });
if (!lock(join(out, '.run.lock'), { wait: false })) {
    throw new Error(`${out} is in use by another run`);
}
const interrupted = new Promise((resolve, reject) => {
    for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) {
        process.on(signal, () => reject(new Error(`ended by ${signal}`)));
    }
});
interrupted.catch(() => {}); // Reported among the problems.

const [, , minutes, option] = process.argv;
const minimized = option === '--minimized';
const report = await soak({ minutes: Number(minutes), minimized, out, interrupted });
if (minimized && report.frames?.perSecond < LeastMinimizedRate) {
    report.problems.push(`the hidden page posted ${report.frames.perSecond.toFixed(2)} frames per second`);
}
await writeFile(join(out, 'soak.json'), `${JSON.stringify(report, null, 2)}\n`);
process.stdout.write(`${describe(report)}\n`);
report.problems.forEach((problem) => process.stderr.write(`./dev soak: ${problem}\n`));
process.exitCode = report.problems.length > 0 ? 1 : 0;
