// The sample page, examples/page/: it shows everything that it receives, and its buttons ask for everything.
import assert from 'node:assert/strict';

import { until } from '../rig/processes.mjs';
import { FakeHost, pageTest } from './page_test.mjs';

const HiddenLimitMs = 240000;
const HiddenTicks = 60; // of a timer at the page's rate
const FramesOfTicks = HiddenTicks * 29 / 30;
const Address = 'examples/page/index.html';
const Jpeg = 'C:\\Users\\a\\Pictures\\Vistel\\Vistel-20240305-142709-042.jpg';
const Mp4 = 'C:\\Users\\a\\Videos\\Vistel\\Vistel-20240305-142710-000.mp4';

const Diagnostics = {
    windowsVersion: '10.0.22631', buildNumber: 22631, architecture: 'x64', osSupported: true, webView2Ready: true,
    virtualCameraRegistered: true, appVersion: '0.1.3',
};

async function openPage(page, query = '') {
    await page.open(Address + query);
    await page.waitForText('ready');
}

async function start(page, query = '') {
    await openPage(page, query);
    await page.giveSlots();
    await waitForFrames(page, 1);
}

function hostedTest(name, body, ...moreScripts) {
    pageTest(name, [FakeHost, ...moreScripts], body);
}

// Tests of a page that waits for its slots, and of one whose frames flow.
function waitingTest(name, body) {
    hostedTest(name, async (page) => {
        await openPage(page);
        await body(page);
    });
}

function runningTest(name, body) {
    hostedTest(name, async (page) => {
        await start(page);
        await body(page);
    });
}

const textOf = (page, id) => page.run((name) => document.getElementById(name).textContent, id);
const classOf = (page, id) => page.run((name) => document.getElementById(name).className, id);
const shownAs = async (page, id) => [await textOf(page, id), await classOf(page, id)];
const isEnabled = (page, id) => page.run((name) => !document.getElementById(name).disabled, id);
const posted = (page) => page.run(() => host.posted);
const texts = (page) => page.run(() => host.texts);
const lastText = (page) => page.run(() => host.texts.at(-1));
const frameCount = (page) => page.run(() => host.frames.length);
const waitForFrames = (page, count) => page.waitFor((wanted) => host.frames.length >= wanted, count);
const waitForMoreFrames = async (page, count) => waitForFrames(page, await frameCount(page) + count);
const waitForTextOf = (page, id, text) =>
    page.waitFor((name, wanted) => document.getElementById(name).textContent === wanted, id, text);
const pressed = (page, group) => page.run((name) =>
    [...document.querySelectorAll(`#${name} [aria-pressed=true]`)].map((button) => button.dataset.value), group);

// The events, the newest first: [text, class], the class being "bad" for failures.
const events = (page) => page.run(() =>
    [...document.querySelectorAll('#event-list li')].map((item) => [item.lastChild.data, item.className]));
const newestEvent = async (page) => (await events(page))[0];
const waitForEvent = (page, text, kind = '') => page.waitFor((wantedText, wantedKind) =>
    [...document.querySelectorAll('#event-list li')].some((item) =>
        item.lastChild.data === wantedText && item.className === wantedKind), text, kind);

async function assertEvent(page, text, kind = '') {
    const found = await events(page);
    assert.ok(found.some((event) => event[0] === text && event[1] === kind), `${text} is not in ${found.join('\n')}`);
}

// --- Without a receiver ---

pageTest('shows how to be opened when no receiver hosts it', [], async (page) => {
    await page.open(`${Address}?size=1080p`);
    await page.waitFor(() => document.querySelector('button').disabled);
    assert.equal(await page.run(() => document.querySelectorAll('button:enabled').length), 0);
    assert.equal(await textOf(page, 'notice-title'), 'Open this page in the Vistel receiver');
    assert.equal(await textOf(page, 'command'), `vistel-receiver.exe --url=${page.server}/${Address}?size=1080p`);
    assert.equal(await textOf(page, 'state'), 'Not connected');
});

