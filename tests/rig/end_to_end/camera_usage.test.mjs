// A camera becomes used and idle: each change is logged and posted to the page once.
import assert from 'node:assert/strict';
import { join } from 'node:path';
import { test } from 'node:test';

import { SourceFolder } from '../prefix.mjs';
import { until } from '../processes.mjs';
import { startReceiver } from '../receiver_run.mjs';
import { serveFolder } from '../static_server.mjs';
import { UsageOff, UsageOn } from './page_messages.mjs';
import { logTexts } from './receiver_texts.mjs';
import { startOnSlotPage } from './slot_page_run.mjs';

const UsageLimitMs = 60000;
const SecondsInUse = 7; // longer than the receiver waits for a camera that has fallen silent

// The receiver's timer that looks for the camera.
const TimerMessage = 0x113;
const UsageTimer = 1;

const Initialized = 'Virtual camera usage monitor initialized';
const Started = 'Virtual camera consumer started requesting frames';
const Stopped = 'Virtual camera consumer stopped requesting frames';

async function usageTexts(run) {
    return (await logTexts(run)).filter((text) => text.startsWith('Virtual camera'));
}

test('the sample page shows a camera that comes and goes', async (t) => {
    const server = await serveFolder(join(SourceFolder, 'examples/page'));
    t.after(() => server.stop());
    const run = await startReceiver({ args: [`--url=http://127.0.0.1:${server.port}/index.html`] });
    t.after(() => run.stop());
    await run.waitForLog('Web message: ready');
    const page = await run.browser.page();
    const waitForUsage = (text) => until(UsageLimitMs, `page that shows "${text}"`, async () =>
        await page.evaluate('document.getElementById("usage").textContent') === text);

    await waitForUsage('Camera idle');
    assert.deepEqual(await usageTexts(run), [Initialized]);
    const camera = run.camera({ seconds: SecondsInUse });
    await waitForUsage('Camera in use');
    await camera.finish();
    await waitForUsage('Camera idle');
    assert.deepEqual(await usageTexts(run), [Initialized, Started, Stopped]);
    assert.equal(await run.closeWindow(), 0);
});

test('a page is notified of a camera in use when it is ready, and again after a reload', async (t) => {
    const slotPage = await startOnSlotPage(t);
    const { run } = slotPage;
    const typesReceived = async () => (await slotPage.takeReceived()).map((text) => JSON.parse(text).type);
    const usageReceived = async () => (await slotPage.takeReceived()).filter((text) => text.includes('usage'));
    const camera = run.camera();
    await run.waitForLog(Started, UsageLimitMs);
    await slotPage.post('not ready yet');
    assert.deepEqual(await typesReceived(), []);

    await slotPage.connect();
    assert.deepEqual(await usageReceived(), [UsageOn]);
    await slotPage.reload();
    await slotPage.connect();
    assert.deepEqual(await usageReceived(), [UsageOn]);

    await camera.finish();
    await run.waitForLog(Stopped, UsageLimitMs);
    await slotPage.post();
    assert.deepEqual(await usageReceived(), [UsageOff]);
    await slotPage.reload();
    await slotPage.connect();
    assert.deepEqual(await typesReceived(), ['diagnostics']);
    assert.deepEqual(await usageTexts(run), [Initialized, Started, Stopped]);
    assert.equal(await run.closeWindow(), 0);
});

test('a camera that only takes the newest frame does not count as one in use', async (t) => {
    const slotPage = await startOnSlotPage(t);
    const { run } = slotPage;
    await slotPage.connect();
    await run.camera({ seconds: 0 }).finish();
    // One more poll, right after the camera.
    await run.driver.ask('send', (await run.mainWindow()).window, TimerMessage, UsageTimer, 0);
    assert.deepEqual(await usageTexts(run), [Initialized]);
    assert.equal(await run.closeWindow(), 0);
});
