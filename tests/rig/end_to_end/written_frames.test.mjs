// Frames that a page writes by hand, in every format and position, and what the camera finds of them: byte for byte.
import assert from 'node:assert/strict';
import { join } from 'node:path';
import { test } from 'node:test';

import { SourceFolder } from '../prefix.mjs';
import { until } from '../processes.mjs';
import { startReceiver } from '../receiver_run.mjs';
import { serveFolder } from '../static_server.mjs';
import { FrameFile, FrameFileBytes } from './frame_file.mjs';
import { fillNoise } from './pages/noise.mjs';
import { convertFrame } from './reference_converter.mjs';
import { frameMessage, Ok, startOnSlotPage } from './slot_page_run.mjs';

const FrameLimitMs = 60000;
const SlotBytes = 8294400;
const Canvases = { '720p': [1280, 720], '1080p': [1920, 1080] };
const Formats = ['NV12', 'I420', 'I420A', 'RGBA', 'RGBX', 'BGRA', 'BGRX'];
const Rotations = [0, 90, 180, 270];
const Flips = [[0, 0], [1, 0], [0, 1], [1, 1]];
const CodedSizes = [[640, 480], [1280, 720], [322, 182], [720, 1280], [2, 2], [1000, 562], [1600, 900], [176, 144]];
const DisplaySizes = [[640, 480], [16, 9], [853, 480], [720, 1280], [4096, 1], [1, 4096], [1919, 1079]];

// Row bytes and rows of each plane that a format is drawn from.
function planeSizes(format, codedWidth, codedHeight) {
    const [half, halfRows] = [codedWidth / 2, codedHeight / 2];
    if (format === 'NV12') {
        return [[codedWidth, codedHeight], [codedWidth, halfRows]];
    }
    if (format.startsWith('I420')) {
        return [[codedWidth, codedHeight], [half, halfRows], [half, halfRows]];
    }
    return [[4 * codedWidth, codedHeight]];
}

// The planes one after the other, from `start` on, each row longer by `padding` and each plane apart by `gap`.
function layOut(format, codedWidth, codedHeight, { start = 0, padding = 0, gap = 0 } = {}) {
    let offset = start;
    return planeSizes(format, codedWidth, codedHeight).map(([rowBytes, rows]) => {
        const plane = [offset, rowBytes + padding];
        offset += rows * (rowBytes + padding) + gap;
        return plane;
    });
}

// Every format in every rotation, and the other values in turn.
function* mixedFrames() {
    let turn = 0;
    for (const format of Formats) {
        for (const rotation of Rotations) {
            const [codedWidth, codedHeight] = CodedSizes[turn % CodedSizes.length];
            const [displayWidth, displayHeight] = DisplaySizes[turn % DisplaySizes.length];
            const [flipA, flipB] = Flips[(turn + (turn >> 2)) % Flips.length];
            const planes = layOut(format, codedWidth, codedHeight, {
                start: turn % 3 * 7, padding: turn % 5 * 3, gap: turn % 4 * 13,
            });
            yield { format, codedWidth, codedHeight, flipA, rotation, flipB, displayWidth, displayHeight, planes };
            ++turn;
        }
    }
}

function plainFrame(format, codedWidth, codedHeight, others = {}) {
    return {
        format, codedWidth, codedHeight, flipA: 0, rotation: 0, flipB: 0, displayWidth: codedWidth,
        displayHeight: codedHeight, planes: layOut(format, codedWidth, codedHeight), ...others,
    };
}

