// A page that does all that a page can do, without end, at once and at the worst moment: the receiver stays up, answers
// and holds no more than before, leaves no broken file, and a good page after it finds everything in order.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { readdir } from 'node:fs/promises';
import { join } from 'node:path';
import { test } from 'node:test';
import { Worker } from 'node:worker_threads';

import { until, within } from '../processes.mjs';
import { captureFile, decodeJpeg, decodeVideo, probeVideo } from './capture_files.mjs';
import { answeringDuring, assertHoldsNoMore } from './receiver_health.mjs';
import { logTexts } from './receiver_texts.mjs';
import {
    frameMessage, goodMessage, InvalidArgument, InvalidMediaType, noisePicture, Ok, startOnSlotPage,
} from './slot_page_run.mjs';

const EventLimitMs = 60000;
const SlackKb = 128;
const Idle = '00000001';
const AlreadyExists = '800700B7';
const NothingWritten = 'C00D4A44';

// What a careless reader takes for something else.
const Junk = [
    ' ', '%s%n%p%99999d', '%', '{"type":"ready"}', '[0]', '"', '\\', '\ud800', '\udfff', 'a\udfff\ud800a',
    '\ud83d\ude00', '\u0000ready', '\t\u0001\u001b', '\ufeff\ufffe\uffff', '..\\..\\x', '-1', 'null',
];

// Every command with what does not belong to it: [message, answer]. The host's texts end at a zero.
const Nonsense = [
    ...Junk.flatMap((junk) => [
        [junk, Ok], [`error:${junk}`, Ok], [`media:${junk}`, Ok], [`Ready${junk}`, Ok], [`${junk}ready`, Ok],
        [`window:orientation:${junk}`, InvalidArgument], [`window:orientation:${junk}setup`, InvalidArgument],
        [`quality:${junk}`, InvalidArgument], [`quality:${junk}720p`, InvalidArgument],
        [`frame:${junk}`, InvalidArgument], [`frame:0:${junk}`, InvalidArgument],
        [goodMessage().replace('NV12', junk), /[:\u0000]/.test(junk) ? InvalidArgument : InvalidMediaType],
        // A zero there leaves a good message of one plane.
        [goodMessage().replace('921600', junk), junk.startsWith('\u0000') ? InvalidMediaType : InvalidArgument],
    ]),
    ...[{ text: 'ready' }, ['media:record:start'], [], {}, 0, -1.5, true, null].map((value) => [value, InvalidArgument]),
];

// Valid messages: what follows a zero character is ignored.
const Sense = [
    'window:orientation:portrait\u0000', 'window:orientation:landscape', 'window:orientation:setup\u0000\ud800',
    'quality:1080p', goodMessage(1), 'quality:720p\u0000p', goodMessage(0), `${goodMessage(1)}\u0000;`,
].map((message) => [message, Ok]);

// A page's array of texts: each command, followed by a megabyte; all are refused.
const LongTexts = `['\ud800', '0', '%n', '\\u0000'].flatMap((piece) =>
    ['frame:', 'frame:1:', 'quality:', 'window:orientation:', '${goodMessage()}:'].map((start) =>
        start + piece.repeat(2 ** 20 / piece.length)))`;

// { answer: how often } of pairs of a message and its answer.
function tally(pairs) {
    const counts = {};
    pairs.forEach(([, code]) => {
        counts[code] = (counts[code] ?? 0) + 1;
    });
    return counts;
}

// The lines that a log may hold: no other part of the program has spoken.
const LogLines = new RegExp(`^(?:${[
    'Vistel receiver log', 'Receiver starting', 'WebView2 [a-z ]+', 'Receiver URL: .*',
    'Receiver page navigation requested', 'Navigation completed: .*', 'Web message: .*', 'First .*',
    'Shared frame buffers posted to script', 'System diagnostics posted to script', 'Video quality selected: .*',
    'Receiver window layout: [a-z]+', 'Snapshot requested', 'Recording (?:started|stopped).*',
    'Virtual camera usage monitor initialized',
].join('|')})$`, 's');

// A page as good as any finds the receiver as if nothing had been: its frames and its snapshot are right.
async function assertGoodPageWorks(slotPage) {
    assert.deepEqual(await slotPage.connect(), [8294400, 8294400]);
    assert.deepEqual(await slotPage.post('quality:720p'), { [Ok]: 1 });
    await slotPage.fill(1, 7);
    assert.deepEqual(await slotPage.post(goodMessage(1)), { [Ok]: 1 });
    assert.ok((await slotPage.frameFile.newestFrame()).picture.equals(noisePicture(7, [1280, 720])));
    const [snapshot] = await slotPage.mediaCommand('media:snapshot');
    await assertSnapshot(slotPage.run, snapshot);
}

async function assertSnapshot(run, { success, path }) {
    assert.ok(success);
    const { width, height } = await decodeJpeg(captureFile(run, 'Pictures', path));
    assert.deepEqual([width, height], [1280, 720]);
}

