// From the page to a camera application: what a page posts is what the sample camera delivers in a capture graph, byte
// for byte, in each format of both sizes, also after the receiver or another application was killed.
// VISTEL_EXACT_FRAMES is the number of frames of each size.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { join } from 'node:path';
import { createInterface } from 'node:readline';
import { test } from 'node:test';

import { end, until, within } from '../processes.mjs';
import { BuildFolder } from '../receiver_run.mjs';
import { fillNoise } from './pages/noise.mjs';
import { goodMessage, Ok, serveSlotPage, SlotPage, startOnSlotPage } from './slot_page_run.mjs';

const LimitMs = 60000;
const RepeatMs = 15000; // On a busy machine a frame may be stale before the camera reads it; it is posted again.
const Frames = Number(process.env.VISTEL_EXACT_FRAMES ?? 10);
const Application = 'camera_application.exe';
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

// An application in a folder of its own, with the camera open on a size.
async function openCamera(run, t, height, folder) {
    const file = (name) => join(BuildFolder, name);
    const program = await run.prefix.addFile(file('tests/camera_application.exe'), `${folder}\\${Application}`);
    const camera = await run.prefix.addFile(file('sample_camera/sample_camera.dll'), `${folder}\\sample_camera.dll`);
    const application = run.prefix.start(program, [camera, String(height), folder], run.display.name);
    t.after(() => end(application));
    const lines = [];
    createInterface({ input: application.stdout }).on('line', (line) => lines.push(line));
    const opened = {
        // Resolves to the format's next frame. `repeat` is called when none comes for a time.
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
            return readFile(run.prefix.unixPath(`${folder}\\${format}`));
        },
        // Waits for a card in each format and forgets what came before.
        async card(beginning = 'card') {
            lines.length = 0;
            for (const format of Object.keys(Conversions)) {
                const wanted = (line) => line.startsWith(`${format} ${beginning}`);
                await until(LimitMs, `${beginning} in ${format}`, async () => lines.some(wanted));
            }
            lines.length = 0;
        },
        // Resolves to the frames that were not asked for.
        async finish() {
            application.stdin.end();
            assert.equal(await within(LimitMs, 'end of the camera application', application.exited), 0);
            return lines.filter((line) => line.endsWith(' frame'));
        },
        async kill() {
            const ids = await run.prefix.processIds(Application);
            assert.ok(ids.includes(application.pid), `${application.pid} is not the application: ${ids}`);
            process.kill(application.pid, 'SIGKILL');
            await application.exited;
            const left = ids.filter((id) => id !== application.pid);
            assert.deepEqual(await run.prefix.processIds(Application), left);
        },
    };
    await opened.card(); // A live frame of the size before is delivered first, until it is stale.
    return opened;
}

// Posts the noise of a seed until each camera has delivered it in each format. Resolves to its pictures by format, and
// `repeated`. `before` is what the call before has resolved to: its frame may come once more when one was posted twice.
async function expectDelivered(slotPage, cameras, [, width, height], seed, before = {}) {
    const words = new Uint32Array(SlotBytes / 4);
    await slotPage.fill(0, seed);
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
        for (const camera of cameras) {
            for (;;) {
                const picture = await camera.next(format, post);
                if (picture.equals(expected[format])) {
                    break;
                }
                const isRepeated = before.repeated && picture.equals(before[format]);
                assert.ok(isRepeated, `another picture in ${format} for the frame of seed ${seed}`);
            }
        }
    }
    return { ...expected, repeated: before.repeated || posted > 1 };
}

async function expectNoMore(camera, last) {
    const more = await camera.finish();
    assert.ok(more.length === 0 || last.repeated, `${more.length} frames more than were posted`);
}

test('what a page posts arrives in camera applications', async (t) => {
    const slotPage = await startOnSlotPage(t);
    const { run } = slotPage;
    await slotPage.connect();
    let seed = 0;

    await t.test(`${Frames} frames of each format and size are exact`, async (t) => {
        for (const size of Sizes) {
            const [quality, , height] = size;
            await slotPage.post(`quality:${quality}`);
            const camera = await openCamera(run, t, height, `C:\\rig\\${quality}`);
            let last = {};
            for (let number = 0; number < Frames; ++number) {
                last = await expectDelivered(slotPage, [camera], size, ++seed, last);
            }
            await expectNoMore(camera, last);
        }
    });

    await t.test('an application goes on when another one and then the receiver are killed', async (t) => {
        const [size] = Sizes;
        const [quality, , height] = size;
        await slotPage.post(`quality:${quality}`);
        const killed = await openCamera(run, t, height, 'C:\\rig\\killed');
        const camera = await openCamera(run, t, height, 'C:\\rig\\second');
        const last = await expectDelivered(slotPage, [killed, camera], size, ++seed);
        await killed.kill();
        await expectDelivered(slotPage, [camera], size, ++seed, last);

        const receiver = await run.linuxProcessId();
        await slotPage.page.evaluate(`slotPage.repeat(${JSON.stringify(goodMessage())})`);
        for (const format of Object.keys(Conversions)) {
            await camera.next(format, () => {});
        }
        process.kill(receiver, 'SIGKILL'); // while it writes frames
        await run.waitForExit();
        await camera.card('card stale');
        const address = await serveSlotPage(t);
        await run.startProgram(`--url=${address}`);
        await run.waitForLog(`source=${address}`);
        const next = new SlotPage(run, await run.browser.page());
        await next.connect();
        await expectNoMore(camera, await expectDelivered(next, [camera], size, ++seed));
        assert.equal(await run.closeWindow(), 0);
    });
});
