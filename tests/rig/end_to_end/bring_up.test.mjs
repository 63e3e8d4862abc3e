// Failures on the way from the start to the page of which the person is told: the box, the log, whether the window
// stays, and how the program ends.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { startReceiver } from '../receiver_run.mjs';
import { logTexts } from './receiver_texts.mjs';

const Address = 'http://page.invalid/';
const Denied = '80070005';

const Started = ['Vistel receiver log', 'Receiver starting', 'Virtual camera usage monitor initialized'];
const Accepted = [...Started, 'WebView2 environment request accepted'];
const Environment = [...Accepted, 'WebView2 environment callback'];
const Controller = [...Environment, 'WebView2 controller callback'];
const withCode = (text, code) => `${text} (HRESULT 0x${code})`;

// Without an exit code the program goes on until its window is closed.
const failures = {
    'no runtime is installed': {
        options: { runtime: false }, text: 'WebView2 Runtime is unavailable.', code: '80070002',
        log: [
            ...Accepted, withCode('WebView2 environment callback', '80070002'),
            withCode('WebView2 Runtime is unavailable.', '80070002'),
        ],
    },
    'the environment is refused at once': {
        options: { faults: `environment-call=${Denied}` }, text: 'Unable to start the WebView2 environment.',
        code: Denied, log: [...Started, withCode('Unable to start the WebView2 environment.', Denied)], exitCode: 1,
    },
    'the environment fails': {
        options: { faults: `environment-callback=${Denied}` }, text: 'WebView2 Runtime is unavailable.', code: Denied,
        log: [
            ...Accepted, withCode('WebView2 environment callback', Denied),
            withCode('WebView2 Runtime is unavailable.', Denied),
        ],
    },
    'the environment is none': {
        options: { faults: 'environment-null' }, text: 'WebView2 Runtime is unavailable.', code: '00000000',
        log: [...Environment, 'WebView2 Runtime is unavailable.'],
    },
    'the controller fails': {
        options: { faults: `controller-callback=${Denied}` }, text: 'Unable to create the Vistel browser controller.',
        code: Denied,
        log: [
            ...Environment, withCode('WebView2 controller callback', Denied),
            withCode('Unable to create the Vistel browser controller.', Denied),
        ],
    },
    'the controller is none': {
        options: { faults: 'controller-null' }, text: 'Unable to create the Vistel browser controller.',
        code: '00000000', log: [...Controller, 'Unable to create the Vistel browser controller.'],
    },
    'the page cannot be asked for': {
        options: { faults: `Navigate=${Denied}` }, text: 'Unable to load the receiver page.', code: Denied,
        log: [
            ...Controller, `Receiver URL: ${Address}?clientVersion=0.1.3`,
            withCode('Receiver page navigation requested', Denied),
            withCode('Unable to load the receiver page.', Denied),
        ],
    },
    'the built-in page cannot be asked for': {
        options: { args: ['--embedded'], faults: `NavigateToString=${Denied}` },
        text: 'Unable to load the receiver page.', code: Denied,
        log: [
            ...Controller, withCode('Receiver page navigation requested', Denied),
            withCode('Unable to load the receiver page.', Denied),
        ],
    },
    'there is no folder for local data': {
        options: { environment: { LOCALAPPDATA: null } }, text: 'LOCALAPPDATA is unavailable.', code: '800700CB',
        log: [...Started, withCode('LOCALAPPDATA is unavailable.', '800700CB')], exitCode: 1,
    },
    'the folder for local data is not there': {
        options: { environment: { LOCALAPPDATA: 'C:\\nowhere\\at all' } },
        text: 'Unable to create the WebView2 user-data folder.', code: '80070003',
        log: [...Started, withCode('Unable to create the WebView2 user-data folder.', '80070003')], exitCode: 1,
    },
};

for (const [name, { options, text, code, log, exitCode }] of Object.entries(failures)) {
    test(`a box tells that ${name}`, async (t) => {
        const run = await startReceiver({ args: [`--url=${Address}`], ...options });
        t.after(() => run.stop());
        const box = await run.readBox();
        assert.equal(box.caption, 'Vistel');
        assert.equal(box.text, `${text}\n\nHRESULT: 0x${code}`);
        await run.dismissBox();
        if (exitCode === undefined) {
            assert.equal((await run.mainWindow()).text, 'Vistel');
            assert.equal(await run.closeWindow(), 0);
        } else {
            assert.equal(await run.waitForExit(), exitCode);
        }
        assert.deepEqual(await logTexts(run), log);
    });
}