// --- Starting ---

waitingTest('waits for the slots', async (page) => {
    assert.deepEqual(await posted(page), ['ready']);
    assert.deepEqual(await shownAs(page, 'state'), ['Waiting for slots', 'pill wait']);
    assert.equal(await textOf(page, 'notice-text'), "Waiting for the receiver's frame slots.");
    await page.run(() => host.postBuffer(0));
    await page.waitFor(() => document.querySelector('#slot-0 b').textContent === '8.3 MB');
    assert.equal(await page.run(() => document.querySelector('#slot-1 b').textContent), 'waiting');
    assert.equal(await page.run(() => document.querySelectorAll('.slot.filled').length), 1);
    assert.deepEqual(await posted(page), ['ready']);
});

runningTest('shows that frames flow', async (page) => {
    await waitForEvent(page, 'WebRTC connected');
    await assertEvent(page, 'Both frame slots arrived');
    assert.deepEqual(await texts(page), ['ready', 'quality:720p']);
    assert.deepEqual(await shownAs(page, 'state'), ['WebRTC connected', 'pill good']);
    await page.waitFor(() => document.getElementById('notice').hidden);
    await page.waitFor(() => Number(document.getElementById('posted').textContent) > 10);
    await page.waitFor(() => Number(document.getElementById('rate').textContent) > 0);
    await waitForTextOf(page, 'last-frame', 'I420 1280x720');
    await page.waitFor(() => document.querySelectorAll('.slot.filled').length === 2);
    await page.waitFor(() => ['newest,8.3 MB', '8.3 MB,newest'].includes(
        [...document.querySelectorAll('.slot b')].map((one) => one.textContent).join()));
    assert.equal(await textOf(page, 'dropped'), '0');
    await page.waitFor(() => document.getElementById('video').videoWidth === 1280);
    const frames = await page.run(() => host.frames);
    assert.match(frames[0], /^frame:[01]:I420:1280:720:0:0:0:1280:720:0,1280;921600,640;1152000,640$/);
    const slots = frames.map((text) => text[6]);
    assert.equal(slots[0], '0');
    assert.ok(slots.slice(1).every((slot, index) => slot !== slots[index]), slots.join());
});

hostedTest('sends frames as one file from the disk', async (page) => {
    await page.openTestPicture();
    await page.waitForText('ready');
    await page.giveSlots();
    await waitForFrames(page, 3);
    await waitForTextOf(page, 'state', 'WebRTC connected');
    await page.waitFor(() => document.getElementById('notice').hidden);
    assert.equal(await page.run(() => getComputedStyle(document.querySelector('#picture')).position), 'relative');
});

// --- Hidden ---

// What the page does while a worker's timer ticks: { frames, animationFrames }.
const watchTicks = (page, ticks) => page.run((count) => new Promise((resolve) => {
    const timer = `let dueMs = performance.now();
        const tick = () => {
            postMessage(null);
            dueMs += 1000 / 30;
            setTimeout(tick, dueMs - performance.now());
        };
        tick();`;
    const worker = new Worker(URL.createObjectURL(new Blob([timer])));
    const framesBefore = host.frames.length;
    let seen = 0;
    let animationFrames = 0;
    const onAnimationFrame = () => {
        ++animationFrames;
        if (seen < count) {
            requestAnimationFrame(onAnimationFrame);
        }
    };
    requestAnimationFrame(onAnimationFrame);
    worker.onmessage = () => {
        if (++seen === count) {
            worker.terminate();
            resolve({ frames: host.frames.length - framesBefore, animationFrames });
        }
    };
}), ticks);

