// The page chooses the shape of the window, on real windows of several displays.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { until } from '../processes.mjs';
import { logTexts } from './receiver_texts.mjs';
import { goodMessage, Ok, startOnSlotPage } from './slot_page_run.mjs';

const LayoutLimitMs = 60000;

const Preserved = 'Receiver window layout changed while maximized; preserving maximized state';
const ClientSizes = {
    portrait: { width: 450, height: 800 }, landscape: { width: 960, height: 540 }, setup: { width: 760, height: 520 },
};

const sizeOf = ({ width, height }) => ({ width, height });

class LayoutRun {
    constructor(slotPage) {
        this.run = slotPage.run;
        this.slotPage = slotPage;
    }

    // The window once the receiver has dealt with the wish.
    async ask(mode) {
        await this.slotPage.post(`window:orientation:${mode}`);
        return this.run.mainWindow();
    }

    // The page comes to fill the window.
    async waitForPage() {
        const { client } = await this.run.mainWindow();
        let seen;
        await until(LayoutLimitMs, () => `page of ${client.width}x${client.height}, not ${seen}`, async () => {
            seen = await this.slotPage.page.evaluate('`${innerWidth}x${innerHeight}`');
            return seen === `${client.width}x${client.height}`;
        });
    }

    async waitForVisibility(wanted) {
        await until(LayoutLimitMs, `${wanted} page`, async () =>
            await this.slotPage.page.evaluate('document.visibilityState') === wanted);
    }

    async layoutTexts() {
        return (await logTexts(this.run)).filter((text) => text.startsWith('Receiver window layout'));
    }
}

async function startLayoutRun(t, options) {
    return new LayoutRun(await startOnSlotPage(t, options));
}

// Where a window of a size goes that was at `from`: around the same center, and onto the display.
function placeAround(from, { width, height }, display) {
    const along = (low, length, newLength, limit) => Math.max(0, Math.min(
        low + Math.trunc(length / 2) - Math.trunc(newLength / 2), limit - newLength));
    return {
        left: along(from.left, from.width, width, display.width),
        top: along(from.top, from.height, height, display.height), width, height,
    };
}

test('the window takes the shape that the page asks for', async (t) => {
    const layout = await startLayoutRun(t);
    const { run } = layout;
    let window = await layout.ask('setup');
    assert.deepEqual(sizeOf(window.outer), { width: 760, height: 520 });
    await layout.waitForPage();

    const frame = {
        width: window.outer.width - window.client.width, height: window.outer.height - window.client.height,
    };
    const modes = ['portrait', 'landscape', 'landscape', 'setup', 'portrait', 'unknown', ''];
    for (const mode of modes) {
        const before = window;
        window = await layout.ask(mode);
        const size = ClientSizes[mode] ?? sizeOf(before.client);
        assert.deepEqual(sizeOf(window.client), size, mode);
        const outer = { width: size.width + frame.width, height: size.height + frame.height };
        assert.deepEqual(window.outer, placeAround(before.outer, outer, run.display.size), mode);
        await layout.waitForPage();
    }
    assert.deepEqual(await layout.layoutTexts(), [
        'portrait', 'landscape', 'setup', 'portrait',
    ].map((mode) => `Receiver window layout: ${mode}`));
    assert.equal(await run.closeWindow(), 0);
});

test('a window that the user has moved and sized keeps its center and stays on the display', async (t) => {
    const layout = await startLayoutRun(t);
    const { run } = layout;
    const { width, height } = run.display.size;
    const frame = await layout.ask('portrait');
    const portrait = sizeOf(frame.outer);
    const landscape = sizeOf((await layout.ask('landscape')).outer);
    for (const place of [
        { left: 301, top: 203, width: 701, height: 503 }, { left: -90, top: -40, width: 300, height: 200 },
        { left: width - 250, top: height - 150, width: 300, height: 200 },
    ]) {
        for (const [mode, size] of Object.entries({ portrait, landscape })) {
            await run.placeWindow(place);
            const placed = (await run.mainWindow()).outer;
            assert.deepEqual(placed, place);
            assert.deepEqual((await layout.ask(mode)).outer, placeAround(place, size, run.display.size));
            await layout.waitForPage();
        }
    }
    assert.equal(await run.closeWindow(), 0);
});

