// Failures on the way from the start to the page of which nobody is told: no box, and the window stays until it is
// closed.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { startReceiver } from '../receiver_run.mjs';
import { logTexts } from './receiver_texts.mjs';

const Environment = [
    'Vistel receiver log', 'Receiver starting', 'Virtual camera usage monitor initialized',
    'WebView2 environment request accepted', 'WebView2 environment callback',
];
const Controller = [...Environment, 'WebView2 controller callback'];

// The step that fails, and the log, which ends there.
const failures = {
    'controller-call': Environment, get_CoreWebView2: Controller, add_WebMessageReceived: Controller,
    add_PermissionRequested: Controller, add_NavigationCompleted: Controller,
};

for (const [step, log] of Object.entries(failures)) {
    test(`the start ends where ${step} fails`, async (t) => {
        const run = await startReceiver({ args: ['--url=http://page.invalid/'], faults: step });
        t.after(() => run.stop());
        await run.waitForLog(log.at(-1));
        await run.mainWindow();
        assert.equal(await run.closeWindow(), 0);
        assert.deepEqual(await logTexts(run), log);
    });
}
