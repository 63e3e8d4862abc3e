// The built-in page: the browser's half of the way of a frame, and nothing for the camera.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { join } from 'node:path';
import { test } from 'node:test';

import { run as runProgram, until } from '../processes.mjs';
import { startReceiver } from '../receiver_run.mjs';
import { FrameFile } from './frame_file.mjs';
import { assertInOrder, logTexts } from './receiver_texts.mjs';

const PageLimitMs = 60000;
const FramesToHear = 6;

const Amber = 'rgb(240, 180, 41)';
const Green = 'rgb(64, 209, 125)';
const PlaneCounts = { NV12: 2, I420: 3, I420A: 4, RGBA: 1, RGBX: 1, BGRA: 1, BGRX: 1 };
const FrameForm = /^frame:([01]):(\w+):\d+:\d+:0:(\d+,\d+(?:;\d+,\d+)*)$/;

// Notes what the card has shown, each state once, as [color of the dot, title, detail].
const WatchCard = `
    const cardStates = [];
    new MutationObserver(() => {
        const dot = document.querySelector('.dot');
        const [title, detail] = ['title', 'detail'].map((id) => document.getElementById(id));
        if (!dot || !title || !detail) {
            return;
        }
        const state = [getComputedStyle(dot).backgroundColor, title.textContent, detail.textContent];
        if (String(state) !== String(cardStates.at(-1))) {
            cardStates.push(state);
        }
    }).observe(document, { subtree: true, childList: true, attributes: true, characterData: true });`;

const Starting = [Amber, 'Starting receiver\u2026', 'Preparing the browser video pipeline.'];
const Connected = [
    Green, 'WebRTC video connected', 'Decoded WebRTC frames are entering Vistel Virtual Camera.',
];

async function startEmbedded(t, options) {
    const texts = [];
    const run = await startReceiver({ args: ['--embedded'], ...options });
    t.after(() => run.stop());
    run.browser.events.on('message', ({ text }) => texts.push(text));
    await run.waitForLog(/Navigation completed: success=1/); // Before it the page is another document.
    return { run, page: await run.browser.page(), texts };
}

async function waitForTitle(page, title) {
    await until(PageLimitMs, `card with the title "${title}"`, async () =>
        await page.evaluate('document.getElementById("title")?.textContent') === title);
}

// Whether a picture file has a spot of the color; the page's picture is blurred.
async function hasColor(file, raw, color) {
    await runProgram('ffmpeg', [
        '-loglevel', 'error', '-y', '-i', file, '-pix_fmt', 'rgb24', '-f', 'rawvideo', raw,
    ]);
    const wanted = color.match(/\d+/g).map(Number);
    const bytes = await readFile(raw);
    for (let i = 0; i < bytes.length; i += 3) {
        if (wanted.every((value, channel) => Math.abs(bytes[i + channel] - value) < 12)) {
            return true;
        }
    }
    return false;
}

test('the built-in page decodes its own video, and none of it is published', async (t) => {
    const { run, page, texts } = await startEmbedded(t, { pageScript: WatchCard, screencast: true });
    await waitForTitle(page, 'WebRTC video connected');
    assert.deepEqual(await page.evaluate('cardStates'), [Starting, Connected]);

    const frames = () => texts.filter((text) => text.startsWith('frame:'));
    await until(PageLimitMs, 'frames of the page', () => frames().length >= FramesToHear);
    for (const [index, text] of frames().entries()) {
        const [, slot, format, planes] = FrameForm.exec(text) ?? assert.fail(`no short frame message: ${text}`);
        assert.equal(Number(slot), index % 2, text);
        assert.equal(planes.split(';').length, PlaneCounts[format], text);
    }

    const picture = join(run.out, 'window.png');
    await until(PageLimitMs, 'green card in the window', async () =>
        await run.windowPicture(picture) && hasColor(picture, join(run.out, 'window.rgb'), Green));

    const rejected = 'First browser frame published (HRESULT 0x80070057)';
    await run.waitForLog(rejected);
    assert.equal(new FrameFile(run.out).header().sequence, 0);
    assert.deepEqual(Object.keys(await run.browser.callbackResults()), [String(0x80070057)]);
    assert.equal(await run.closeWindow(), 0);
    const log = await logTexts(run);
    assertInOrder(log, [
        'WebView2 controller callback',
        'Receiver page navigation requested',
        'Web message: ready',
        'Shared frame buffers posted to script',
        'System diagnostics posted to script',
        `First frame descriptor: ${frames()[0]}`,
        rejected,
    ]);
    for (const text of ['Receiver URL: ', 'Web message: error:']) {
        assert.ok(!log.some((line) => line.startsWith(text)), text);
    }
    for (const text of ['First frame descriptor: ', 'First browser frame published']) {
        assert.equal(log.filter((line) => line.startsWith(text)).length, 1, text);
    }
});

test('a browser without a track processor is reported as an error', async (t) => {
    const { run, page, texts } = await startEmbedded(t, {
        pageScript: `delete window.MediaStreamTrackProcessor; ${WatchCard}`,
    });
    const reason = 'MediaStreamTrackProcessor is unavailable';
    await waitForTitle(page, 'Receiver error');
    const states = await page.evaluate('cardStates');
    assert.deepEqual(states[0], Starting);
    assert.deepEqual(states.at(-1), [Green, 'Receiver error', reason]);
    await run.waitForLog(`Web message: error:${reason}`);
    assert.deepEqual(texts, ['ready', `error:${reason}`]);
    assert.equal(await run.closeWindow(), 0);
    assert.ok(!(await logTexts(run)).some((text) => text.startsWith('First ')));
});