for (const pattern of ['card', 'bars']) {
    hostedTest(`sends the pattern ${pattern} at its full rate while its window is minimized`, async (page) => {
        await start(page, `?pattern=${pattern}`);
        await page.hide();
        // A busy machine may lose frames, so that several tries are allowed. Without the worker there are two at most.
        const seen = [];
        await until(HiddenLimitMs, () => `${FramesOfTicks} frames of ${HiddenTicks}; seen: ${JSON.stringify(seen)}`,
                    async () => {
                        const { frames, animationFrames } = await watchTicks(page, HiddenTicks);
                        seen.push(frames);
                        assert.equal(animationFrames, 0);
                        return frames >= FramesOfTicks;
                    });
        assert.equal(await textOf(page, 'state'), 'WebRTC connected');
    });
}

// --- What it receives ---

waitingTest('shows the diagnostics', async (page) => {
    const shown = async () => Promise.all(['app-version', 'windows', 'supported', 'webview2', 'camera'].map((id) =>
        shownAs(page, id)));
    await page.postJson({ type: 'diagnostics', diagnostics: Diagnostics });
    assert.deepEqual(await shown(), [
        ['0.1.3', ''], ['10.0.22631 x64', ''], ['yes', 'good'], ['ready', 'good'], ['registered', 'good'],
    ]);
    assert.deepEqual(await newestEvent(page), ['Diagnostics arrived', '']);

    await page.postJson({ type: 'diagnostics', diagnostics: {
        ...Diagnostics, windowsVersion: '10.0.19045', osSupported: false, webView2Ready: false,
        virtualCameraRegistered: false,
    } });
    assert.deepEqual(await shown(), [
        ['0.1.3', ''], ['10.0.19045 x64', ''], ['no', 'bad'], ['not ready', 'bad'], ['not registered', 'bad'],
    ]);
});

waitingTest('shows whether the camera is used', async (page) => {
    assert.deepEqual(await shownAs(page, 'usage'), ['Camera idle', 'pill']);
    await page.postJson({ type: 'virtual-camera-usage', active: true });
    assert.deepEqual(await shownAs(page, 'usage'), ['Camera in use', 'pill good']);
    assert.deepEqual(await newestEvent(page), ['A camera application started', '']);
    await page.postJson({ type: 'virtual-camera-usage', active: false });
    assert.deepEqual(await shownAs(page, 'usage'), ['Camera idle', 'pill']);
    assert.deepEqual(await newestEvent(page), ['The camera applications stopped', '']);
});

for (const [success, path, error, shown] of [
    [true, Jpeg, 0, Jpeg],
    [false, '', 0xC00D36D6, '0xC00D36D6 MF_E_NOT_AVAILABLE'],
    [false, Jpeg, 0x80004005, `0x80004005 E_FAIL, ${Jpeg}`],
]) {
    waitingTest(`shows the result of a snapshot: ${shown}`, async (page) => {
        const kind = success ? '' : 'bad';
        await page.click('#snapshot');
        assert.deepEqual(await texts(page), ['ready', 'media:snapshot']);
        assert.equal(await isEnabled(page, 'snapshot'), false);
        await page.postMediaResult('snapshot', success, path, error);
        assert.deepEqual(await shownAs(page, 'snapshot-result'), [shown, kind]);
        assert.deepEqual(await newestEvent(page), [`snapshot: ${shown}`, kind]);
        await page.waitFor(() => !document.getElementById('snapshot').disabled);
        assert.equal(await textOf(page, 'state'), 'Waiting for slots');
    });
}

