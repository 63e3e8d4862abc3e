// A runtime in which something fails but the page is there: what goes on without it, and what does not.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { test } from 'node:test';

import { assertInOrder, logTexts } from './receiver_texts.mjs';
import { goodMessage, InvalidArgument, Ok, startOnSlotPage } from './slot_page_run.mjs';

const Denied = '80070005';
const NoInterface = '80004002';

test('the page is shown although no setting can be changed', async (t) => {
    const faults = 'put_AreDefaultContextMenusEnabled,put_AreDevToolsEnabled,put_IsStatusBarEnabled';
    const slotPage = await startOnSlotPage(t, { faults });
    await slotPage.connect();
    assert.deepEqual(await slotPage.post(goodMessage()), { [Ok]: 1 });
    assert.equal(await slotPage.run.closeWindow(), 0);
});

test('what cannot be read of a navigation or a message is left out', async (t) => {
    const slotPage = await startOnSlotPage(t, {
        faults: `get_IsSuccess,get_WebErrorStatus,TryGetWebMessageAsString:0=${Denied}`,
    });
    assert.deepEqual(await slotPage.post('lost', 'kept'), { [Denied]: 1, [Ok]: 1 });
    assert.equal(await slotPage.run.closeWindow(), 0);
    const texts = await logTexts(slotPage.run);
    assertInOrder(texts, [/^Navigation completed: success=0, status=0, source=http:/, 'Web message: kept']);
    assert.ok(!texts.includes('Web message: lost'));
});

// What a "ready" is answered with, what the log says of it, and how frames in slot 0 and slot 1 fare after it.
async function checkReady(slotPage, code, frames) {
    const { run } = slotPage;
    const from = (await logTexts(run)).length;
    assert.deepEqual(await slotPage.post('ready'), { [code]: 1 });
    const texts = (await logTexts(run)).slice(from);
    assert.equal(texts[0], 'Web message: ready');
    assert.equal(texts[1], `Shared frame buffers posted to script${code === Ok ? '' : ` (HRESULT 0x${code})`}`);
    assert.equal(texts.some((text) => text.startsWith('System diagnostics posted to script')), code === Ok);
    for (const [slot, result] of frames.entries()) {
        assert.deepEqual(await slotPage.post(goodMessage(slot)), { [result]: 1 }, `slot ${slot}`);
    }
}

for (const missing of ['ICoreWebView2Environment12', 'ICoreWebView2_17']) {
    test(`a runtime without ${missing} gets no slots`, async (t) => {
        const slotPage = await startOnSlotPage(t, { faults: missing });
        await checkReady(slotPage, NoInterface, [InvalidArgument, InvalidArgument]);
        assert.ok(!slotPage.frameFile.exists);
        assert.equal(await slotPage.run.closeWindow(), 0);
    });
}

test('slots that cannot be made are made when the page asks again', async (t) => {
    // The first time the first slot fails, the second time the second one.
    const slotPage = await startOnSlotPage(t, {
        faults: `CreateSharedBuffer:0=${Denied},CreateSharedBuffer:2=${Denied}`,
    });
    await checkReady(slotPage, Denied, [InvalidArgument, InvalidArgument]);
    await checkReady(slotPage, Denied, [Ok, InvalidArgument]);
    await checkReady(slotPage, Ok, [Ok, Ok]);
    assert.equal(slotPage.frameFile.header().sequence, 6);
    assert.equal(await slotPage.run.closeWindow(), 0);
});

test('the program lives on when the browser is killed', async (t) => {
    const slotPage = await startOnSlotPage(t);
    const { run } = slotPage;
    await slotPage.connect();
    assert.deepEqual(await slotPage.post(goodMessage()), { [Ok]: 1 });
    const closed = once(run.browser.events, 'closed');
    run.browser.killBrowser();
    await closed; // The program has been notified.
    await run.systemCommand('minimize');
    await run.systemCommand('restore');
    assert.equal(slotPage.frameFile.header().sequence, 2);
    assert.equal(await run.closeWindow(), 0);
});
