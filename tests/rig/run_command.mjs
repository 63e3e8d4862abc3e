// The body of `./dev run`: runs the real receiver in a sandbox directory until it is asked to end.
import { once } from 'node:events';
import { existsSync } from 'node:fs';
import * as fs from 'node:fs/promises';
import { dirname, join, relative } from 'node:path';
import { setTimeout as delay } from 'node:timers/promises';

import { fetchApplication, startApplication } from './application/application.mjs';
import { FrameCounter } from './frame_counter.mjs';
import { SourceFolder } from './prefix.mjs';
import { medianAndP99 } from './percentiles.mjs';
import { lock, lockHolder } from './processes.mjs';
import { startReceiver } from './receiver_run.mjs';
import { parseOptions } from './run_options.mjs';
import { serveFolder } from './static_server.mjs';

const Results = [
    'window.png', 'camera.png', 'camera.json', 'application.mkv', 'application.png', 'application.json',
    'exit-code.txt',
];

// Two promises: the first request to end, and the second one, which does not wait for the receiver.
function stopRequests() {
    const requests = [];
    const promises = [0, 1].map(() => new Promise((resolve) => requests.push(resolve)));
    for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) {
        process.on(signal, () => requests.shift()?.());
    }
    return promises;
}

function say(text) {
    process.stdout.write(`${text}\n`);
}

function shown(path) {
    const short = relative(process.cwd(), path);
    return short.startsWith('..') ? path : short;
}

// The files of snapshots and recordings in the sandbox directory.
async function captures(out) {
    const folders = [join(out, 'Pictures/Vistel'), join(out, 'Videos/Vistel')];
    const lists = await Promise.all(folders.map(async (folder) =>
        (await fs.readdir(folder).catch(() => [])).map((name) => join(folder, name))));
    return lists.flat();
}

// Level by level: where a parent never comes to be, as under /proc, Node's own recursion does not end.
async function makeFolder(folder) {
    if (existsSync(folder)) {
        if (!(await fs.stat(folder)).isDirectory()) {
            throw new Error(`${shown(folder)} is not a folder`);
        }
        return;
    }
    await makeFolder(dirname(folder));
    await fs.mkdir(folder).catch((error) => {
        throw new Error(`cannot make the folder ${shown(folder)}: ${error.message}`);
    });
}

async function runOnce(options) {
    const [stopRequested, abortRequested] = stopRequests();
    await makeFolder(options.out);
    const outLock = lock(join(options.out, '.run.lock'), { wait: false });
    if (!outLock) {
        const holder = lockHolder(join(options.out, '.run.lock'));
        throw new Error(`${shown(options.out)} is in use by another run (process ${holder}): give this one --out`);
    }
    if (options.application) {
        await fetchApplication();
    }
    await Promise.all(Results.map((name) => fs.rm(join(options.out, name), { force: true })));

    const page = options.receiverArguments ? undefined : await serveFolder(join(SourceFolder, 'examples/page'));
    let run;
    try {
        run = await startReceiver({
            out: options.out, show: options.show, screencast: true, log: (text) => say(`rig: ${text}`),
            args: options.receiverArguments ?? [
                `--url=http://127.0.0.1:${page.port}/index.html${options.pageQuery ? `?${options.pageQuery}` : ''}`,
            ],
        });
        const aborted = abortRequested.then(() => {
            throw new Error('ended at the second request, without waiting for the receiver');
        });
        return await Promise.race([watch(run, options, stopRequested), aborted]);
    } finally {
        await run?.stop();
        await page?.stop();
    }
}

// Waits, at the latest until `ended` is aborted.
function pause(seconds, ended) {
    return delay(seconds * 1000, undefined, { signal: ended }).catch(() => {});
}

// Starts the camera after `startSeconds` and stops it `seconds` later, at the latest when `ended` is aborted. Its
// report; undefined when the run has ended before the start.
async function runCamera(run, { startSeconds, seconds }, picture, ended) {
    await pause(startSeconds, ended);
    if (ended.aborted) {
        say('The run ended before the camera was started');
        return undefined;
    }
    const camera = run.camera({ picture, watch: true });
    await (seconds === undefined ? once(ended, 'abort') : pause(seconds, ended));
    return camera.finish();
}

// Minimizes the window after `startSeconds` and restores it `seconds` later, at the latest when `ended` is aborted. The
// frames per second of that time; undefined when the run has ended before the start.
async function minimizeWindow(run, { startSeconds, seconds }, counter, ended) {
    await pause(startSeconds, ended);
    if (ended.aborted) {
        say('The run ended before the window was minimized');
        return undefined;
    }
    await run.systemCommand('minimize');
    say('Minimized the window');
    const [framesBefore, beforeMs] = [counter.total, performance.now()];
    await pause(seconds, ended);
    const framesPerSecond = 1000 * (counter.total - framesBefore) / (performance.now() - beforeMs);
    if (run.exitCode === undefined) {
        await run.systemCommand('restore');
        say(`Restored the window: ${framesPerSecond.toFixed(1)} frames per second while it was minimized`);
    }
    return framesPerSecond;
}

