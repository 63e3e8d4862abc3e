// The receiver simulator, examples/page/receiver_simulator.mjs, in the browser: its chrome.webview, its panel, its
// counts. tests/rig/end_to_end/simulator.test.mjs holds its results and pictures against the receiver.
import assert from 'node:assert/strict';

import { hexadecimal } from '../../examples/page/simulator/receiver_model.mjs';
import { FakeHost, pageTest } from './page_test.mjs';
import { receiverMessages } from './receiver_messages.mjs';

const FirstFailure = 0x80000000;

// A page of its own with the simulator, and what the functions below use.
function simulatorTest(name, body) {
    pageTest(name, [], async (page) => {
        await page.open('tests/page/blank.html');
        await page.run(async () => {
            window.simulator = (await import('/examples/page/receiver_simulator.mjs')).simulator;
            window.slots = [null, null];
            window.received = [];
            chrome.webview.addEventListener('sharedbufferreceived', (event) => {
                slots[event.additionalData.slot] = event.getBuffer();
            });
            chrome.webview.addEventListener('message', (event) => received.push(JSON.stringify(event.data)));
            window.post = (...messages) => messages.forEach((message) => chrome.webview.postMessage(message));
            window.panel = document.querySelector('receiver-simulator').shadowRoot;
        });
        await body(page);
    });
}

function connectedTest(name, body) {
    simulatorTest(name, async (page) => {
        await page.run(() => post('ready'));
        await page.waitFor(() => slots[0] && slots[1] && received.length === 1);
        await body(page);
    });
}

const counts = (page) => page.run(() => simulator.counts);
const handled = async (page, count) => page.waitFor((wanted) =>
    simulator.counts.frames + simulator.counts.refused >= wanted, count);
const frameMessage = (slot) => `frame:${slot}:RGBX:64:32:0:0:0:64:32:0,256`;

// --- In the page ---

pageTest('does nothing in the receiver', [FakeHost], async (page) => {
    await page.open('tests/page/blank.html');
    assert.deepEqual(await page.run(async () => {
        const before = chrome.webview;
        const { simulator } = await import('/examples/page/receiver_simulator.mjs');
        return [simulator, chrome.webview === before, document.querySelector('receiver-simulator')];
    }), [null, true, null]);
});

simulatorTest('refuses what the receiver refuses', async (page) => {
    const failures = receiverMessages.filter(({ code }) => parseInt(code, 16) >= FirstFailure);
    const frames = receiverMessages.filter(({ code, message }) =>
        parseInt(code, 16) < FirstFailure && String(message).startsWith('frame:'));
    await page.run((messages) => post(...messages), receiverMessages.map(({ message }) => message));
    await page.waitFor((wanted) => simulator.counts.frames === wanted, frames.length);
    assert.deepEqual(await counts(page), { frames: frames.length, refused: failures.length, races: 0 });
    const refusals = await page.run(() => simulator.refusals);
    assert.deepEqual(refusals.map(({ message, code }) => [message, hexadecimal(code)]),
                     failures.map(({ message, code }) => [message, `0x${code}`]));
});

connectedTest('answers with the slots and the diagnostics', async (page) => {
    assert.deepEqual(await page.run(() => slots.map((slot) => [slot.constructor.name, slot.byteLength])),
                     [['ArrayBuffer', 8294400], ['ArrayBuffer', 8294400]]);
    assert.deepEqual(await page.run(() => received), [
        '{"type":"diagnostics","diagnostics":{"windowsVersion":"10.0.22631","buildNumber":22631,"architecture":"x64",' +
            '"osSupported":true,"webView2Ready":true,"virtualCameraRegistered":true,"appVersion":"0.1.3"}}',
    ]);
});

simulatorTest('answers in a later task, in the order of the messages', async (page) => {
    assert.deepEqual(await page.run(async () => {
        const seen = [];
        chrome.webview.addEventListener('sharedbufferreceived', ({ additionalData, source }) =>
            seen.push([`slot ${additionalData.slot}`, source === chrome.webview]));
        chrome.webview.addEventListener('message', ({ data, source }) =>
            seen.push([data.action ?? data.type, source === chrome.webview]));
        post('ready', 'media:record:start', 'media:record:stop', 'media:snapshot');
        seen.push(['posted', true]);
        while (seen.length < 7) {
            await new Promise((resolve) => setTimeout(resolve));
        }
        return seen;
    }), [
        'posted', 'slot 0', 'slot 1', 'diagnostics', 'recording-started', 'recording-stopped', 'snapshot',
    ].map((what) => [what, true]));
});

