// Failures before a page is shown, as the user sees them: a real message box, and a program that goes on or ends. What
// each failing step logs and shows is tested with the shell tests, in tests/app and tests/browser.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { startReceiver } from '../receiver_run.mjs';
import { logTexts } from './receiver_texts.mjs';

const Started = ['Vistel receiver log', 'Receiver starting', 'Virtual camera usage monitor initialized'];

// Starts the receiver, reads its error box and closes that; the run.
async function startWithError(t, options, expectedText) {
    const run = await startReceiver({ args: ['--url=http://page.invalid/'], ...options });
    t.after(() => run.stop());
    const { caption, text } = await run.readBox();
    assert.deepEqual({ caption, text }, { caption: 'Vistel', text: expectedText });
    await run.dismissBox();
    return run;
}

test('without a WebView2 runtime an error box is shown and the window stays until it is closed', async (t) => {
    const run = await startWithError(t, { runtime: false },
                                     'WebView2 Runtime is unavailable.\n\nHRESULT: 0x80070002');
    assert.equal((await run.mainWindow()).text, 'Vistel');
    assert.equal(await run.closeWindow(), 0);
    assert.deepEqual(await logTexts(run), [
        ...Started, 'WebView2 environment request accepted', 'WebView2 environment callback (HRESULT 0x80070002)',
        'WebView2 Runtime is unavailable. (HRESULT 0x80070002)',
    ]);
});

test('without a folder for local data an error box is shown and the program ends with 1', async (t) => {
    const run = await startWithError(t, { environment: { LOCALAPPDATA: null } },
                                     'LOCALAPPDATA is unavailable.\n\nHRESULT: 0x800700CB');
    assert.equal(await run.waitForExit(), 1);
    assert.deepEqual(await logTexts(run), [...Started, 'LOCALAPPDATA is unavailable. (HRESULT 0x800700CB)']);
});
