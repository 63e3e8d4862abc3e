// The receiver with a page in it that a test writes frames on by hand.
import { once } from 'node:events';
import { fileURLToPath } from 'node:url';

import { within } from '../processes.mjs';
import { startReceiver } from '../receiver_run.mjs';
import { serveFolder } from '../static_server.mjs';
import { FrameFile } from './frame_file.mjs';
import { fillNoise } from './pages/noise.mjs';

export const Ok = '00000000';
export const InvalidArgument = '80070057';
export const InvalidMediaType = 'C00D36B4';

const AnswerLimitMs = 60000;

// The text of a frame message; `planes` is a list of pairs: byte offset and stride.
export function frameMessage({
    slot = 0, format, codedWidth, codedHeight, flipA = 0, rotation = 0, flipB = 0,
    displayWidth = codedWidth, displayHeight = codedHeight, planes,
}) {
    return [
        'frame', slot, format, codedWidth, codedHeight, flipA, rotation, flipB, displayWidth, displayHeight,
        planes.join(';'),
    ].join(':');
}

// A message that the receiver publishes, regardless of the slot's content.
export const goodMessage = (slot = 0, width = 1280, height = 720) => frameMessage({
    slot, format: 'NV12', codedWidth: width, codedHeight: height, planes: [[0, width], [width * height, width]],
});

// The picture that goodMessage() makes of a slot with the noise of a seed (SlotPage.fill).
export function noisePicture(seed, [width, height]) {
    const noise = new Uint32Array(width * height * 3 / 2 / 4);
    fillNoise(noise, seed);
    return Buffer.from(noise.buffer);
}

// The address of the page, served until the test ends.
export async function serveSlotPage(t) {
    const server = await serveFolder(fileURLToPath(new URL('pages', import.meta.url)));
    t.after(() => server.stop());
    return `http://127.0.0.1:${server.port}/slot_page.html`;
}

// Starts the receiver, until the test ends at most, and waits for the page. The options are those of startReceiver.
export async function startOnSlotPage(t, options = {}) {
    const address = await serveSlotPage(t);
    const run = await startReceiver({ ...options, args: [`--url=${address}`] });
    t.after(() => run.stop());
    // The log of a run before this one may still be there.
    await run.waitForLog(`source=${address}`);
    return new SlotPage(run, await run.browser.page());
}

let marks = 0;

export class SlotPage {
    // `page` is the browser's page.
    constructor(run, page) {
        this.run = run;
        this.page = page;
        this.frameFile = new FrameFile(run.out);
    }

    // Asks for the slots and waits for them; their sizes.
    async connect() {
        await this.post('ready');
        return this.page.evaluate('slotPage.slotSizes()');
    }

    // The host's messages that the page has received since the last time. What the host posted in answer to a message of
    // the page is there when post() has resolved.
    takeReceived() {
        return this.page.evaluate('slotPage.takeReceived()');
    }

    // Fills a slot with the noise of a seed.
    async fill(slot, seed) {
        await this.page.evaluate(`slotPage.fill(${slot}, ${seed})`);
    }

    // Puts a smooth NV12 picture into a slot.
    async paint(slot, width, height, step) {
        await this.page.evaluate(`slotPage.paint(${slot}, ${width}, ${height}, ${step})`);
    }

    // Posts messages and resolves to what the receiver has answered the browser: { HRESULT: how often }.
    post(...messages) {
        return this.postAll(JSON.stringify(messages));
    }

    // The same for an array that the page makes.
    async postAll(expression) {
        const { browser, exited } = this.run;
        const results = {};
        const count = (result, times) => {
            if (times > 0) {
                const code = Number(result).toString(16).toUpperCase().padStart(8, '0');
                results[code] = (results[code] ?? 0) + times;
            }
        };
        // After the messages, in the order of everything that the page posts.
        const mark = `mark ${++marks}`;
        let onHandled;
        const answered = new Promise((resolve) => {
            onHandled = ({ text, result }) => (text === mark ? resolve() : count(result, 1));
        });
        browser.events.on('handled', onHandled);
        try {
            const before = await browser.callbackResults();
            await this.page.evaluate(`slotPage.post(${expression}), chrome.webview.postMessage("${mark}")`);
            await within(AnswerLimitMs, `answer to ${expression.slice(0, 200)}`, Promise.race([
                answered,
                exited.then((code) => Promise.reject(new Error(`the receiver ended with ${code}`))),
            ]));
            for (const [result, times] of Object.entries(await browser.callbackResults())) {
                count(result, times - (before[result] ?? 0));
            }
            return results;
        } finally {
            browser.events.off('handled', onHandled);
        }
    }

    // Posts one command about a snapshot or recording and returns the receiver's answers to it.
    async mediaCommand(text) {
        await this.takeReceived();
        await this.post(text);
        return (await this.takeReceived()).map((message) => JSON.parse(message))
            .filter(({ type }) => type === 'media-result');
    }

    // Loads the page again and waits until the receiver is notified.
    async reload() {
        await this.navigated(() => this.page.evaluate('void location.reload()'));
        await this.post();
    }

    // Does what makes the browser load something and waits for the end of that.
    async navigated(leave) {
        const navigated = once(this.run.browser.events, 'navigated');
        await leave();
        return (await within(AnswerLimitMs, 'end of a navigation', navigated))[0];
    }
}
