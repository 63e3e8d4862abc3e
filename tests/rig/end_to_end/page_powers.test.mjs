// What a page can do besides posting frames: play, ask for a camera, open windows, be loaded again, lead elsewhere.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { readdir } from 'node:fs/promises';
import { test } from 'node:test';

import { PlaySound } from '../browser/silent_sound.mjs';
import { within } from '../processes.mjs';
import { logTexts } from './receiver_texts.mjs';
import { goodMessage, noisePicture, Ok, serveSlotPage, startOnSlotPage } from './slot_page_run.mjs';

const EventLimitMs = 60000;

test('a page may play but not film', async (t) => {
    const { run, page } = await startOnSlotPage(t);
    const asked = [];
    run.browser.events.on('permission', ({ kind }) => asked.push(kind));
    assert.equal(await page.evaluate(PlaySound), 'plays');
    for (const wish of ['video', 'audio']) {
        assert.equal(await page.evaluate(
            `navigator.mediaDevices.getUserMedia({ ${wish}: true }).then(() => 'allowed', (error) => error.name)`),
                     'NotAllowedError');
    }
    assert.equal(await page.evaluate('Notification.requestPermission()'), 'default');
    assert.deepEqual(asked, [9, 2, 1, 4]);
    assert.equal(await run.closeWindow(), 0);
});

test('a page that opens a window stays where it is', async (t) => {
    const slotPage = await startOnSlotPage(t, { extraChromiumFlags: ['--disable-popup-blocking'] });
    const { run, page } = slotPage;
    await slotPage.connect();
    const opened = once(run.browser.events, 'newwindow');
    await page.evaluate('void window.open("about:blank")');
    await within(EventLimitMs, 'new window', opened);
    assert.deepEqual(await slotPage.post(goodMessage()), { [Ok]: 1 });
    assert.equal(await run.closeWindow(), 0);
    assert.equal((await logTexts(run)).filter((text) => text.startsWith('Navigation completed: ')).length, 1);
});

test('a page that is loaded again gets new slots, and so does the page of another address', async (t) => {
    const slotPage = await startOnSlotPage(t);
    const { run, page, frameFile } = slotPage;
    const leave = [`location.href = '${await serveSlotPage(t)}'`, 'location.reload()', 'location.reload()'];
    let seed = 0;
    for (const [round, script] of leave.entries()) {
        assert.deepEqual(await slotPage.connect(), [8294400, 8294400]);
        assert.equal((await readdir(run.browser.shmFolder)).length, 2);
        for (const slot of [0, 1]) {
            await slotPage.fill(slot, ++seed);
            assert.deepEqual(await slotPage.post(goodMessage(slot)), { [Ok]: 1 });
            const { sequence, picture } = await frameFile.newestFrame();
            assert.equal(sequence, 2 * seed);
            assert.ok(picture.equals(noisePicture(seed, [1280, 720])), `round ${round}, slot ${slot}`);
        }
        await slotPage.navigated(() => page.evaluate(`void (${script})`));
        await slotPage.post();
    }
    assert.equal(await run.closeWindow(), 0);
    const texts = await logTexts(run);
    for (const [start, times] of [
        ['Navigation completed: success=1', 4], ['Web message: ready', 3], ['System diagnostics posted to script', 3],
        ['First frame descriptor: ', 1], ['First browser frame published', 1],
    ]) {
        assert.equal(texts.filter((text) => text.startsWith(start)).length, times, start);
    }
});