const noteworthyFrames = [
    // Fills the slot to its last byte.
    plainFrame('BGRA', 1920, 1080),
    // Ends with the slot.
    plainFrame('NV12', 1280, 720, { planes: layOut('NV12', 1280, 720, { start: SlotBytes - 1280 * 720 * 3 / 2 }) }),
    // Its planes in reverse, and planes that overlap.
    plainFrame('I420', 640, 480, { planes: [[153600, 640], [76800, 320], [0, 320]] }),
    plainFrame('I420', 640, 480, { planes: [[5, 3], [5, 1], [6, 320]] }),
    // The widest, and the highest.
    plainFrame('NV12', 4096, 2, { displayHeight: 2048 }),
    plainFrame('RGBX', 2, 2160, { displayWidth: 9, displayHeight: 16 }),
    // Without the plane for alpha, and with one that lies nowhere: it is not read.
    plainFrame('I420A', 640, 480),
    plainFrame('I420A', 640, 480, { planes: [...layOut('I420A', 640, 480), [SlotBytes - 1, 2 ** 53 - 1]] }),
    // Planes in plenty.
    plainFrame('RGBA', 320, 240, { planes: Array(1000).fill([4, 1280]) }),
];

function assertSameBytes(actual, expected, what) {
    if (!actual.equals(expected)) {
        const at = expected.findIndex((byte, index) => byte !== actual[index]);
        assert.fail(`${what}: byte ${at} is ${actual[at]} instead of ${expected[at]}`);
    }
}

test('what a page writes is what the camera sees', async (t) => {
    const slotPage = await startOnSlotPage(t);
    const { frameFile } = slotPage;
    assert.deepEqual(await slotPage.connect(), [SlotBytes, SlotBytes]);
    assert.deepEqual(frameFile.header(), {
        magic: 'VSTL', version: 2, width: 1280, height: 720, stride: 1280, frameSize: 1382400,
        sequence: 0, activeBuffer: 0, timestamp: 0,
    });

    const slotWords = new Uint32Array(SlotBytes / 4);
    const slotContent = new Uint8Array(slotWords.buffer);
    let framesWritten = 0;
    let before = await frameFile.newestFrame();
    const checkFrame = async (frame, canvasSize) => {
        const slot = framesWritten % 2;
        const message = frameMessage({ ...frame, slot });
        const what = message.slice(0, 200);
        ++framesWritten;
        await slotPage.fill(slot, framesWritten);
        fillNoise(slotWords, framesWritten);
        assert.deepEqual(await slotPage.post(message), { [Ok]: 1 }, what);

        const [width, height] = canvasSize;
        const { picture, timestamp, ...header } = await frameFile.newestFrame();
        assert.deepEqual(header, {
            magic: 'VSTL', version: 2, width, height, stride: width, frameSize: width * height * 3 / 2,
            sequence: 2 * framesWritten, activeBuffer: framesWritten % 2,
        }, what);
        assert.ok(timestamp >= before.timestamp, what);
        assertSameBytes(picture, convertFrame(slotContent, frame, width, height), what);
        assertSameBytes(frameFile.buffer(1 - header.activeBuffer, before.frameSize), before.picture,
                        `${what}, the frame before`);
        before = { ...header, timestamp, picture };
    };

    for (const quality of ['720p', '1080p']) {
        await slotPage.post(`quality:${quality}`);
        for (const frame of [...noteworthyFrames, ...mixedFrames()]) {
            await checkFrame(frame, Canvases[quality]);
        }
    }
    await slotPage.post('quality:720p');
    await checkFrame(plainFrame('NV12', 1280, 720), Canvases['720p']);
    assert.equal(frameFile.size, FrameFileBytes);
    assert.equal(await slotPage.run.closeWindow(), 0);
});

// Frames as decoders of real machines give them, posted with the page module. Y of the visible part at x, y is
// (x + 3 * y) % 199 + 20; samples around it are 0.
const DecodedFrames = [
    // 1088 rows for 1080, and rows that are longer than the picture.
    { format: 'NV12', coded: [1920, 1088], stride: 2048, visible: [0, 0, 1920, 1080] },
    // A visible part that does not begin at 0.
    { format: 'NV12', coded: [2048, 1152], stride: 2048, visible: [64, 32, 1920, 1080] },
    { format: 'I420', coded: [1984, 1088], stride: 1984, visible: [32, 8, 1920, 1080] },
    // 10 bits, which the page converts to RGB; it comes back as it was, but for rounding.
    { format: 'I420P10', coded: [1920, 1088], stride: 1920, visible: [0, 0, 1920, 1080], tolerance: 3 },
];