runningTest('shows a recording from start to end', async (page) => {
    await page.click('#record');
    assert.equal(await lastText(page), 'media:record:start');
    assert.equal(await isEnabled(page, 'record'), false);
    assert.equal(await textOf(page, 'record'), 'Record');
    await page.postMediaResult('recording-started', true, Mp4, 0);
    assert.deepEqual(await shownAs(page, 'record'), ['Stop', 'running']);
    assert.equal(await classOf(page, 'recording-label'), 'running');
    await page.waitFor(() => /^(?!00:00)\d\d:\d\d, [1-9]\d* frames, /.test(
        document.getElementById('recording-result').textContent));
    assert.ok((await textOf(page, 'recording-result')).endsWith(` frames, ${Mp4}`));

    await page.click('#record');
    assert.equal(await lastText(page), 'media:record:stop');
    await page.postMediaResult('recording-stopped', true, Mp4, 0);
    assert.deepEqual(await shownAs(page, 'record'), ['Record', '']);
    assert.equal(await classOf(page, 'recording-label'), '');
    const shown = await textOf(page, 'recording-result');
    const recorded = await page.run(() =>
        host.posted.indexOf('media:record:stop') - host.posted.indexOf('media:record:start') - 1);
    const [, frames, path] = /^00:\d\d, (\d+) frames, (.+)$/.exec(shown);
    assert.deepEqual([Number(frames), path], [recorded, Mp4]);
    assert.deepEqual(await newestEvent(page), [`recording-stopped: ${Mp4}`, '']);
    // The progress has ended.
    await waitForMoreFrames(page, 21);
    assert.equal(await textOf(page, 'recording-result'), shown);
});

waitingTest('shows a recording that does not start', async (page) => {
    await page.click('#record');
    await page.postMediaResult('recording-started', false, '', 0xC00D5212);
    const shown = '0xC00D5212 MF_E_TOPO_CODEC_NOT_FOUND';
    assert.deepEqual(await shownAs(page, 'recording-result'), [shown, 'bad']);
    assert.deepEqual(await newestEvent(page), [`recording-started: ${shown}`, 'bad']);
    await page.waitFor(() => !document.getElementById('record').disabled);
    assert.equal(await textOf(page, 'record'), 'Record');
});

waitingTest('offers to stop a recording that was started before it was loaded', async (page) => {
    await page.click('#record');
    await page.postMediaResult('recording-started', false, '', 0x800700B7);
    assert.equal(await textOf(page, 'recording-result'), '0x800700B7 ERROR_ALREADY_EXISTS');
    await waitForTextOf(page, 'record', 'Stop');
    await page.waitFor(() => !document.getElementById('record').disabled);
    await page.click('#record');
    assert.equal(await lastText(page), 'media:record:stop');
    await page.postMediaResult('recording-stopped', true, Mp4, 0);
    assert.deepEqual(await shownAs(page, 'recording-result'), [Mp4, '']);
});

runningTest('shows a recording that fails by itself', async (page) => {
    await page.click('#record');
    await page.postMediaResult('recording-started', true, Mp4, 0);
    await page.postMediaResult('recording-failed', false, Mp4, 0x80070070);
    const [shown, kind] = await shownAs(page, 'recording-result');
    assert.match(shown, /^00:\d\d, \d+ frames, 0x80070070 ERROR_DISK_FULL, /);
    assert.ok(shown.endsWith(`, ${Mp4}`));
    assert.equal(kind, 'bad');
    assert.equal(await textOf(page, 'record'), 'Record');
});

runningTest('shows that a change of quality ends a recording', async (page) => {
    await page.click('#record');
    await page.postMediaResult('recording-started', true, Mp4, 0);
    await page.click("#quality [data-value='1080p']");
    assert.equal(await lastText(page), 'quality:1080p');
    await page.postMediaResult('recording-stopped', true, Mp4, 0);
    assert.ok((await textOf(page, 'recording-result')).endsWith(Mp4));
    assert.equal(await textOf(page, 'record'), 'Record');
    await page.postMediaResult('recording-stopped', true, '', 1);
    assert.equal(await textOf(page, 'recording-result'), 'nothing was being recorded');
});

// --- What its buttons ask for ---

runningTest('has a button for everything', async (page) => {
    assert.deepEqual(await page.run(() => [...document.querySelectorAll('button')].map((one) => one.textContent)), [
        '720p', '1080p', 'Setup', 'Landscape', 'Portrait', 'Mirror', 'Snapshot', 'Record', 'Reconnect', 'Log a line',
    ]);
});

