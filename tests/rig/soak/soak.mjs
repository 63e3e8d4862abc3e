// The whole program for a long time: the sample page feeds it, a camera reads all the time, recordings and snapshots
// come and go. What was posted is published and recorded, nothing is torn, and nothing piles up.
import { rm } from 'node:fs/promises';
import { join } from 'node:path';
import { setTimeout as delay } from 'node:timers/promises';

import { captureFile, decodeVideo, recordingFile } from '../end_to_end/capture_files.mjs';
import { FrameFile } from '../end_to_end/frame_file.mjs';
import { barOffset, frameNumber, hasColorBars } from '../end_to_end/test_card.mjs';
import { medianAndP99 } from '../percentiles.mjs';
import { SourceFolder } from '../prefix.mjs';
import { until, within } from '../processes.mjs';
import { startReceiver } from '../receiver_run.mjs';
import { probe } from '../recorder/mp4_encoder.mjs';
import { serveFolder } from '../static_server.mjs';
import { describeSlope, memorySlope } from './slope.mjs';

const LimitMs = 120000;
const LeastCycles = 6;
const [Width, Height] = [1280, 720];
const ClockSlackMs = 1000; // between two looks at a clock on a busy machine
const EndOfVideo = 'error:The video track has ended';
const [SmallWidth, SmallHeight] = [320, 180]; // of the pictures that are compared with the page's
const CounterRange = 65536; // of the frame number on the page's picture
const MixedPixels = 10; // The bar moves so far with every frame.

// What the program may hold beyond what it held before: in memory, in a run that is too short for the interval of a
// slope, less than it takes to leave a few hundred bytes with each frame; and of all else less than it takes to leave
// one with each recording.
const MemoryAllowanceKb = 512;
const CountAllowance = LeastCycles / 2 - 1;

// Soaks for a number of minutes, with a recording in each, in the sandbox directory `out` or a temporary one. With
// `minimized` the window is minimized all the time. `interrupted` is a promise that ends it early by rejecting. The
// report:
//   problems      sentences; none when all is well
//   frames        { posted, perSecond, published, dropped, refused, read, overtaken, late, torn }; dropped is what was
//                 posted and not published, overtaken what was published and not read, late what the receiver handled
//                 when the page may have been writing its slot again: such a frame may be made of two
//   latencyMs     { median, p99 } of a frame from the page's post to the return of the receiver's callback: the look
//                 for what has changed in the slot, the way of those bytes and of the message through the rig's worker,
//                 socket and browser server, the wait for the receiver's thread, the conversion and the publishing;
//                 and the recording while one runs. The real browser shares the slot and carries no bytes.
//   frameCostUs   { median, p99 } of the receiver's callback alone
//   recordings    { frames, seconds } of each that is whole
//   snapshots     the number of those that are whole
//   held          what the program held after each cycle, with the number of frames posted until then
//   memory        the growth of the program's memory, as in slope.mjs
export async function soak({ minutes, minimized = false, out, interrupted = new Promise(() => {}) }) {
    const report = { minutes, problems: [], recordings: [], snapshots: 0, held: [] };
    const server = await serveFolder(join(SourceFolder, 'examples/page'));
    let run;
    const over = new AbortController();
    try {
        if (out) {
            await rm(new FrameFile(out).path, { force: true }); // its frames would count
        }
        run = await startReceiver({ out, args: [`--url=http://127.0.0.1:${server.port}/index.html?fps=30`] });
        const ended = run.exited.then((code) => Promise.reject(new Error(`the receiver ended with ${code}`)));
        await Promise.race([new Soak(run, report, over.signal).watch(minutes, minimized), ended, interrupted]);
        const exitCode = await run.closeWindow();
        if (exitCode !== 0) {
            report.problems.push(`the receiver ended with ${exitCode}`);
        }
        checkLog(await run.logLines(), report);
    } catch (error) {
        report.problems.push(error.message);
    } finally {
        over.abort();
        await run?.stop();
        await server.stop();
    }
    return report;
}

class Soak {
    #run;
    #report;
    #over;
    #page;
    #frameFile;
    #posts = []; // when the page posted each frame
    #asked; // the newest recording as the page asked for it: { open, first, frames, askedMs, lastFrameMs }