// Runs in the page.
function postDecodedFrame(receiver, { format, coded, stride, visible: [x, y, width, height] }) {
    const [codedWidth, codedHeight] = coded;
    const isDeep = format.endsWith('P10');
    const rows = codedHeight / 2;
    const planeStrides = format === 'NV12' ? [stride, stride] : [stride, stride / 2, stride / 2];
    const Samples = isDeep ? Uint16Array : Uint8Array;
    const bytesEach = Samples.BYTES_PER_ELEMENT;
    const samples = new Samples(stride * codedHeight * 3 / 2);
    samples.fill(isDeep ? 512 : 128, stride * codedHeight); // gray
    for (let row = 0; row < height; ++row) {
        for (let column = 0; column < width; ++column) {
            const luma = (column + 3 * row) % 199 + 20;
            samples[(y + row) * stride + x + column] = isDeep ? 4 * luma : luma;
        }
    }
    let offset = 0;
    const layout = planeStrides.map((each, index) => {
        const plane = { offset: offset * bytesEach, stride: each * bytesEach };
        offset += each * (index === 0 ? codedHeight : rows);
        return plane;
    });
    const whole = new VideoFrame(samples, {
        format, codedWidth, codedHeight, timestamp: 0, layout,
        colorSpace: { matrix: 'smpte170m', primaries: 'smpte170m', transfer: 'smpte170m', fullRange: false },
    });
    // A frame that is made of bytes keeps only its visible part, one that is made of a frame keeps all.
    const frame = new VideoFrame(whole, { visibleRect: { x, y, width, height } });
    whole.close();
    const seen = [frame.codedWidth, frame.codedHeight, frame.visibleRect.x, frame.visibleRect.y];
    return receiver.postFrame(frame).then((isPosted) => isPosted && seen);
}

test('frames with padding around their picture reach the camera without it', async (t) => {
    const server = await serveFolder(join(SourceFolder, 'examples/page'));
    t.after(() => server.stop());
    // The module's text is also a page of its origin, without a script of its own.
    const run = await startReceiver({ args: [`--url=http://127.0.0.1:${server.port}/vistel_receiver.mjs`] });
    t.after(() => run.stop());
    await run.waitForLog(/Navigation completed: success=1/);
    const page = await run.browser.page();
    await page.evaluate(`import('./vistel_receiver.mjs').then(({ VistelReceiver }) => {
        window.receiver = new VistelReceiver();
        return receiver.connect().then(() => receiver.setQuality('1080p'));
    })`);
    const frameFile = new FrameFile(run.out);
    for (const [index, frame] of DecodedFrames.entries()) {
        const what = JSON.stringify(frame);
        const seen = await page.evaluate(`(${postDecodedFrame})(receiver, ${what})`);
        assert.deepEqual(seen, [...frame.coded, ...frame.visible.slice(0, 2)], what);
        await until(FrameLimitMs, what, () => frameFile.header().sequence === 2 * (index + 1));
        const { picture, width, height } = await frameFile.newestFrame();
        assert.deepEqual([width, height], [1920, 1080]);
        const wrong = picture.subarray(0, width * height).findIndex((luma, at) =>
            Math.abs(luma - ((at % width + 3 * Math.floor(at / width)) % 199 + 20)) > (frame.tolerance ?? 0));
        assert.equal(wrong, -1, `${what}: Y at ${wrong % width}, ${Math.floor(wrong / width)} is ${picture[wrong]}`);
    }
    assert.equal(await run.closeWindow(), 0);
});
