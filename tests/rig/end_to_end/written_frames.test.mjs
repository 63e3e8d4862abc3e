// Frames that a page writes by hand, in every format and position, and what the camera finds of them: byte for byte.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { FrameFileBytes } from './frame_file.mjs';
import { fillNoise } from './pages/noise.mjs';
import { convertFrame } from './reference_converter.mjs';
import { frameMessage, Ok, startOnSlotPage } from './slot_page_run.mjs';

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