for (const value of ['landscape', 'portrait', 'setup']) {
    waitingTest(`asks for the orientation ${value}`, async (page) => {
        assert.deepEqual(await pressed(page, 'orientation'), ['setup']);
        await page.click(`#orientation [data-value=${value}]`);
        assert.deepEqual(await posted(page), ['ready', `window:orientation:${value}`]);
        assert.deepEqual(await pressed(page, 'orientation'), [value]);
    });
}

runningTest('asks for a quality and sends that size', async (page) => {
    for (const [value, width, height] of [['1080p', 1920, 1080], ['720p', 1280, 720]]) {
        await page.click(`#quality [data-value='${value}']`);
        assert.equal(await lastText(page), `quality:${value}`);
        assert.deepEqual(await newestEvent(page), [`Asked for ${value}`, '']);
        assert.deepEqual(await pressed(page, 'quality'), [value]);
        await page.waitFor((size) => host.frames.at(-1).includes(size), `:${width}:${height}:0:0:0:`);
        await waitForTextOf(page, 'last-frame', `I420 ${width}x${height}`);
    }
});

runningTest('mirrors what is sent and shown', async (page) => {
    const isMirrored = (wanted) => page.waitFor((flag) => host.frames.at(-1).split(':')[7] === flag, wanted);
    await isMirrored('0');
    await page.click('#mirror');
    await isMirrored('1');
    assert.equal(await classOf(page, 'picture'), 'mirrored');
    await waitForTextOf(page, 'last-frame', 'I420 1280x720 mirrored');
    await page.click('#mirror');
    await isMirrored('0');
    assert.equal(await classOf(page, 'picture'), '');
    await waitForTextOf(page, 'last-frame', 'I420 1280x720');
});

runningTest('asks for new slots and goes on with them', async (page) => {
    await page.click('#reconnect');
    assert.deepEqual(await texts(page), ['ready', 'quality:720p', 'ready']);
    assert.equal(await isEnabled(page, 'reconnect'), false);
    await page.waitFor(() => Number(document.getElementById('dropped').textContent) > 0);
    await page.giveSlots();
    await waitForMoreFrames(page, 3);
    assert.deepEqual(await page.run(() => host.buffers.map((buffer) =>
        new Uint8Array(buffer, 0, 1280 * 720).some((value) => value > 200))), [true, true]);
    await page.waitFor(() => !document.getElementById('reconnect').disabled);
    assert.equal((await events(page)).filter(([text]) => text === 'Both frame slots arrived').length, 2);
});

waitingTest('asks for a line in the log', async (page) => {
    await page.click('#log');
    assert.deepEqual(await posted(page), ['ready', 'error:A line that the sample page was asked for']);
    assert.deepEqual(await newestEvent(page), ["Asked for a line in the receiver's log", '']);
});

// --- Its query ---

hostedTest('sends the size, pattern and colors of the query', async (page) => {
    await start(page, '?size=1080p&pattern=bars&fps=10&colors=exact');
    assert.deepEqual(await texts(page), ['ready', 'quality:1080p']);
    const fields = (await page.run(() => host.frames.at(-1))).split(':');
    assert.ok(['RGBX', 'I420'].includes(fields[2]));
    assert.deepEqual(fields.slice(3, 10), ['1920', '1080', '0', '0', '0', '1920', '1080']);
    // The first bar is white, the last one nearly black.
    const [first, last] = await page.run(() => {
        const [, slot, format, , , , , , , , planes] = host.frames.at(-1).split(':');
        const [offset, stride] = planes.split(';')[0].split(',').map(Number);
        const bytes = new Uint8Array(host.buffers[slot], offset);
        const step = format === 'RGBX' ? 4 : 1;
        return [120, 1800].map((column) => bytes[200 * stride + column * step]);
    });
    assert.ok(first > 200 && last < 50, `${first} and ${last}`);
});

