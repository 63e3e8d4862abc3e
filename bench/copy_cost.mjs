// What the page module's postFrame() costs with and without exactColors, in a headless Chromium:
//   node bench/copy_cost.mjs
// Prints the medians in milliseconds. The machine must be idle.
import { mkdtemp, readFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

import { Chromium } from '../tests/rig/browser/chromium.mjs';
import { SourceFolder } from '../tests/rig/prefix.mjs';
import { until, within } from '../tests/rig/processes.mjs';
import { serveFolder } from '../tests/rig/static_server.mjs';

const LimitMs = 300000;

// { case: milliseconds }. Its text runs in the page, with the module and a host that only gives slots.
async function measure() {
    const Rounds = 61;
    const FramesInRound = 10; // The page's clock is coarse.
    const { VistelReceiver } = await import('/examples/page/vistel_receiver.mjs');
    const receiver = new VistelReceiver();
    host.postBuffer(0);
    host.postBuffer(1);
    // The module does not write a slot again at once. By its clock it is always late enough.
    const now = performance.now.bind(performance);
    let aheadMs = 0;
    performance.now = () => now() + (aheadMs += 1000);
    const cases = [];
    for (const [name, codedWidth, codedHeight] of [['720p', 1280, 720], ['1080p', 1920, 1080]]) {
        const bytes = new Uint8Array(codedWidth * codedHeight * 3 / 2);
        bytes.forEach((_, index) => {
            bytes[index] = 16 + index * 7 % 219;
        });
        const colorSpace = { matrix: 'bt709', primaries: 'bt709', transfer: 'bt709', fullRange: false };
        for (const exactColors of [false, true]) {
            cases.push({
                name: `${name}, ${exactColors ? 'exactColors' : 'as it is'}`, exactColors, rounds: [],
                makeFrame: () => new VideoFrame(bytes, {
                    format: 'I420', codedWidth, codedHeight, timestamp: 0, colorSpace,
                }),
            });
        }
    }
    for (let round = 0; round < Rounds; ++round) {
        for (const { exactColors, rounds, makeFrame } of cases) {
            const frames = Array.from({ length: FramesInRound }, makeFrame);
            const startMs = now();
            for (const frame of frames) {
                await receiver.postFrame(frame, { exactColors });
            }
            rounds.push((now() - startMs) / FramesInRound);
        }
    }
    return Object.fromEntries(cases.map(({ name, rounds }) => [name, rounds.sort((a, b) => a - b)[Rounds >> 1]]));
}

const profile = await mkdtemp(join(tmpdir(), 'copy-cost-'));
const server = await serveFolder(SourceFolder);
const chromium = await Chromium.start({ profile });
try {
    const url = `http://127.0.0.1:${server.port}/tests/page/blank.html`;
    const { targetId } = await chromium.send('Target.createTarget', { url });
    const { sessionId } = await chromium.send('Target.attachToTarget', { targetId, flatten: true });
    const evaluate = async (expression) => {
        const { result, exceptionDetails } = await chromium.send('Runtime.evaluate', {
            expression, awaitPromise: true, returnByValue: true,
        }, sessionId);
        if (exceptionDetails) {
            throw new Error(exceptionDetails.exception?.description ?? exceptionDetails.text);
        }
        return result.value;
    };
    await until(LimitMs, 'page', () => evaluate('location.protocol === "http:" && document.readyState === "complete"'));
    await evaluate(await readFile(join(SourceFolder, 'tests/page/fake_host.js'), 'utf8'));
    const medians = await within(LimitMs, 'measurement', evaluate(`(${measure})()`));
    for (const [name, milliseconds] of Object.entries(medians)) {
        process.stdout.write(`${name}: ${milliseconds.toFixed(2)} ms\n`);
    }
} finally {
    await chromium.stop();
    await server.stop();
}