test('a minimized window forgets what the page asks for', async (t) => {
    const layout = await startLayoutRun(t);
    const { run } = layout;
    const before = await run.mainWindow();
    await run.systemCommand('minimize');
    assert.ok((await layout.ask('portrait')).minimized);
    await layout.waitForVisibility('hidden');
    await run.systemCommand('restore');
    await layout.waitForVisibility('visible');
    await layout.waitForPage();
    const restored = await run.mainWindow();
    assert.ok(!restored.minimized);
    assert.deepEqual(restored.outer, before.outer);
    assert.deepEqual(await layout.layoutTexts(), []);

    assert.deepEqual(sizeOf((await layout.ask('portrait')).client), ClientSizes.portrait);
    await layout.waitForPage();
    assert.deepEqual(await layout.layoutTexts(), ['Receiver window layout: portrait']);
    assert.equal(await run.closeWindow(), 0);
});

test('a maximized window stays as it is and remembers what the page asks for', async (t) => {
    const layout = await startLayoutRun(t);
    const { run } = layout;
    const before = await run.mainWindow();
    await run.systemCommand('maximize');
    const maximized = await run.mainWindow();
    assert.ok(maximized.maximized);
    assert.ok(maximized.client.width > before.client.width);
    assert.deepEqual((await layout.ask('portrait')).outer, maximized.outer);
    assert.deepEqual((await layout.ask('portrait')).outer, maximized.outer);
    await layout.waitForPage();

    await run.systemCommand('restore');
    assert.deepEqual((await layout.ask('portrait')).outer, before.outer);
    await layout.waitForPage();
    assert.deepEqual(sizeOf((await layout.ask('landscape')).client), ClientSizes.landscape);
    await layout.waitForPage();
    assert.deepEqual(await layout.layoutTexts(), [Preserved, Preserved, 'Receiver window layout: landscape']);
    assert.equal(await run.closeWindow(), 0);
});

// The frame is larger at 150 %; the client area, in pixels, is not.
test('at 150 % the window has the same client area', async (t) => {
    const usual = await frameHeightAt(t, 96);
    const large = await frameHeightAt(t, 144);
    assert.ok(large > usual, `a frame of ${large} pixels, at 100 % of ${usual}`);
});

// What the window's frame adds to the height of its client area at a number of dots per inch, after checking that area.
async function frameHeightAt(t, dotsPerInch) {
    const layout = await startLayoutRun(t, { registry: { 'Control Panel\\Desktop': { LogPixels: dotsPerInch } } });
    const { outer, client } = await layout.ask('portrait');
    assert.deepEqual(sizeOf(client), ClientSizes.portrait);
    await layout.waitForPage();
    assert.equal(await layout.run.closeWindow(), 0);
    await layout.run.stop();
    return outer.height - client.height;
}

// Wine has one monitor here. Its virtual desktop becomes smaller and the window stays outside it, on no monitor at all;
// Windows would move the window.
test('a window whose monitor is unplugged comes back with the next layout', async (t) => {
    const VirtualDesktop = 'Default';
    const both = { width: 2560, height: 1600 };
    const remaining = { width: 1280, height: 800 };
    const layout = await startLayoutRun(t, {
        registry: {
            'Software\\Wine\\Explorer': { Desktop: VirtualDesktop },
            'Software\\Wine\\Explorer\\Desktops': { [VirtualDesktop]: `${both.width}x${both.height}` },
        },
    });
    const { run, slotPage } = layout;
    await slotPage.connect();
    await layout.ask('portrait');
    await run.placeWindow({ left: 1500, top: 850, width: 700, height: 500 });
    const before = await run.mainWindow();
    await run.driver.ask('display', remaining.width, remaining.height);
    assert.deepEqual(await slotPage.post(goodMessage()), { [Ok]: 1 });
    assert.deepEqual((await run.mainWindow()).outer, before.outer);
    const { outer, client } = await layout.ask('landscape');
    assert.deepEqual(sizeOf(client), ClientSizes.landscape);
    assert.deepEqual(outer, placeAround(before.outer, sizeOf(outer), remaining));
    await layout.waitForPage();
    // Wine's server does not survive a window that is closed on the smaller desktop.
    await run.driver.ask('display', both.width, both.height);
    assert.equal(await run.closeWindow(), 0);
});

test('a window does not grow beyond a small display', async (t) => {
    const displaySize = { width: 1024, height: 700 };
    const layout = await startLayoutRun(t, { displaySize });
    const { run } = layout;
    const before = await run.mainWindow();
    const { outer, client } = await layout.ask('portrait');
    const width = ClientSizes.portrait.width + before.outer.width - before.client.width;
    assert.deepEqual(outer, placeAround(before.outer, { width, height: 700 }, displaySize));
    assert.equal(outer.top, 0);
    assert.equal(client.width, ClientSizes.portrait.width);
    await layout.waitForPage();
    assert.deepEqual(await layout.layoutTexts(), ['Receiver window layout: portrait']);
    assert.equal(await run.closeWindow(), 0);
});