connectedTest('reports a camera application when it is ticked, and again after "ready"', async (page) => {
    const usage = (active) => `{"type":"virtual-camera-usage","active":${active}}`;
    const toggle = () => page.run(() => panel.getElementById('usage').click());
    const waitForLast = (text) => page.waitFor((wanted) => received.at(-1) === wanted, text);
    await toggle();
    await waitForLast(usage(true));
    await page.run(() => {
        received.length = 0;
        post('ready');
    });
    await waitForLast(usage(true));
    assert.equal(await page.run(() => received.length), 2);
    await toggle();
    await waitForLast(usage(false));
});

simulatorTest('does not report a camera application before "ready"', async (page) => {
    await page.run(() => {
        panel.getElementById('usage').click();
        post('ready');
    });
    await page.waitFor(() => received.length === 2);
    assert.match(await page.run(() => received[0]), /^{"type":"diagnostics"/);
});

connectedTest('makes captures fail when the disk is full', async (page) => {
    await page.run((frame) => post(frame, 'media:record:start'), frameMessage(0));
    await page.waitFor(() => received.length === 2);
    await page.run((frame) => {
        panel.getElementById('disk').click();
        post(frame, 'media:record:stop', 'media:snapshot');
    }, frameMessage(1));
    await page.waitFor(() => received.length === 5);
    assert.deepEqual((await page.run(() => received)).slice(1).map((text) => {
        const { action, success, error, path } = JSON.parse(text);
        return [action, success, error, path.replace(/^.*\\|-.*$/g, '')];
    }), [
        ['recording-started', true, 0, 'Vistel'], ['recording-failed', false, 0x80070070, 'Vistel'],
        ['recording-stopped', true, 1, ''], ['snapshot', false, 0x80070070, 'Vistel'],
    ]);
    assert.equal((await counts(page)).frames, 2);
});

connectedTest('keeps the memory of a slot that the page gives back', async (page) => {
    const [length, pictures] = await page.run(async (frame) => {
        const next = async (wanted) => {
            while (simulator.counts.frames < wanted) {
                await new Promise((resolve) => setTimeout(resolve));
            }
            return simulator.picture.bytes.slice(640 * 360, 640 * 360 + 8).join();
        };
        new Uint8Array(slots[0]).fill(200);
        post(frame);
        const first = await next(1);
        chrome.webview.releaseBuffer(slots[0]);
        post(frame);
        return [slots[0].byteLength, [first, await next(2)]];
    }, frameMessage(0));
    assert.equal(length, 0);
    assert.deepEqual(pictures, Array(2).fill(Array(8).fill(188).join()));
});

// --- Races ---

// A check that comes too late on a busy machine decides nothing, so that several tries are allowed. The picture has two
// rows, which takes no time.
const QuickFrame = 'frame:1:RGBX:64:32:0:0:0:4096:1:0,256';

connectedTest('counts a slot that is written again before it is read', async (page) => {
    await page.waitFor((frame) => {
        const { races } = simulator.counts;
        post(frame);
        ++new Uint8Array(slots[1])[100];
        post(frame);
        return simulator.counts.races > races;
    }, QuickFrame);
    assert.match(await page.run(() => panel.querySelector('li.bad').textContent),
                 /^A slot changed within 10 ms after its frame message/);
});

connectedTest('counts a slot that is written after its message', async (page) => {
    await page.waitFor((frame) => {
        post(frame);
        ++new Uint8Array(slots[1])[100];
        return simulator.counts.races > 0;
    }, QuickFrame);
});

connectedTest('counts no race when the slots are used alternately', async (page) => {
    await page.run((frames) => {
        for (let value = 1; value <= 6; ++value) {
            const bytes = new Uint8Array(slots[value % 2]);
            bytes[bytes.length - 1] = value; // after the frame
            post(frames[value % 2]);
        }
        new Uint8Array(slots[0])[100] = 0;
    }, [frameMessage(0), frameMessage(1)]);
    await handled(page, 6);
    assert.equal((await counts(page)).races, 0);
});

// --- Reasons ---

const Reasons = [
    ['media:snapshot', 'There is no picture yet: post a frame first'],
    [{ type: 'ready' }, 'The message is not a string'],
    ['quality:480p', '"480p" is none of 720p, 1080p'],
    ['window:orientation:', '"" is none of landscape, portrait, setup'],
    ['frame:2:NV12', 'The message names no slot: it begins with "frame:0:" or "frame:1:"'],
    ['frame:0:NV12:1279:720:0:0:0:1280:720:0,1280;921600,1280',
     'width 1279 is odd: pass copyTo() a rect with even edges'],
    ['frame:0:NV12:1280:2162:0:0:0:1280:720:0,1280;921600,1280', 'height 2162 is not between 1 and 2160'],
    ['frame:0:NV12:1280:720:false:0:0:1280:720:0,1280;921600,1280', 'flip "false" is neither 0 nor 1'],
    ['frame:0:NV12:1280:720:0:45:0:1280:720:0,1280;921600,1280', 'rotation 45 is none of 0, 90, 180, 270'],
    ['frame:0:NV12:1280:720:0:0:0:1280:720:0,0x500;921600,1280',
     'plane 0: stride "0x500" is no plain decimal number'],
    ['frame:0:NV12:1280:720:0:0:0:1280:720:0,1280;7833601,1280',
     'plane 1 ends 1 bytes after the slot of 8294400 bytes'],
    ['frame:0:nv12:1280:720:0:0:0:1280:720:0,1280;921600,1280',
     'format "nv12" is none of NV12, I420, I420A, RGBA, RGBX, BGRA, BGRX'],
    ['frame:0:NV12:1280:720:0:0:0:1280:720:0,1280', 'NV12 has 2 planes; the message has 1'],
    ['frame:0:NV12:1280:720:0:0,1280;921600,1280',
     'The message has 5 fields after the slot instead of 9: format, width, height, flip, rotation, mirror, ' +
     'display width, display height, planes'],
];

connectedTest('gives the reason for a refused message', async (page) => {
    await page.run((messages) => post(...messages), Reasons.map(([message]) => message));
    await handled(page, Reasons.length);
    assert.deepEqual((await page.run(() => simulator.refusals)).map(({ message, reason }) => [message, reason]),
                     Reasons);
});

simulatorTest('says that the slots are missing', async (page) => {
    await page.run((frame) => post(frame), frameMessage(0));
    await handled(page, 1);
    assert.equal((await page.run(() => simulator.refusals))[0].reason,
                 'The slot was not posted yet: post "ready" and wait for it');
});

simulatorTest('shows a text that is no command, except errors', async (page) => {
    await page.run(() => post('qualty:720p', 'error:The connection was lost', 'media:record:stop'));
    await page.waitFor(() => received.length === 1);
    assert.deepEqual(await page.run(() => [...panel.querySelectorAll('li')].map((line) => line.textContent)),
                     ['No recording was running', '"qualty:720p" is no command: it is only logged']);
    assert.deepEqual(await page.run(() => simulator.log), [
        'Web message: qualty:720p', 'Web message: error:The connection was lost', 'Recording stopped',
    ]);
});

// --- The panel ---

// Colors in the panel's picture: [x, y] of the camera's picture each.
const colorsAt = (page, places) => page.run((list) => {
    const context = panel.querySelector('canvas').getContext('2d');
    return list.map(([x, y]) => [...context.getImageData(x, y, 1, 1).data.slice(0, 3)]);
}, places);

connectedTest('shows what the camera shows', async (page) => {
    // Red on the left, blue on the right; rotated clockwise, red is above.
    await page.run((message) => {
        const pixels = new Uint32Array(slots[0]);
        for (let i = 0; i < 64 * 32; ++i) {
            pixels[i] = i % 64 < 32 ? 0xff0000ff : 0xffff0000;
        }
        post('quality:1080p', message);
    }, 'frame:0:RGBX:64:32:0:90:0:32:64:0,256');
    await page.waitFor(() => panel.querySelector('canvas').width === 1920);
    await page.waitFor(() => panel.getElementById('counts').textContent === 'Frames 1, refused 0, races 0');
    const near = ([red, green, blue], wanted) =>
        [red, green, blue].every((value, index) => Math.abs(value - wanted[index]) < 12);
    const [above, below, left, right] = await colorsAt(page, [[960, 100], [960, 980], [600, 540], [1320, 540]]);
    assert.ok(near(above, [255, 0, 0]), `above: ${above}`);
    assert.ok(near(below, [0, 0, 255]), `below: ${below}`);
    assert.ok(near(left, [0, 0, 0]) && near(right, [0, 0, 0]), `at the sides: ${left}, ${right}`);
    assert.equal(await page.run(() => panel.getElementById('state').textContent), 'Camera 1920 x 1080, window setup');
});

connectedTest('keeps the picture after a format that is none', async (page) => {
    const [before, after] = await page.run(async (frame) => {
        const hash = async () => [...new Uint8Array(await crypto.subtle.digest('SHA-256', simulator.picture.bytes))];
        new Uint8Array(slots[0]).fill(200);
        post(frame);
        while (simulator.counts.frames < 1) {
            await new Promise((resolve) => setTimeout(resolve));
        }
        const hashBefore = await hash();
        post('frame:0:YUY2:64:32:0:0:0:64:32:0,128');
        while (simulator.counts.refused < 1) {
            await new Promise((resolve) => setTimeout(resolve));
        }
        return [hashBefore, await hash()];
    }, frameMessage(0));
    assert.deepEqual(after, before);
});

connectedTest('counts repeated lines in place of repeating them', async (page) => {
    await page.run(() => post('frame:2', 'frame:3', 'quality:', 'quality:', 'quality:'));
    await handled(page, 5);
    assert.deepEqual(await page.run(() => [...panel.querySelectorAll('li')].map((line) => line.textContent)), [
        '"" is none of 720p, 1080p (0x80070057) (3 times)',
        'The message names no slot: it begins with "frame:0:" or "frame:1:" (0x80070057) (2 times)',
    ]);
});

// --- With the sample page ---

const SamplePage = 'examples/page/index.html';
const waitForFrames = (page, wanted) => page.waitFor(async (count) => {
    const { simulator } = await import('/examples/page/receiver_simulator.mjs');
    return simulator.counts.frames >= count;
}, wanted);

pageTest('starts with the sample page', [], async (page) => {
    await page.open(`${SamplePage}?simulator&record=0:1`);
    await waitForFrames(page, 10);
    await page.waitFor(() => document.getElementById('state').textContent === 'WebRTC connected');
    assert.equal(await page.run(() => document.getElementById('app-version').textContent), '0.1.3');
    await page.waitFor(() => /^\d\d:\d\d, \d+ frames, C:.*\.mp4$/.test(
        document.getElementById('recording-result').textContent));
    assert.equal(await page.run(async () =>
        (await import('/examples/page/receiver_simulator.mjs')).simulator.counts.refused), 0);
    assert.equal(await page.run(() => document.querySelectorAll('#event-list .bad').length), 0);
});

pageTest('starts with the sample page in one file from the disk', [], async (page) => {
    await page.openTestPicture('?simulator');
    await page.waitFor(() => {
        const { shadowRoot } = document.querySelector('receiver-simulator') ?? {};
        return /^Frames [1-9]/.test(shadowRoot?.getElementById('counts').textContent);
    });
});

pageTest('takes frames of the sample page while it is hidden', [], async (page) => {
    await page.open(`${SamplePage}?simulator`);
    await waitForFrames(page, 1);
    await page.hide();
    const before = await page.run(async () =>
        (await import('/examples/page/receiver_simulator.mjs')).simulator.counts.frames);
    await waitForFrames(page, before + 30);
});

pageTest('is offered by the sample page', [], async (page) => {
    await page.open(SamplePage);
    await page.waitFor(() => document.querySelector('button').disabled);
    await page.click('#notice a');
    await page.waitFor(() =>
        location.search === '?simulator' && Number(document.getElementById('posted')?.textContent) > 0);
});
