// The sample page in the receiver: decoded video reaches the camera, in both sizes, and everything ends cleanly.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { join } from 'node:path';
import { test } from 'node:test';

import { SourceFolder } from '../prefix.mjs';
import { run as runProgram, until } from '../processes.mjs';
import { startReceiver } from '../receiver_run.mjs';
import { serveFolder } from '../static_server.mjs';
import { FrameFile } from './frame_file.mjs';
import { assertInOrder, logTexts } from './receiver_texts.mjs';
import { filesOutsideWorld, watchForLeftovers } from './run_traces.mjs';

const FrameLimitMs = 60000;
const FramesToSee = 60;

// The test card's own measures, drawn for a picture of this width.
const CardWidth = 1280;
const Counter = { left: 448, top: 590, square: 24, bits: 16 };
const ColourBars = { left: 340, top: 486, width: 75, height: 52 };

// The mean [Y, U, V] of the middle of a square or bar; places and sizes are those on the test card.
function colourOf({ picture, width, height }, left, top, squareWidth, squareHeight) {
    const scale = width / CardWidth;
    const sums = [0, 0, 0];
    let count = 0;
    for (let y = Math.ceil((top + squareHeight / 3) * scale); y < (top + squareHeight * 2 / 3) * scale; ++y) {
        for (let x = Math.ceil((left + squareWidth / 3) * scale); x < (left + squareWidth * 2 / 3) * scale; ++x) {
            const pair = width * height + (y >> 1) * width + (x & ~1);
            [picture[y * width + x], picture[pair], picture[pair + 1]].forEach((value, i) => {
                sums[i] += value;
            });
            ++count;
        }
    }
    return sums.map((sum) => sum / count);
}

const isGrey = ([, u, v]) => Math.abs(u - 128) < 16 && Math.abs(v - 128) < 16;
const isWhite = (colour) => colour[0] > 180 && isGrey(colour);
const isBlack = (colour) => colour[0] < 70 && isGrey(colour);

// The number that the card shows as white and black squares; undefined when they are neither.
function frameNumber(frame) {
    let number = 0;
    for (let bit = 0; bit < Counter.bits; ++bit) {
        const { left, top, square } = Counter;
        const colour = colourOf(frame, left + bit * square, top, square, square);
        if (!isWhite(colour) && !isBlack(colour)) {
            return undefined;
        }
        number = number * 2 + (isWhite(colour) ? 1 : 0);
    }
    return number;
}

// What is sure about white, yellow, cyan, green, magenta, red, blue and black in any YUV.
const BarChecks = [
    isWhite, ([y, u, v]) => y > 150 && u < 80 && v > 120, ([, u, v]) => u > 130 && v < 90,
    ([, u, v]) => u < 115 && v < 90, ([, u, v]) => u > 150 && v > 150, ([, u, v]) => u < 125 && v > 170,
    ([, u, v]) => u > 160 && v < 125, isBlack,
];

function hasColourBars(frame) {
    const { left, top, width, height } = ColourBars;
    return BarChecks.every((isRight, bar) => isRight(colourOf(frame, left + bar * width, top, width, height)));
}

test('decoded video reaches the camera', async (t) => {
    const server = await serveFolder(join(SourceFolder, 'examples/page'));
    t.after(() => server.stop());
    const address = `http://127.0.0.1:${server.port}/index.html?fps=30`;
    const run = await startReceiver({ args: [`--url=${address}`] });
    t.after(() => run.stop());
    const leftovers = await watchForLeftovers(run);
    const frameFile = new FrameFile(run.out);
    await frameFile.waitForFrames(1, FrameLimitMs);
    const camera = run.camera({ picture: join(run.out, 'camera.png') });

    // Video begins blurred, so the card is waited for. Its frame number is at least `atLeast`.
    const waitForCard = (width, height, atLeast) => until(FrameLimitMs, `frame ${atLeast} of the card`, async () => {
        const frame = await frameFile.newestFrame();
        const { picture, sequence, activeBuffer, timestamp, ...fixed } = frame;
        if (fixed.width !== width || !hasColourBars(frame) || !(frameNumber(frame) >= atLeast)) {
            return undefined;
        }
        assert.deepEqual(fixed, {
            magic: 'VSTL', version: 2, width, height, stride: width, frameSize: width * height * 3 / 2,
        });
        assert.equal(activeBuffer, sequence / 2 % 2);
        return { sequence, timestamp, number: frameNumber(frame) };
    });
    const watchCard = async (width, height, atLeast) => {
        const first = await waitForCard(width, height, atLeast);
        const last = await waitForCard(width, height, first.number + FramesToSee);
        assert.ok(last.sequence > first.sequence);
        assert.ok(last.timestamp > first.timestamp);
        return last;
    };

    const small = await watchCard(1280, 720, 1);
    const page = await run.browser.page();
    await page.evaluate(`document.querySelector('#quality [data-value="1080p"]').click()`);
    const large = await watchCard(1920, 1080, small.number);
    assert.ok(large.sequence > small.sequence);

    const report = await camera.finish();
    assert.equal(report.tornReads, 0);
    assert.ok(report.framesRead > 0);
    assert.deepEqual([report.width, report.height], [1920, 1080]);
    const pixel = join(run.out, 'pixel.rgb');
    await runProgram('ffmpeg', [
        '-loglevel', 'error', '-i', join(run.out, 'camera.png'), '-vf', 'crop=1:1:1128:768', '-pix_fmt', 'rgb24',
        '-f', 'rawvideo', pixel,
    ]);
    const [red, green, blue] = await readFile(pixel);
    assert.ok(red > 150 && green < 110 && blue < 110, `the red bar is ${red}, ${green}, ${blue}`);
    assert.deepEqual(Object.keys(await run.browser.callbackResults()), ['0']);

    assert.equal(await run.closeWindow(), 0);
    const texts = await logTexts(run);
    assertInOrder(texts, [
        'Vistel receiver log',
        'Receiver starting',
        'Virtual camera usage monitor initialized',
        'WebView2 environment request accepted',
        'WebView2 environment callback',
        'WebView2 controller callback',
        `Receiver URL: ${address}&clientVersion=0.1.3`,
        'Receiver page navigation requested',
        'Web message: ready',
        'Shared frame buffers posted to script',
        /^System diagnostics posted to script/,
        'Video quality selected: 720p',
        /^First frame descriptor: frame:0:\w+:1280:720:0:0:0:1280:720:/,
        'First browser frame published',
        'Video quality selected: 1080p',
    ]);
    assertInOrder(texts, [
        'Receiver page navigation requested',
        `Navigation completed: success=1, status=0, source=${address}&clientVersion=0.1.3`,
    ]);
    for (const text of ['First frame descriptor: ', 'First browser frame published', 'Navigation completed: ']) {
        assert.equal(texts.filter((line) => line.startsWith(text)).length, 1, text);
    }

    assert.deepEqual(await filesOutsideWorld(run), []);
    await run.stop();
    assert.deepEqual(await leftovers(), []);
});