for (const [query, complaint] of Object.entries({
    'size=480p': 'size=480p is none of 720p, 1080p',
    'pattern=noise': 'pattern=noise is none of card, bars',
    'colors=true': 'colors=true is none of fast, exact',
    'snapshot=soon': 'snapshot=soon is not a number of seconds',
    'snapshot=1:2': 'snapshot=1:2 is not a number of seconds',
    'snapshot=': 'snapshot= is not a number of seconds',
    'record=1': 'record=1 is not AFTER:SECONDS',
    'record=1:-2': 'record=1:-2 is not AFTER:SECONDS',
    'record=:': 'record=: is not AFTER:SECONDS',
})) {
    hostedTest(`reports that it cannot read ${query} and goes on`, async (page) => {
        await start(page, `?${query}`);
        await assertEvent(page, complaint, 'bad');
        assert.deepEqual(await texts(page), ['ready', 'quality:720p']);
        assert.ok((await page.run(() => host.frames[0])).startsWith('frame:0:I420:1280:720:'));
    });
}

hostedTest('accepts what the receiver appends', async (page) => {
    await openPage(page, '?fps=10&installationId=01234567-89ab-cdef-0123-456789abcdef&clientVersion=0.1.3');
    assert.deepEqual((await events(page)).filter(([, kind]) => kind === 'bad'), []);
});

for (const fps of ['0', '61', '1.5', 'x']) {
    hostedTest(`refuses the rate ${fps}`, async (page) => {
        await openPage(page, `?fps=${fps}`);
        assert.ok((await events(page)).some(([text, kind]) =>
            text.startsWith(`fps=${fps} is none of 1, 2, `) && kind === 'bad'));
    });
}

hostedTest('takes a snapshot by itself', async (page) => {
    await openPage(page, '?snapshot=0.5');
    await page.giveSlots();
    await page.waitForText('media:snapshot');
    const [firstMs, snapshotMs] = await page.run(() =>
        [(text) => text.startsWith('frame:'), (text) => text === 'media:snapshot'].map((isWanted) =>
            host.postedMs[host.posted.findIndex(isWanted)]));
    assert.ok(snapshotMs - firstMs >= 495, `after ${snapshotMs - firstMs} ms`); // Timers may be a little early.
    await page.postMediaResult('snapshot', false, '', 0xC00D36D6);
    assert.equal(await textOf(page, 'snapshot-result'), '0xC00D36D6 MF_E_NOT_AVAILABLE');
    await waitForMoreFrames(page, 4);
    assert.equal(await textOf(page, 'state'), 'WebRTC connected');
});

hostedTest('records by itself', async (page) => {
    await openPage(page, '?record=0.2:1.5');
    await page.run((path) => {
        host.onText = (text) => {
            if (text === 'media:record:start') {
                host.postMediaResult('recording-started', true, path, 0);
            } else if (text === 'media:record:stop') {
                host.postMediaResult('recording-stopped', true, path, 0);
            }
        };
    }, Mp4);
    await page.giveSlots();
    await waitForEvent(page, `recording-stopped: ${Mp4}`);
    const [startMs, stopMs] = await page.run(() => ['media:record:start', 'media:record:stop'].map((text) =>
        host.postedMs[host.posted.indexOf(text)]));
    assert.ok(stopMs - startMs >= 1495, `after ${stopMs - startMs} ms`);
    assert.deepEqual(await texts(page), ['ready', 'quality:720p', 'media:record:start', 'media:record:stop']);
    const [, path] = /^00:\d\d, [1-9]\d* frames, (.+)$/.exec(await textOf(page, 'recording-result'));
    assert.equal(path, Mp4);
});

hostedTest('does not stop a recording that could not be started by itself', async (page) => {
    await openPage(page, '?record=0:0&snapshot=1');
    await page.run(() => {
        host.onText = (text) => {
            if (text === 'media:record:start') {
                host.postMediaResult('recording-started', false, '', 0x80004001);
            }
        };
    });
    await page.giveSlots();
    await page.waitForText('media:snapshot');
    assert.deepEqual(await texts(page), ['ready', 'quality:720p', 'media:record:start', 'media:snapshot']);
    assert.equal(await textOf(page, 'recording-result'), '0x80004001 E_NOTIMPL');
});

