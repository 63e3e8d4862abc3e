// From the page to a camera application: what a page posts is what the sample camera delivers in a capture graph, byte
// for byte, in each format of both sizes. VISTEL_EXACT_FRAMES is the number of frames of each size.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { join } from 'node:path';
import { createInterface } from 'node:readline';
import { test } from 'node:test';

import { end, until, within } from '../processes.mjs';
import { BuildFolder } from '../receiver_run.mjs';
import { fillNoise } from './pages/noise.mjs';
import { goodMessage, Ok, startOnSlotPage } from './slot_page_run.mjs';

const LimitMs = 60000;
const RepeatMs = 15000; // On a busy machine a frame may be stale before the camera reads it; it is posted again.
const Frames = Number(process.env.VISTEL_EXACT_FRAMES ?? 10);
const SlotBytes = 8294400;
const Sizes = [['720p', 1280, 720], ['1080p', 1920, 1080]];

// A picture in NV12 as an application receives it.
const Conversions = {
    NV12: (nv12) => nv12,
    YUY2: (nv12, width, height) => {
        const picture = Buffer.alloc(2 * width * height);
        for (let y = 0; y < height; ++y) {
            const pairs = width * height + (y >> 1) * width;
            for (let x = 0; x < width; ++x) {
                picture[2 * (y * width + x)] = nv12[y * width + x];
                picture[2 * (y * width + x) + 1] = nv12[pairs + x];
            }
        }
        return picture;
    },
    I420: (nv12, width, height) => {
        const picture = Buffer.from(nv12);
        const pixels = width * height;
        for (let i = 0; i < pixels / 4; ++i) {
            picture[pixels + i] = nv12[pixels + 2 * i];
            picture[pixels + pixels / 4 + i] = nv12[pixels + 2 * i + 1];
        }
        return picture;
    },
};

// The application on a size; { next, finish }. next(format, repeat) resolves to the format's next frame; `repeat` is
// called when none comes for a time.
async function openCamera(run, t, height) {
    const file = (name) => join(BuildFolder, name);
    const program = await run.prefix.addFile(file('tests/camera_application.exe'), 'C:\\rig\\camera_application.exe');
    const camera = await run.prefix.addFile(file('sample_camera/sample_camera.dll'), 'C:\\rig\\sample_camera.dll');
    const application = run.prefix.start(program, [camera, String(height), 'C:\\rig'], run.display.name);
    t.after(() => end(application));
    const lines = [];
    createInterface({ input: application.stdout }).on('line', (line) => lines.push(line));
    // A live frame of the size before is delivered first, until it is stale.
    for (const format of Object.keys(Conversions)) {
        await until(LimitMs, `card in ${format}`, async () => lines.includes(`${format} card`));
    }
    lines.length = 0;
    return {
        async next(format, repeat) {
            let postedAt = performance.now();
            await until(LimitMs, `frame in ${format}`, async () => {
                const at = lines.indexOf(`${format} frame`);
                if (at < 0 && performance.now() - postedAt > RepeatMs) {
                    await repeat();
                    postedAt = performance.now();
                }
                return at >= 0 && lines.splice(at, 1);
            });
            return readFile(run.prefix.unixPath(`C:\\rig\\${format}`));
        },
        // Resolves to the frames that were not asked for.
        async finish() {
            application.stdin.end();
            assert.equal(await within(LimitMs, 'end of the camera application', application.exited), 0);
            return lines.filter((line) => line.endsWith(' frame'));
        },
    };
}

test(`${Frames} frames of each format and size arrive in an application as the page posted them`, async (t) => {
    const slotPage = await startOnSlotPage(t);
    await slotPage.connect();
    const words = new Uint32Array(SlotBytes / 4);
    let seed = 0;
    for (const [quality, width, height] of Sizes) {
        await slotPage.post(`quality:${quality}`);
        const camera = await openCamera(slotPage.run, t, height);
        let before = {};
        for (let number = 0; number < Frames; ++number) {
            await slotPage.fill(0, ++seed);
            fillNoise(words, seed);
            let posted = 0;
            const post = async () => {
                assert.deepEqual(await slotPage.post(goodMessage(0, width, height)), { [Ok]: 1 });
                ++posted;
            };
            await post();
            const nv12 = Buffer.from(words.buffer, 0, width * height * 3 / 2);
            const expected = {};
            for (const [format, convert] of Object.entries(Conversions)) {
                expected[format] = Buffer.from(convert(nv12, width, height));
                for (;;) {
                    const picture = await camera.next(format, post);
                    if (picture.equals(expected[format])) {
                        break;
                    }
                    // The frame before comes once more when it was posted twice.
                    const isRepeated = before.posted > 1 && picture.equals(before[format]);
                    assert.ok(isRepeated, `another picture in ${format} for frame ${number}`);
                }
            }
            before = { ...expected, posted };
        }
        const more = await camera.finish();
        assert.ok(more.length === 0 || before.posted > 1, `${more.length} frames more than were posted`);
    }
    assert.equal(await slotPage.run.closeWindow(), 0);
});
