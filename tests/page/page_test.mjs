// Tests of pages in a real browser: one headless Chromium and a server for this repository's files per test file.
import assert from 'node:assert/strict';
import { EventEmitter } from 'node:events';
import { mkdtempSync, readFileSync } from 'node:fs';
import { rm } from 'node:fs/promises';
import { join, resolve } from 'node:path';
import { after, before, test } from 'node:test';
import { pathToFileURL } from 'node:url';

import { Chromium } from '../rig/browser/chromium.mjs';
import { SourceFolder } from '../rig/prefix.mjs';
import { run, until, within } from '../rig/processes.mjs';
import { serveFolder } from '../rig/static_server.mjs';
import { temporaryRoot } from '../rig/temporary_root.mjs';

const LimitMs = 120000;
const WindowSize = [1000, 800];

const readScript = (name) => readFileSync(new URL(name, import.meta.url), 'utf8');
export const FakeHost = readScript('fake_host.js');
export const PageProbe = readScript('page_probe.js');

let server;
let folder;
let chromium;
let session;
let target; // the page's tab
const loads = new EventEmitter(); // "load" (id of the document's loader)

before(async () => {
    server = await serveFolder(SourceFolder);
    folder = mkdtempSync(join(temporaryRoot(), 'vistel-page-'));
    chromium = await Chromium.start({ profile: join(folder, 'profile') });
    target = (await chromium.send('Target.createTarget', { url: 'about:blank' })).targetId;
    session = (await chromium.send('Target.attachToTarget', { targetId: target, flatten: true })).sessionId;
    chromium.on('event', (method, { frameId, loaderId, name }) => {
        if (method === 'Page.lifecycleEvent' && name === 'load' && frameId === target) {
            loads.emit('load', loaderId);
        }
    });
    await send('Page.enable');
    await send('Page.setLifecycleEventsEnabled', { enabled: true });
});

after(async () => {
    await chromium?.stop();
    await server?.stop();
    if (folder) {
        await rm(folder, { recursive: true });
    }
});

function send(method, params) {
    return within(LimitMs, method, chromium.send(method, params, session));
}

// A test whose body is given a page. The scripts run in each of its documents before the document's own.
export function pageTest(name, scripts, body) {
    test(name, async () => {
        const page = new Page();
        try {
            await page.resize(...WindowSize);
            for (const script of scripts) {
                await page.inject(script);
            }
            await body(page);
            assert.deepEqual(await page.run(() => window.host?.errors ?? []), []);
        } finally {
            await page.close();
        }
    });
}

class Page {
    #scripts = [];
    #hidden = false;

    get server() {
        return `http://127.0.0.1:${server.port}`;
    }

    async inject(source) {
        const { identifier } = await send('Page.addScriptToEvaluateOnNewDocument', { source });
        this.#scripts.push(identifier);
    }

    // Shows a file of the repository: from a server,
    open(path) {
        return this.#navigate(`${this.server}/${path}`);
    }

    // from the disk,
    openFile(path, query = '') {
        return this.#navigate(pathToFileURL(resolve(SourceFolder, path)).href + query);
    }

    // the sample page in one file, which is made here,
    async openTestPicture(query) {
        const file = join(folder, 'test-picture.html');
        await run(process.execPath, [join(SourceFolder, 'packaging/single_page.mjs'), 'esbuild', file]);
        await this.openFile(file, query);
    }

    // or as a host does that hands the browser a text instead of an address.
    async openString(path) {
        await this.#navigate('about:blank');
        await this.run((html) => {
            document.open();
            document.write(html);
            document.close();
        }, readFileSync(join(SourceFolder, path), 'utf8'));
    }

    reload() {
        return this.#load(() => send('Page.reload'));
    }

    // The size of the document, which may be smaller than any window.
    async resize(width, height) {
        await send('Emulation.setDeviceMetricsOverride', { width, height, deviceScaleFactor: 1, mobile: false });
    }

    // Hides the page as a person does who minimizes its window, until the page is closed.
    async hide() {
        this.#hidden = true;
        await this.#setWindowState('minimized');
        await this.waitFor(() => document.visibilityState === 'hidden');
    }

    // Calls a function in the page, with arguments that JSON can express; what it returns or its promise resolves to.
    async run(pageFunction, ...values) {
        const { result, exceptionDetails } = await send('Runtime.evaluate', {
            expression: `(${pageFunction})(...${JSON.stringify(values)})`, awaitPromise: true, returnByValue: true,
        });
        if (exceptionDetails) {
            throw new Error(exceptionDetails.exception?.description ?? exceptionDetails.text);
        }
        return result.value;
    }

    // The types of the listeners that are registered with an object, which the expression gives.
    async listenerTypes(expression) {
        const { result } = await send('Runtime.evaluate', { expression });
        const { listeners } = await send('DOMDebugger.getEventListeners', { objectId: result.objectId });
        return listeners.map(({ type }) => type).sort();
    }

    // Calls a function in the page until it returns something true.
    waitFor(pageFunction, ...values) {
        return until(LimitMs, `${pageFunction} of ${JSON.stringify(values)}`, () => this.run(pageFunction, ...values));
    }

    // Waits until the page has posted a text.
    waitForText(text) {
        return this.waitFor((wanted) => host.posted.includes(wanted), text);
    }

    // Presses and releases the mouse button over an element that can be seen and is enabled.
    async click(selector) {
        const at = await this.run((wanted) => {
            const element = document.querySelector(wanted);
            const { left, top, width, height } = element.getBoundingClientRect();
            const center = { x: left + width / 2, y: top + height / 2 };
            return element.contains(document.elementFromPoint(center.x, center.y)) && !element.disabled && center;
        }, selector);
        assert.ok(at, `${selector} cannot be clicked`);
        for (const type of ['mousePressed', 'mouseReleased']) {
            await send('Input.dispatchMouseEvent', { type, ...at, button: 'left', clickCount: 1 });
        }
    }

    postJson(message) {
        return this.run((json) => host.postJson(json), message);
    }

    postMediaResult(action, success, path, error) {
        return this.postJson({ type: 'media-result', action, success, path, error });
    }

    giveSlots(size = 8294400) {
        return this.run((bytes) => {
            host.postBuffer(0, bytes);
            host.postBuffer(1, bytes);
        }, size);
    }

    async close() {
        for (const identifier of this.#scripts) {
            await send('Page.removeScriptToEvaluateOnNewDocument', { identifier });
        }
        if (this.#hidden) {
            await this.#setWindowState('normal');
        }
        await this.open('tests/page/blank.html'); // of the tests' own server, whose pages share a process
    }

    async #setWindowState(windowState) {
        const { windowId } = await chromium.send('Browser.getWindowForTarget', { targetId: target });
        await chromium.send('Browser.setWindowBounds', { windowId, bounds: { windowState } });
    }

    #navigate(url) {
        return this.#load(async () => {
            const { errorText, loaderId } = await send('Page.navigate', { url });
            assert.equal(errorText, undefined);
            return loaderId;
        });
    }

    // Waits until the document that `start` has asked for is loaded: the one with this loader id, or any without one.
    async #load(start) {
        const loaded = [];
        const onLoad = (loaderId) => loaded.push(loaderId);
        loads.on('load', onLoad);
        try {
            const wanted = await start();
            await until(LimitMs, 'end of loading', () => (typeof wanted === 'string' ? loaded.includes(wanted)
                                                                                    : loaded.length > 0));
        } finally {
            loads.off('load', onLoad);
        }
    }
}