// What a frame costs the receiver, from the page's message to the end of its work on it: the change of the frame file
// and, while a recording runs, what the recording takes. In whole microseconds; undefined when there was no frame.
async function frameCost(run) {
    return medianAndP99((await run.browser.callbackTimings()).map(Math.round));
}

async function watch(run, options, stopRequested) {
    const until = options.seconds ? `for ${options.seconds} s` : 'until Ctrl-C';
    say(`Running the receiver ${until}; its sandbox directory is ${shown(options.out)}`);
    const olderCaptures = await captures(options.out);
    const counter = new FrameCounter(join(options.out, 'ProgramData/Vistel/frame-buffer.bin'));
    const cameraPicture = join(options.out, 'camera.png');
    const timer = new AbortController();
    const visit = options.camera ? runCamera(run, options.camera, cameraPicture, timer.signal) : undefined;
    visit?.catch(() => {}); // Reported below, like the next one.
    const minimized = options.minimize ? minimizeWindow(run, options.minimize, counter, timer.signal) : undefined;
    minimized?.catch(() => {});

    const framesBefore = counter.held;
    const application = options.application
        ? await startApplication(run, () => counter.held > framesBefore) : undefined;

    await Promise.race([
        stopRequested,
        run.exited,
        ...(application ? [application.failed] : []),
        ...(options.seconds ? [delay(options.seconds * 1000, undefined, { signal: timer.signal })] : []),
    ]).finally(() => timer.abort());

    const endedByItself = run.exitCode !== undefined;
    const framesPerSecondMinimized = await minimized;
    const counted = counter.stop();
    const windowPicture = join(options.out, 'window.png');
    const windowSeen = !endedByItself && await run.windowPicture(windowPicture).catch((error) => {
        say(`No picture of the window: ${error.message}`);
        return false;
    });
    const cost = endedByItself ? undefined : await frameCost(run);
    const report = await visit;
    if (!report) {
        await run.camera({ seconds: 0, picture: cameraPicture, watch: true }).finish();
    }
    if (report || framesPerSecondMinimized !== undefined) {
        const facts = { ...report, frameCostUs: cost, framesPerSecondMinimized };
        await fs.writeFile(join(options.out, 'camera.json'), `${JSON.stringify(facts, null, 2)}\n`);
    }

    const recording = join(options.out, 'application.mkv');
    const recorded = await application?.finish(recording, join(options.out, 'application.png'));
    if (recorded) {
        await fs.writeFile(join(options.out, 'application.json'), `${JSON.stringify(recorded, null, 2)}\n`);
    }

    if (!endedByItself) {
        say('Closing the window');
    }
    const exitCode = endedByItself ? run.exitCode : await run.closeWindow();
    await fs.writeFile(join(options.out, 'exit-code.txt'), `${exitCode}\n`);

    if (endedByItself) {
        say(`The receiver ended by itself with exit code ${exitCode}`);
    }
    if (windowSeen) {
        say(`The window:  ${shown(windowPicture)}`);
    }
    say(`The camera:  ${shown(cameraPicture)}`);
    const newCaptures = (await captures(options.out)).filter((name) => !olderCaptures.includes(name));
    for (const [word, ending, title] of [['snapshot', '.jpg', 'A snapshot: '], ['record', '.mp4', 'A recording:']]) {
        const files = newCaptures.filter((name) => name.endsWith(ending));
        files.forEach((file) => say(`${title} ${shown(file)}`));
        if (files.length === 0 && new URLSearchParams(options.pageQuery).has(word)) {
            say(`${title} none was made; the page says why in its events, at the foot of the window`);
        }
    }
    if (recorded) {
        say(`The application's recording: ${shown(recording)} (${recorded.framesRecorded} frames, ` +
            `${recorded.framesMissing} missing, ${recorded.framesRepeated} repeated)`);
    }
    const log = shown(join(options.out, 'Temp/vistel-receiver.log'));
    say(`The log:     ${log}`);
    const rate = report ? report.framesPerSecond : counted.framesPerSecond;
    const frames = report ? `${report.framesRead} frames read, ${report.tornReads} torn`
                          : `${counted.frames} frames`;
    say((report ? report.framesRead : counted.frames) > 0
        ? `${rate.toFixed(1)} frames per second reached the camera (${frames})`
        : `No frame reached the camera; ${log} may say why`);
    if (report && cost) {
        say(`A frame took ${(cost.median / 1000).toFixed(2)} ms from the page's message to the camera's file ` +
            `(${(cost.p99 / 1000).toFixed(2)} ms at the 99th percentile), a recording that ran included`);
    }
    return exitCode;
}

try {
    const exitCode = await runOnce(parseOptions(process.argv.slice(2)));
    // A shell sees the low 8 bits; a failure must not turn into a success there.
    process.exitCode = exitCode & 0xff || (exitCode === 0 ? 0 : 1);
} catch (error) {
    process.stderr.write(`./dev run: ${error.message}\n`);
    process.exitCode = 1;
}