    constructor(run, report, over) {
        this.#run = run;
        this.#report = report;
        this.#over = over;
        this.#frameFile = new FrameFile(run.out);
        run.browser.events.on('message', (message) => this.#onMessage(message));
    }

    // Resolves when the report has everything that can be measured while the receiver runs.
    async watch(minutes, minimized) {
        const camera = this.#run.camera();
        this.#page = await this.#run.browser.page();
        await this.#frameFile.waitForFrames(1, LimitMs);
        if (minimized) {
            await this.#run.systemCommand('minimize');
        }
        const cycles = Math.max(LeastCycles, minutes);
        for (let cycle = 0; cycle < cycles; ++cycle) {
            await this.#cycle(minutes * 60000 / cycles);
            this.#report.held.push({ frames: this.#posts.length, ...await this.#run.held() });
        }
        this.#checkGrowth();
        // The receiver has handled all frames once it has logged a message that the page posts after them.
        await this.#page.evaluate(`document.getElementById('video').srcObject.getTracks()[0].stop()`);
        await this.#run.waitForLog(EndOfVideo, LimitMs);
        await this.#checkFrames(await camera.finish());
        const state = await this.#page.evaluate('document.visibilityState');
        if (state !== (minimized ? 'hidden' : 'visible')) {
            this.#fail(`the page is ${state}`);
        }
    }

    #fail(problem) {
        this.#report.problems.push(problem);
    }

