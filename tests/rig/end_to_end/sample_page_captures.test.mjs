// A snapshot and a recording of live video, taken by the sample page on its own.
import assert from 'node:assert/strict';
import { join } from 'node:path';
import { test } from 'node:test';

import { SourceFolder } from '../prefix.mjs';
import { until } from '../processes.mjs';
import { startReceiver } from '../receiver_run.mjs';
import { serveFolder } from '../static_server.mjs';
import { captureFile, decodeJpeg, decodeVideo, recordingFile } from './capture_files.mjs';
import { frameNumber, hasColorBars } from './test_card.mjs';

const CaptureLimitMs = 90000;

for (const [size, width, height, visibility] of [['1080p', 1920, 1080, 'visible'], ['720p', 1280, 720, 'hidden']]) {
    test(`the ${visibility} sample page takes a snapshot and records at ${size}`, async (t) => {
        const server = await serveFolder(join(SourceFolder, 'examples/page'));
        t.after(() => server.stop());
        const query = `size=${size}&snapshot=2&record=2:2`;
        const run = await startReceiver({ args: [`--url=http://127.0.0.1:${server.port}/index.html?${query}`] });
        t.after(() => run.stop());
        const framesBefore = {}; // a text of the page's
        let frames = 0;
        run.browser.events.on('message', ({ text }) => {
            if (text.startsWith('frame:')) {
                ++frames;
            } else {
                framesBefore[text] = frames;
            }
        });
        const page = await run.browser.page();
        if (visibility === 'hidden') {
            await run.systemCommand('minimize');
        }
        const text = (id) => page.evaluate(`document.getElementById('${id}')?.textContent ?? ''`);
        const waitForText = (id, wanted) => until(CaptureLimitMs, `${id}: ${wanted}`,
                                                  async () => wanted.exec(await text(id)));

        await run.waitForLog('Recording stopped', CaptureLimitMs);
        const [, framesShown, path] = await waitForText('recording-result', /(\d+) frames, (C:\\.*\.mp4)$/);
        assert.equal(await text('record'), 'Record');
        assert.equal(await page.evaluate('document.visibilityState'), visibility);
        const [snapshotPath] = await waitForText('snapshot-result', /^C:\\.*\.jpg$/);

        // All that the receiver took between the two texts was published.
        const published = (await run.browser.callbacks())
            .slice(framesBefore['media:record:start'], framesBefore['media:record:stop'])
            .filter(({ result }) => result === 0).length;
        const [recording] = run.encoder.recordings;
        assert.equal(recording.samples.length, published);
        assert.equal(Number(framesShown), published);
        const pictures = await decodeVideo(await recordingFile(run, path, recording, width, height), width, height);
        assert.equal(pictures.length, published);
        // Blurred at first. The page fills its two slots in turn and does not wait for the receiver, so that of two
        // frames in a row the older may come last; within a slot no frame does.
        const numbers = pictures.map((picture) => ({ picture, width, height }))
            .map((picture) => (hasColorBars(picture) ? frameNumber(picture) : undefined));
        const seen = numbers.filter((number) => number !== undefined);
        assert.ok(seen.length > pictures.length / 2, `${seen.length} of ${pictures.length} show the card`);
        assert.ok(seen.at(-1) > seen[0]);
        numbers.forEach((number, index) => {
            assert.ok(!(number < numbers[index - 2]), `frame ${index}: ${number} after ${numbers[index - 2]}`);
        });

        const snapshot = await decodeJpeg(captureFile(run, 'Pictures', snapshotPath));
        assert.deepEqual([snapshot.width, snapshot.height], [width, height]);
        // The red bar.
        const at = (Math.round(height * 512 / 720) * width + Math.round(width * 752 / 1280)) * 3;
        const [red, green, blue] = snapshot.pixels.subarray(at, at + 3);
        assert.ok(red > 150 && green < 110 && blue < 110, `the red bar is ${red}, ${green}, ${blue}`);
        assert.equal(await run.closeWindow(), 0);
    });
}