// The file is complete and holds every frame of the recording.
async function assertPlayable(run, path, frames) {
    const file = captureFile(run, 'Videos', path);
    const { width, height, frameTimes } = await probeVideo(file);
    assert.equal(frameTimes.length, frames, path);
    assert.equal((await decodeVideo(file, width, height)).length, frames, path);
}

async function closeAndReadLog(run) {
    assert.equal(await run.closeWindow(), 0);
    for (const text of await logTexts(run)) {
        assert.match(text, LogLines);
    }
}

// Starts a recording and lets the page post frames until it is gone; { path, before: frames published until then }.
async function recordWithoutEnd(slotPage) {
    const [{ success, path }] = await slotPage.mediaCommand('media:record:start');
    assert.ok(success);
    const before = slotPage.frameFile.header().sequence / 2;
    await slotPage.page.evaluate(`slotPage.repeat('${goodMessage()}')`);
    await slotPage.frameFile.waitForFrames(before + 5, EventLimitMs);
    return { path, before };
}

// The recording has continued although its page is gone.
async function stopRecording(slotPage, { path, before }) {
    const results = await slotPage.mediaCommand('media:record:stop');
    assert.deepEqual(results, [{ type: 'media-result', action: 'recording-stopped', success: true, path, error: 0 }]);
    await assertPlayable(slotPage.run, path, slotPage.frameFile.header().sequence / 2 - before);
}

test('a page that says everything at once', async (t) => {
    const slotPage = await startOnSlotPage(t);
    const { run, frameFile } = slotPage;
    const post = (messages) => answeringDuring(run, () => slotPage.post(...messages));
    const postAll = (expression) => answeringDuring(run, () => slotPage.postAll(expression));
    const step = async (name, body) => {
        t.diagnostic(name);
        await body();
    };
    await slotPage.connect();
    await slotPage.page.evaluate('slotPage.release()');

    await step('sense and nonsense in turns', async () => {
        const mixed = [...Nonsense, ...Nonsense, ...Nonsense].flatMap((pair, i) => [
            pair, ...(i % 5 === 0 ? [Sense[i / 5 % Sense.length]] : []),
        ]);
        await assertHoldsNoMore(run, 4, SlackKb, async () => {
            assert.deepEqual(await post(mixed.map(([message]) => message)), tally(mixed));
        });
    });
    await step('megabytes', () => assertHoldsNoMore(run, 2, SlackKb, async () => {
        assert.deepEqual(await postAll(LongTexts), { [InvalidArgument]: 20 });
    }));
    await step('ready a thousand times', () => assertHoldsNoMore(run, 4, SlackKb, async () => {
        assert.deepEqual(await postAll('Array(250).fill("ready")'), { [Ok]: 250 });
    }));
    await step('captures one after the other', async () => {
        const cycle = [
            ['media:record:start', Ok], ['media:record:start', AlreadyExists], [goodMessage(0), Ok],
            ['quality:', InvalidArgument], ['media:record:start', Ok], [goodMessage(0), Ok], ['media:snapshot', Ok],
            ['window:orientation:portrait', Ok], [goodMessage(1), Ok], ['media:snapshot', Ok],
            ['media:record:stop', Ok], ['media:record:stop', Idle],
            ['media:record:start', Ok], ['media:record:stop', NothingWritten],
            ['quality:1080p', Ok], ['media:record:start', Ok], [goodMessage(0), Ok], ['quality:720p', Ok],
            [goodMessage(1), Ok], ['media:snapshot', Ok],
        ];
        await assertHoldsNoMore(run, 3, SlackKb, async () => {
            await slotPage.takeReceived();
            assert.deepEqual(await post(cycle.map(([message]) => message)), tally(cycle));
            const received = (await slotPage.takeReceived()).map((text) => JSON.parse(text));
            const resultsOf = (action) => received.filter((each) => each.action === action);
            const [first, second, idle, empty, last] = resultsOf('recording-stopped');
            assert.deepEqual([idle.success, idle.path, empty.success], [true, '', false]);
            await assertPlayable(run, first.path, 1);
            await assertPlayable(run, second.path, 2);
            await assertPlayable(run, last.path, 1);
            const snapshots = resultsOf('snapshot');
            assert.equal(snapshots.length, 3);
            for (const snapshot of snapshots) {
                await assertSnapshot(run, snapshot);
            }
        });
    });
    await step('slots that change while they are read', async () => {
        const [low, high] = [0x5a, 0xa5];
        const files = (await readdir(run.browser.shmFolder)).map((name) => join(run.browser.shmFolder, name));
        const writer = startSlotWriter(files, low, high);
        t.after(() => writer.terminate());
        await once(writer, 'message');
        const published = frameFile.header().sequence;
        let rounds = 0;
        let mixed = false;
        await until(EventLimitMs, 'slot that changed while it was read', async () => {
            assert.deepEqual(await slotPage.post(...Array(10).fill(goodMessage(rounds % 2))), { [Ok]: 10 });
            const { picture } = await frameFile.newestFrame();
            const lows = picture.reduce((count, byte) => count + (byte === low), 0);
            const highs = picture.reduce((count, byte) => count + (byte === high), 0);
            assert.equal(lows + highs, picture.length);
            mixed ||= lows > 0 && highs > 0;
            return ++rounds >= 5 && mixed;
        });
        const formats = [
            ['I420', [[0, 1920], [2073600, 960], [2592000, 960]]],
            ['I420A', [[0, 1920], [1, 960], [2, 960], [3, 1920]]],
            ...['RGBA', 'RGBX', 'BGRA', 'BGRX'].map((format) => [format, [[0, 7680]]]),
        ].flatMap(([format, planes]) => [0, 90, 180].map((rotation) => frameMessage({
            format, codedWidth: 1920, codedHeight: 1080, flipA: 1, rotation, planes,
        })));
        assert.deepEqual(await post([...formats, ...formats]), { [Ok]: 36 });
        assert.equal(frameFile.header().sequence, published + 2 * (10 * rounds + 36));
        await writer.terminate();
    });
    await step('a good page', async () => {
        await slotPage.reload();
        await assertGoodPageWorks(slotPage);
    });
    await closeAndReadLog(run);
});