    #onMessage({ text, postedMs }) {
        if (text.startsWith('frame:')) {
            this.#posts.push(postedMs);
            if (this.#asked?.open) {
                ++this.#asked.frames;
                this.#asked.lastFrameMs = performance.now();
            }
        } else if (text === 'media:record:start') {
            this.#asked = { open: true, first: this.#posts.length, frames: 0, askedMs: performance.now() };
        } else if (text === 'media:record:stop') {
            this.#asked.open = false;
        }
    }

    async #cycle(cycleMs) {
        const startMs = performance.now();
        const pauseUntil = (part) => delay(Math.max(startMs + part * cycleMs - performance.now(), 0), undefined,
                                           { signal: this.#over });
        await this.#press('record', 'recording-started');
        const startedMs = performance.now();
        await pauseUntil(0.3);
        await this.#takeSnapshot();
        await pauseUntil(0.6);
        const { path } = await this.#press('record', 'recording-stopped');
        await this.#checkRecording(path, startedMs, performance.now());
        await this.#takeSnapshot();
        await pauseUntil(1);
    }

    // Presses a button of the page and waits for the receiver's answer.
    async #press(button, action) {
        const { events } = this.#run.browser;
        let onJson;
        const answered = new Promise((resolve) => {
            onJson = (json) => {
                const answer = JSON.parse(json);
                if (answer.type === 'media-result') {
                    resolve(answer);
                }
            };
        });
        events.on('json', onJson);
        try {
            await until(LimitMs, `the page's button "${button}"`, () => this.#page.evaluate(
                `!${button}.disabled && (${button}.click(), true)`));
            const answer = await within(LimitMs, `answer to the page's button "${button}"`, answered);
            if (answer.action !== action || !answer.success) {
                throw new Error(`the answer to the page's button "${button}" was ${JSON.stringify(answer)}`);
            }
            return answer;
        } finally {
            events.off('json', onJson);
        }
    }

    // For each callback about a frame from the number `first` on, whether the page may have written the slot meanwhile:
    // it has two, and writes one again at the earliest when it has posted the other.
    async #areLate(first) {
        const callbacks = await this.#run.browser.callbacks();
        return callbacks.slice(first).map(({ endMs }, index) => endMs > this.#posts[first + index + 1]);
    }

    async #takeSnapshot() {
        const newest = Math.max((await this.#run.browser.callbacks()).length - 1, 0);
        const { path } = await this.#press('snapshot', 'snapshot');
        await this.#check(`snapshot ${path}`, async () => {
            const file = captureFile(this.#run, 'Pictures', path);
            const { streams: [{ width, height }] } = await probe(file, 'stream=width,height');
            if (width !== Width || height !== Height) {
                throw new Error(`it is ${width} x ${height}`);
            }
            const isLate = (await this.#areLate(newest)).includes(true);
            checkPictures(await decodeVideo(file, SmallWidth, SmallHeight), () => isLate);
            await rm(file);
            ++this.#report.snapshots;
        });
    }

    async #checkRecording(path, startedMs, stoppedMs) {
        const { first, frames, askedMs, lastFrameMs } = this.#asked;
        await this.#check(`recording ${path}`, async () => {
            const recording = this.#run.encoder.recordings.at(-1);
            const { samples } = recording;
            if (samples.length !== frames) {
                throw new Error(`it got ${samples.length} frames of the ${frames} posted in that time`);
            }
            const lastMs = samples.at(-1).time / 10000;
            if (lastMs < lastFrameMs - startedMs - ClockSlackMs || lastMs > stoppedMs - askedMs + ClockSlackMs) {
                throw new Error(`its last frame stands at ${lastMs} ms`);
            }
            const file = await recordingFile(this.#run, path, recording, Width, Height);
            const pictures = await decodeVideo(file, SmallWidth, SmallHeight);
            if (pictures.length !== frames) {
                throw new Error(`${pictures.length} of ${frames} pictures can be decoded`);
            }
            const areLate = await this.#areLate(first);
            checkPictures(pictures, (index) => areLate[index]);
            await rm(file);
            this.#report.recordings.push({ frames, seconds: lastMs / 1000 });
        });
    }

    // The file of a capture stays when something is wrong with it.
    async #check(what, check) {
        try {
            await check();
        } catch (error) {
            this.#fail(`${what}: ${error.message}`);
        }
    }

    // The least that was held counts: what comes and goes, such as a thread of the system, is no growth.
    #checkGrowth() {
        const { held } = this.#report;
        const memory = memorySlope(held.map(({ frames, privateKb }) => ({ frames, bytes: 1024 * privateKb })));
        this.#report.memory = memory;
        if (memory.leaks) {
            this.#fail(`memory grows by ${describeSlope(memory)}`);
        }
        const isByHalves = (name) => name !== 'frames' && (name !== 'privateKb' || memory.least === undefined);
        for (const name of Object.keys(held[0]).filter(isByHalves)) {
            const half = Math.ceil(held.length / 2);
            const [before, after] = [held.slice(0, half), held.slice(half)].map(
                (part) => Math.min(...part.map((holding) => holding[name])));
            if (after > before + (name === 'privateKb' ? MemoryAllowanceKb : CountAllowance)) {
                this.#fail(`${name} grew from ${before} to ${after}`);
            }
        }
    }

    async #checkFrames({ framesRead, tornReads }) {
        const posted = this.#posts.length;
        const callbacks = await this.#run.browser.callbacks();
        const published = this.#frameFile.header().sequence / 2;
        const frames = {
            posted, perSecond: 1000 * (posted - 1) / (this.#posts.at(-1) - this.#posts[0]),
            published, dropped: posted - published, refused: callbacks.filter(({ result }) => result !== 0).length,
            read: framesRead, overtaken: published - framesRead,
            late: (await this.#areLate(0)).filter((isLate) => isLate).length, torn: tornReads,
        };
        this.#report.frames = frames;
        for (const [name, fault] of [['dropped', 'not published'], ['refused', 'refused'], ['torn', 'torn']]) {
            if (frames[name] !== 0) {
                this.#fail(`${frames[name]} of ${posted} posted frames were ${fault}`);
            }
        }
        // On a busy machine a camera may miss some.
        if (2 * frames.read < published) {
            this.#fail(`the camera read ${frames.read} of ${published} frames`);
        }
        await until(LimitMs, `page that has posted ${posted} frames`, async () =>
            await this.#page.evaluate('posted.textContent') === String(posted));
        if (callbacks.length !== posted) {
            this.#fail(`the receiver was notified of ${callbacks.length} of ${posted} frames`);
            return;
        }
        this.#report.latencyMs = medianAndP99(callbacks.map(({ endMs }, index) => endMs - this.#posts[index]));
        this.#report.frameCostUs = medianAndP99(callbacks.map(({ microseconds }) => microseconds));
    }
}

// The pictures are those that the page drew, whole and in order. At first the video is blurred. The page fills its two
// slots in turn and does not wait for the receiver, so that of two frames in a row the older may come last, and a late
// one may be made of two.
function checkPictures(pictures, isLate) {
    const shown = pictures.map((picture) => ({ picture, width: SmallWidth, height: SmallHeight }));
    const numbers = shown.map((picture) => (hasColorBars(picture) ? frameNumber(picture) : undefined));
    const readable = numbers.filter((number) => number !== undefined).length;
    if (2 * readable < pictures.length) {
        throw new Error(`${readable} of ${pictures.length} pictures show the test card`);
    }
    numbers.forEach((number, index) => {
        if (isLate(index)) {
            return;
        }
        const steps = (number - numbers[index - 2] + CounterRange) % CounterRange;
        if (!isLate(index - 2) && steps > CounterRange / 2) {
            throw new Error(`picture ${index} shows frame ${number} after ${numbers[index - 2]}`);
        }
        if (number !== undefined && barOffset(shown[index]) >= MixedPixels) {
            throw new Error(`picture ${index} is made of two frames`);
        }
    });
}

// No line reports a failure, except the end that the soak itself causes.
function checkLog(lines, report) {
    const failures = lines.filter((line) => /\(HRESULT 0x|success=0|Web message: (?!ready$)/.test(line) &&
        !line.endsWith(`Web message: ${EndOfVideo}`));
    failures.forEach((line) => report.problems.push(`the log says: ${line}`));
    report.logLines = lines.length;
}
