// Snapshots: the picture that the camera has, as a JPEG in the user's folder.
import assert from 'node:assert/strict';
import * as fs from 'node:fs/promises';
import { join } from 'node:path';
import { test } from 'node:test';

import { captureFile, captureNames, decodeJpeg, similarity } from './capture_files.mjs';
import { mediaResult } from './page_messages.mjs';
import { logTexts } from './receiver_texts.mjs';
import { frameMessage, goodMessage, InvalidMediaType, Ok, startOnSlotPage } from './slot_page_run.mjs';

const InvalidArgument = 0x80070057;
const NoDirectory = 0x8007010b;
const NotAvailable = 0xc00d36d6;
const LeastSimilarity = 38; // dB

const result = (path, error = 0) => [mediaResult('snapshot', path, error)];

// Red, green and blue of an NV12 picture, in ITU-R BT.601 with limited range.
function colors({ picture, width, height }) {
    const pixels = Buffer.alloc(width * height * 3);
    for (let y = 0; y < height; ++y) {
        for (let x = 0; x < width; ++x) {
            const pair = width * height + (y >> 1) * width + (x & ~1);
            const luma = 298 * (picture[y * width + x] - 16) + 128;
            const [u, v] = [picture[pair] - 128, picture[pair + 1] - 128];
            [409 * v, -100 * u - 208 * v, 516 * u].forEach((color, channel) => {
                const value = Math.min(Math.max((luma + color) >> 8, 0), 255);
                pixels[(y * width + x) * 3 + channel] = value;
            });
        }
    }
    return pixels;
}

// Takes a snapshot of that size; its file and its picture.
async function takeSnapshot(slotPage, width, height) {
    const answers = await slotPage.mediaCommand('media:snapshot');
    assert.deepEqual(answers, result(answers[0].path));
    const file = captureFile(slotPage.run, 'Pictures', answers[0].path);
    const snapshot = await decodeJpeg(file);
    assert.deepEqual([snapshot.width, snapshot.height], [width, height]);
    return { file, pixels: snapshot.pixels };
}

test('a snapshot shows what the camera shows', async (t) => {
    const slotPage = await startOnSlotPage(t);
    await slotPage.connect();
    assert.deepEqual(await slotPage.mediaCommand('media:snapshot'), result('', NotAvailable));
    assert.deepEqual(await captureNames(slotPage.run, 'Pictures'), []);

    const names = [];
    for (const [quality, width, height] of [['720p', 1280, 720], ['1080p', 1920, 1080]]) {
        await slotPage.post(`quality:${quality}`);
        // A picture of the same size, and one upright on black bars.
        for (const message of [goodMessage(0, width, height), frameMessage({
            format: 'NV12', codedWidth: 640, codedHeight: 480, rotation: 90, displayWidth: 480, displayHeight: 640,
            planes: [[0, width], [width * height, width]],
        })]) {
            await slotPage.paint(0, width, height, names.length);
            assert.deepEqual(await slotPage.post(message), { [Ok]: 1 });
            const { file, pixels } = await takeSnapshot(slotPage, width, height);
            names.push(file);
            const found = similarity(pixels, colors(await slotPage.frameFile.newestFrame()));
            assert.ok(found > LeastSimilarity, `${message} at ${quality}: ${found} dB`);
        }
    }
    assert.equal(new Set(names).size, 4);
    assert.equal((await captureNames(slotPage.run, 'Pictures')).length, 4);
    assert.equal(await slotPage.run.closeWindow(), 0);
    assert.deepEqual((await logTexts(slotPage.run)).filter((text) => text.startsWith('Snapshot')), [
        'Snapshot requested (HRESULT 0xC00D36D6)', ...Array(4).fill('Snapshot requested'),
    ]);
});

test('a snapshot is made of what the last frame has left', async (t) => {
    const slotPage = await startOnSlotPage(t);
    await slotPage.connect();
    // A larger frame whose beginning is a smaller picture.
    await slotPage.post('quality:1080p');
    await slotPage.paint(0, 1280, 720, 1);
    assert.deepEqual(await slotPage.post(goodMessage(0, 1920, 1080), 'quality:720p'), { [Ok]: 2 });
    const { picture } = await slotPage.frameFile.newestFrame();
    assert.equal(picture.length, 1920 * 1080 * 3 / 2);
    const smaller = await takeSnapshot(slotPage, 1280, 720);
    const found = similarity(smaller.pixels, colors({ picture, width: 1280, height: 720 }));
    assert.ok(found > LeastSimilarity, `${found} dB`);

    // A frame that cannot be converted leaves black, which is not published.
    const { sequence } = slotPage.frameFile.header();
    assert.deepEqual(await slotPage.post(goodMessage().replace('NV12', 'YUY2')), { [InvalidMediaType]: 1 });
    assert.equal(slotPage.frameFile.header().sequence, sequence);
    const black = await takeSnapshot(slotPage, 1280, 720);
    assert.ok(black.pixels.every((value) => value === 0));
    assert.equal(await slotPage.run.closeWindow(), 0);
});

test('a snapshot that cannot be taken is reported', async (t) => {
    const slotPage = await startOnSlotPage(t);
    await slotPage.connect();
    await slotPage.post(goodMessage());
    const pictures = join(slotPage.run.out, 'Pictures');
    await fs.writeFile(join(pictures, 'Vistel'), 'a file');
    assert.deepEqual(await slotPage.mediaCommand('media:snapshot'), result('', NoDirectory));
    await fs.rm(pictures, { recursive: true });
    await fs.writeFile(pictures, 'a file');
    assert.deepEqual(await slotPage.mediaCommand('media:snapshot'), result('', NoDirectory));
    await fs.rm(pictures);
    await fs.mkdir(pictures);

    // The last frame is smaller than the new size needs, until there is another one.
    await slotPage.post('quality:1080p');
    const answers = await slotPage.mediaCommand('media:snapshot');
    assert.deepEqual(answers, result(answers[0].path, InvalidArgument));
    captureFile(slotPage.run, 'Pictures', answers[0].path);
    assert.deepEqual(await captureNames(slotPage.run, 'Pictures'), []);
    await slotPage.post(goodMessage());
    await takeSnapshot(slotPage, 1920, 1080);
    assert.equal((await captureNames(slotPage.run, 'Pictures')).length, 1);
    assert.equal(await slotPage.run.closeWindow(), 0);
});