// Fills files with one byte and then the other, again and again, and says so after the first time.
function startSlotWriter(files, low, high) {
    return new Worker(`
        const { openSync, writeSync } = require('node:fs');
        const { parentPort, workerData: { files, bytes } } = require('node:worker_threads');
        const opened = files.map((file) => openSync(file, 'r+'));
        const fill = (byte) => opened.forEach((file) => writeSync(file, byte, 0, byte.length, 0));
        const contents = bytes.map((byte) => Buffer.alloc(8294400, byte));
        contents.forEach(fill);
        parentPort.postMessage('');
        for (;;) {
            contents.forEach(fill);
        }`, { eval: true, workerData: { files, bytes: [low, high] } });
}

test('a page that goes away in the middle', async (t) => {
    const slotPage = await startOnSlotPage(t, { hostResolverRules: 'MAP nowhere.example ~NOTFOUND' });
    const { run, page } = slotPage;
    const goTo = (address) => slotPage.navigated(() => page.evaluate(`void (location.href = '${address}')`));
    const address = await page.evaluate('location.href');
    await slotPage.connect();
    assert.deepEqual(await slotPage.post(goodMessage()), { [Ok]: 1 });
    const ends = [address.replace(/\?/, '?other&'), 'about:blank', 'http://nowhere.example/'];
    await assertHoldsNoMore(run, 2, SlackKb, async () => {
        for (const end of ends) {
            t.diagnostic(end);
            const recording = await recordWithoutEnd(slotPage);
            const { isSuccess } = await answeringDuring(run, () => goTo(end));
            assert.equal(isSuccess, !end.includes('nowhere'));
            await answeringDuring(run, () => goTo(address));
            // The slots of the page before are still the host's.
            assert.deepEqual(await slotPage.post(goodMessage(0), goodMessage(1)), { [Ok]: 2 });
            await stopRecording(slotPage, recording);
            await slotPage.connect();
        }
        const recording = await recordWithoutEnd(slotPage);
        await answeringDuring(run, () => slotPage.reload());
        await stopRecording(slotPage, recording);
        await slotPage.connect();
    });
    await assertGoodPageWorks(slotPage);
    await closeAndReadLog(run);
});

test('a page that nags, crashes and hangs', async (t) => {
    const slotPage = await startOnSlotPage(t, { extraChromiumFlags: ['--disable-popup-blocking'] });
    const { run, page } = slotPage;
    const seen = [];
    run.browser.events.on('dialog', ({ type }) => seen.push(type));
    run.browser.events.on('newwindow', () => seen.push('window'));
    await slotPage.connect();
    assert.deepEqual(await slotPage.post(goodMessage()), { [Ok]: 1 });

    t.diagnostic('dialogs, windows and a million elements');
    await answeringDuring(run, () => page.evaluate(`
        addEventListener('beforeunload', (event) => event.preventDefault());
        for (let i = 0; i < 10; ++i) {
            alert(i);
            confirm(i);
            prompt(i);
            slotPage.post(['${goodMessage()}']);
            window.open('about:blank');
        }
        document.body.innerHTML = '<b>x</b>'.repeat(500000);`));
    for (const type of ['alert', 'confirm', 'prompt', 'window']) {
        assert.equal(seen.filter((each) => each === type).length, 10, type);
    }
    await slotPage.post();

    t.diagnostic('crash');
    const recording = await recordWithoutEnd(slotPage);
    const crashed = once(run.browser.events, 'crashed');
    page.crash();
    await answeringDuring(run, () => within(EventLimitMs, 'crash of the page', crashed));
    await answeringDuring(run, () => slotPage.navigated(() => page.reload()));
    await stopRecording(slotPage, recording);
    await assertGoodPageWorks(slotPage);

    t.diagnostic('hang');
    const last = await recordWithoutEnd(slotPage);
    page.evaluate(`slotPage.post(Array(1000).fill('${goodMessage()}')); for (;;);`).catch(() => {});
    await closeAndReadLog(run);
    await assertPlayable(run, last.path, slotPage.frameFile.header().sequence / 2 - last.before);
});
