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
import { filesOutsideSandbox, watchForLeftovers } from './run_traces.mjs';
import { frameNumber, hasColorBars } from './test_card.mjs';

const FrameLimitMs = 60000;
const FramesToSee = 60;

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
        if (fixed.width !== width || !hasColorBars(frame) || !(frameNumber(frame) >= atLeast)) {
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

    assert.deepEqual(await filesOutsideSandbox(run), []);
    await run.stop();
    assert.deepEqual(await leftovers(), []);
});