// --- Failures ---

async function assertFailed(page, message) {
    await waitForTextOf(page, 'notice-title', 'The page has failed');
    assert.deepEqual([await textOf(page, 'notice-text'), await classOf(page, 'notice')], [message, 'bad']);
    assert.deepEqual(await shownAs(page, 'state'), ['Error', 'pill bad']);
    await assertEvent(page, message, 'bad');
    assert.equal((await texts(page)).filter((text) => text === `error:${message}`).length, 1);
}

for (const name of ['MediaStreamTrackProcessor', 'MediaStreamTrackGenerator']) {
    hostedTest(`shows and reports a missing ${name}`, async (page) => {
        await openPage(page);
        await page.giveSlots();
        await assertFailed(page, `${name} is unavailable`);
    }, `delete window.${name};`);
}

hostedTest('shows and reports a worker that cannot be loaded', async (page) => {
    await openPage(page);
    await page.giveSlots();
    await assertFailed(page, "The test card's worker did not start");
}, `window.Worker = class extends Worker {
    constructor(address, options) {
        super('missing.mjs', options);
    }
};`);

hostedTest('shows and reports a worker that fails', async (page) => {
    await openPage(page);
    await page.giveSlots();
    await assertFailed(page, 'Uncaught Error: no card');
}, `window.Worker = class extends Worker {
    constructor() {
        super(URL.createObjectURL(new Blob(["throw new Error('no card')"])));
    }
};`);

hostedTest('reports once that frames cannot be posted, and goes on when they can', async (page) => {
    await openPage(page);
    await page.giveSlots(1000);
    const message = 'A slot of 1000 bytes has no room for 1280 x 720 pixels';
    await waitForEvent(page, message, 'bad');
    await page.waitFor(() => Number(document.getElementById('dropped').textContent) > 3);
    assert.equal((await texts(page)).filter((text) => text === `error:${message}`).length, 1);
    assert.equal(await frameCount(page), 0);
    await page.giveSlots();
    await waitForFrames(page, 3);
});

hostedTest('shows and reports a connection that fails', async (page) => {
    await openPage(page);
    await page.giveSlots();
    await assertFailed(page, 'no offer');
}, "RTCPeerConnection.prototype.createOffer = async () => { throw new Error('no offer'); };");

// --- Its layout ---

for (const [width, height] of [[744, 481], [760, 520], [960, 540], [450, 800], [1600, 900]]) {
    hostedTest(`shows everything on ${width} x ${height} pixels`, async (page) => {
        await start(page);
        await page.resize(width, height);
        await page.postJson({ type: 'diagnostics', diagnostics: Diagnostics });
        await page.postMediaResult('snapshot', true, Jpeg, 0);
        await page.postMediaResult('recording-started', true, Mp4, 0);
        await page.waitFor(() => document.getElementById('notice').hidden);
        assert.deepEqual(await page.run(() => {
            const view = document.documentElement;
            const parts = [...document.querySelectorAll('header, section, button, .pill, .tile, dd, #captures b')];
            const cut = parts.filter((part) => {
                const { left, top, right, bottom } = part.getBoundingClientRect();
                const outside = left < 0 || top < 0 || right > view.clientWidth || bottom > view.clientHeight;
                return outside || part.scrollWidth > part.clientWidth + 1 && part.clientWidth > 0;
            });
            // No two of the boxes may overlap.
            const boxes = [...document.querySelectorAll('#picture, #controls, #figures, #host, #captures, #events')];
            const overlapping = boxes.flatMap((a, index) => boxes.slice(index + 1).filter((b) => {
                const [one, other] = [a.getBoundingClientRect(), b.getBoundingClientRect()];
                return one.left < other.right && other.left < one.right &&
                    one.top < other.bottom && other.top < one.bottom;
            }).map((b) => `${a.id} and ${b.id}`));
            return [cut.map((part) => part.id || part.textContent), overlapping];
        }), [[], []]);
    });
}
