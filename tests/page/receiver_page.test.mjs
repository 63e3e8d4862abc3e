// The built-in page: what it shows, draws, sends through its loopback, and posts.
import assert from 'node:assert/strict';

import { FakeHost, PageProbe, pageTest } from './page_test.mjs';

const ReceiverPage = 'page/receiver_page.html';
const Amber = 'rgb(240, 180, 41)';
const Green = 'rgb(64, 209, 125)';

async function openAsProduct(page) {
    await page.openString(ReceiverPage);
    await page.waitForText('ready');
}

async function start(page) {
    await openAsProduct(page);
    await page.giveSlots();
}

function receiverTest(name, body, ...moreScripts) {
    pageTest(name, [FakeHost, PageProbe, ...moreScripts], body);
}

function styleOf(page, selector, ...properties) {
    return page.run((wanted, names) => {
        const style = getComputedStyle(document.querySelector(wanted));
        return names.map((name) => style.getPropertyValue(name));
    }, selector, properties);
}

const card = (page) => page.run(() => ['title', 'detail'].map((id) => document.getElementById(id).textContent));
const dotColor = async (page) => (await styleOf(page, '.dot', 'background-color'))[0];
const texts = (page) => page.run(() => host.texts);
const frames = (page) => page.run(() => host.frames);
const waitForFrames = (page, count) => page.waitFor((wanted) => host.frames.length >= wanted, count);
const waitForMoreFrames = async (page, count) => waitForFrames(page, (await frames(page)).length + count);

// A script that puts frames of the given formats, 64 x 32 each, in the place of the decoded ones. `crop` are the options
// with which VideoFrame makes a frame of another one.
function replaceFrames(formats, crop = {}) {
    return `window.MediaStreamTrackProcessor = class {
        constructor() {
            this.readable = new ReadableStream({
                start(controller) {
                    for (const format of ${JSON.stringify(formats)}) {
                        const whole = new VideoFrame(new Uint8Array(64 * 32 * 4), {
                            format, codedWidth: 64, codedHeight: 32, timestamp: 0,
                        });
                        controller.enqueue(new VideoFrame(whole, ${JSON.stringify(crop)}));
                        whole.close();
                    }
                },
            });
        }
    };`;
}

// --- What it shows ---

for (const open of ['openString', 'openFile', 'open']) {
    receiverTest(`shows its texts in their places and posts "ready" once, by ${open}`, async (page) => {
        await page[open](ReceiverPage);
        await page.waitForText('ready');
        assert.deepEqual(await page.run(() => ({
            mode: document.compatMode, language: document.documentElement.lang, characters: document.characterSet,
            viewport: document.querySelector('meta[name=viewport]').content,
        })), {
            mode: 'CSS1Compat', language: 'en', characters: 'UTF-8', viewport: 'width=device-width,initial-scale=1',
        });
        assert.deepEqual(await page.run(() => {
            const describe = (node) => [node.localName, node.id, node.className,
                node.children.length ? [...node.children].map(describe) : node.textContent];
            return describe(document.querySelector('main'));
        }), ['main', '', '', [
            ['h1', '', '', 'Vistel'],
            ['p', '', '', 'Windows receiver prototype'],
            ['div', 'status', 'card', [
                ['div', '', '', [
                    ['span', '', 'dot', ''],
                    ['strong', 'title', '', 'Starting receiver\u2026']]],
                ['p', 'detail', '', 'Preparing the browser video pipeline.']]]]]);
        // It needs nothing from elsewhere; the icon is the browser's own idea.
        assert.deepEqual(await page.run(() => performance.getEntriesByType('resource').map(({ name }) => name)
            .filter((name) => !name.endsWith('/favicon.ico'))), []);
        assert.deepEqual(await page.run(() => ['style', 'script'].map((name) =>
            document.querySelectorAll(name).length)), [1, 1]);
        assert.deepEqual(await page.run(() => host.posted), ['ready']);
    });
}

receiverTest('has its colors and measures', async (page) => {
    await openAsProduct(page);
    for (const [selector, expected] of Object.entries({
        ':root': { 'color-scheme': 'dark', 'font-family': 'system-ui, sans-serif' },
        body: {
            margin: '0px', 'background-color': 'rgb(17, 19, 26)', color: 'rgb(246, 247, 251)', display: 'grid',
            'place-items': 'center', 'font-family': 'system-ui, sans-serif',
        },
        h1: { 'font-size': '30px', margin: '0px 0px 8px' },
        p: { color: 'rgb(174, 181, 197)' },
        '.card': {
            'margin-top': '28px', padding: '22px', border: '1px solid rgb(48, 55, 71)', 'border-radius': '18px',
            'background-color': 'rgb(26, 30, 40)',
        },
        '.dot': {
            display: 'inline-block', width: '10px', height: '10px', 'border-radius': '50%', 'background-color': Amber,
            'margin-right': '9px', 'box-shadow': 'none',
        },
    })) {
        assert.deepEqual(await styleOf(page, selector, ...Object.keys(expected)), Object.values(expected), selector);
    }
});

receiverTest('fills the window and keeps its width', async (page) => {
    await openAsProduct(page);
    assert.ok(await page.run(() => document.body.getBoundingClientRect().height === innerHeight));
    const [size, lineHeight] = (await styleOf(page, 'p', 'font-size', 'line-height')).map(parseFloat);
    assert.equal(lineHeight, 1.5 * size);
    const widths = [];
    for (const width of [300, 667, 668, 900]) {
        await page.resize(width, 600);
        widths.push(await page.run(() => document.querySelector('main').getBoundingClientRect().width));
    }
    assert.deepEqual(widths, [252, 619, 620, 620]);
    // A lower window shows a part of the page, and the rest by scrolling.
    await page.resize(900, 100);
    assert.deepEqual(await page.run(() => {
        const [main, body] = ['main', 'body'].map((name) => document.querySelector(name).getBoundingClientRect());
        return [main.top, body.height - main.height, body.height > innerHeight,
            document.scrollingElement.scrollHeight - body.height];
    }), [0, 0, true, 0]);
});

receiverTest('runs without a secure context', async (page) => {
    await openAsProduct(page);
    assert.deepEqual(await page.run(() => [location.href, isSecureContext]), ['about:blank', false]);
    assert.deepEqual(await page.run(() => [
        'RTCPeerConnection', 'RTCRtpSender', 'MediaStreamTrackProcessor', 'VideoFrame', 'ReadableStream',
        'CanvasRenderingContext2D', 'requestAnimationFrame',
    ].filter((name) => !(name in window))), []);
    assert.ok(await page.run(() => 'captureStream' in HTMLCanvasElement.prototype &&
        'copyTo' in VideoFrame.prototype && 'contentHint' in MediaStreamTrack.prototype));
});

// --- The test pattern ---

receiverTest('draws the bar in steps and begins again', async (page) => {
    await openAsProduct(page);
    await page.run(() => probe.drawByHand());
    await page.giveSlots();
    await page.run(() => probe.draw(1500));
    const bars = await page.run(() => probe.fills.filter(({ style }) => style === '#f7cc55')
        .map(({ rectangle }) => rectangle));
    assert.equal(bars.length, 1501);
    assert.ok(bars.every((bar) => bar.slice(1).join() === '0,220,720'));
    const positions = bars.map(([x]) => x);
    assert.deepEqual([0, 107, 108].map((index) => positions[index]), [-220, 1278, -208]);
    assert.ok(positions.slice(1).every((x, index) => (x - positions[index] + 1500) % 1500 === 14));
    assert.ok(positions.every((x) => x >= -220 && x < 1280));
    const period = positions.slice(0, 750).join();
    assert.equal(positions.slice(750, 1500).join(), period);
    for (let shift = 1; shift < 750; ++shift) {
        assert.notEqual(positions.slice(shift, shift + 750).join(), period);
    }
});

receiverTest('draws background, bar and texts in order', async (page) => {
    await openAsProduct(page);
    await page.run(() => probe.drawByHand());
    await page.giveSlots();
    await page.run(() => probe.draw(1));
    const used = await page.run(() => probe.fills.map(({ style }) => style));
    const [gradient] = used;
    assert.deepEqual(used, [gradient, '#f7cc55', gradient, '#f7cc55']);
    assert.deepEqual(await page.run((number) => probe.gradients[number], gradient),
                     { line: [0, 0, 1280, 720], stops: [[0, '#112b4e'], [1, '#4fbb91']] });
    assert.deepEqual(await page.run(() => probe.fills[0].rectangle), [0, 0, 1280, 720]);
    const heading = { text: 'VISTEL WEBRTC', x: 60, y: 130, font: 'bold 82px system-ui', style: '#ffffff' };
    const number = (frame) => ({ text: `frame ${frame}`, x: 64, y: 190, font: '36px system-ui', style: '#ffffff' });
    assert.deepEqual(await page.run(() => probe.texts), [heading, number(0), heading, number(1)]);
});

receiverTest('goes on drawing with the display', async (page) => {
    await start(page);
    await page.waitFor(() => probe.texts.some(({ text }) => text === 'frame 30'));
});

// --- The loopback ---

receiverTest('captures the picture for sharpness', async (page) => {
    await start(page);
    await waitForFrames(page, 1);
    assert.deepEqual(await page.run(() => probe.captures.map(({ width, height, rate }) => [width, height, rate])),
                     [[1280, 720, 30]]);
    assert.ok(await page.run(() => probe.captures[0].stream.getVideoTracks()[0] === probe.sentTrack));
    assert.equal(await page.run(() => probe.sentHint), 'detail');
});

receiverTest('negotiates in order, with one encoding', async (page) => {
    await start(page);
    await waitForFrames(page, 1);
    assert.deepEqual(await page.run(() => probe.constructorArguments), [[], []]);
    const encoding = { maxBitrate: 8000000, scaleResolutionDownBy: 1 };
    assert.deepEqual(await page.run(() => probe.parameters.map(({ encodings }) => encodings)), [[encoding]]);
    assert.deepEqual(await page.run(() => probe.connections[0].getSenders().map((sender) =>
        sender.getParameters().encodings.map(({ maxBitrate, scaleResolutionDownBy }) =>
            ({ maxBitrate, scaleResolutionDownBy })))), [[encoding]]);
    assert.deepEqual(await page.run(() => probe.calls), [
        'sender.addTrack',
        'rtpSender.setParameters begins', 'rtpSender.setParameters ends',
        'sender.createOffer begins', 'sender.createOffer ends',
        'description: offer', 'sender.setLocalDescription begins', 'sender.setLocalDescription ends',
        'description: offer', 'receiver.setRemoteDescription begins', 'receiver.setRemoteDescription ends',
        'receiver.createAnswer begins', 'receiver.createAnswer ends',
        'description: answer', 'receiver.setLocalDescription begins', 'receiver.setLocalDescription ends',
        'description: answer', 'sender.setRemoteDescription begins', 'sender.setRemoteDescription ends',
    ]);
    const candidates = await page.run(() => probe.candidates);
    assert.deepEqual([...new Set(candidates.map(({ to }) => to))].sort(), ['receiver', 'sender']);
    assert.ok(candidates.every(({ candidate }) => candidate));
});

// The host may answer "ready" before postMessage returns.
receiverTest('listens for buffers before it posts "ready"', async (page) => {
    await page.openString(ReceiverPage);
    await waitForFrames(page, 1);
}, `const { postMessage } = chrome.webview;
    chrome.webview.postMessage = (text) => {
        postMessage(text);
        if (text === 'ready') {
            host.postBuffer(0);
            host.postBuffer(1);
        }
    };`);

receiverTest('starts once, however many buffers arrive', async (page) => {
    await start(page);
    await page.giveSlots();
    await waitForFrames(page, 4);
    await page.giveSlots();
    await waitForMoreFrames(page, 4);
    assert.deepEqual(await page.run(() => [probe.connections.length, probe.captures.length]), [2, 1]);
    assert.deepEqual(await texts(page), ['ready']);
    // The frames are in the new buffers.
    assert.ok(await page.run(() => host.buffers.every((buffer) => new Uint8Array(buffer).some((byte) => byte > 0))));
});

for (const first of [0, 1]) {
    receiverTest(`waits for the second buffer after buffer ${first}`, async (page) => {
        await openAsProduct(page);
        await page.run(async (slot) => {
            host.postBuffer(slot);
            host.postBuffer(slot);
            for (let i = 0; i < 3; ++i) {
                await new Promise((resolve) => requestAnimationFrame(resolve));
            }
        }, first);
        assert.deepEqual(await page.run(() => [probe.connections, probe.captures, probe.fills].map((list) =>
            list.length)), [0, 0, 0]);
        assert.equal((await card(page))[0], 'Starting receiver\u2026');
        await page.run((slot) => host.postBuffer(slot), 1 - first);
        await waitForFrames(page, 1);
    });
}

// --- Frames ---

receiverTest('turns green when the track arrives', async (page) => {
    await openAsProduct(page);
    assert.equal(await dotColor(page), Amber);
    await page.giveSlots();
    await page.waitFor(() => document.getElementById('title').textContent === 'WebRTC video connected');
    assert.equal(await page.run(() => document.getElementById('status').className), 'card ready');
    assert.equal(await page.run(() => document.getElementById('detail').innerHTML),
                 'Decoded WebRTC frames are entering <code>Vistel Virtual Camera</code>.');
    assert.deepEqual(await styleOf(page, '.dot', 'background-color', 'box-shadow'),
                     [Green, 'rgba(64, 209, 125, 0.533) 0px 0px 14px 0px']);
    assert.deepEqual(await styleOf(page, 'code', 'color'), ['rgb(120, 169, 255)']);
});

receiverTest('fills the slots in turn and names them in the short form', async (page) => {
    await start(page);
    await waitForFrames(page, 6);
    const layout = 'I420:1280:720:0:0,1280;921600,640;1152000,640';
    for (const [index, frame] of (await frames(page)).entries()) {
        assert.equal(frame, `frame:${index % 2}:${layout}`);
    }
    // The picture is really there: blue-green with light and dark in it.
    for (const slot of [0, 1]) {
        const [lowest, highest] = await page.run((index) => {
            const luma = new Uint8Array(host.buffers[index], 0, 1280 * 720);
            return [luma.reduce((a, b) => Math.min(a, b)), luma.reduce((a, b) => Math.max(a, b))];
        }, slot);
        assert.ok(lowest < 80 && highest > 200, `${lowest} to ${highest}`);
    }
});

receiverTest('names as many planes as the format has', async (page) => {
    await start(page);
    await waitForFrames(page, 7);
    assert.deepEqual(await frames(page), [
        'frame:0:NV12:64:32:0:0,64;2048,64',
        'frame:1:I420:64:32:0:0,64;2048,32;2560,32',
        'frame:0:I420A:64:32:0:0,64;2048,32;2560,32;3072,64',
        'frame:1:RGBA:64:32:0:0,256',
        'frame:0:RGBX:64:32:0:0,256',
        'frame:1:BGRA:64:32:0:0,256',
        'frame:0:BGRX:64:32:0:0,256',
    ]);
    await page.waitFor(() => probe.frames.length === 7 && probe.openFrames === 0);
}, replaceFrames(['NV12', 'I420', 'I420A', 'RGBA', 'RGBX', 'BGRA', 'BGRX']));

receiverTest('posts the visible part of a frame with the size of the whole', async (page) => {
    await start(page);
    await waitForFrames(page, 2);
    assert.deepEqual(await frames(page), ['frame:0:I420:64:32:0:0,32;512,16;640,16', 'frame:1:RGBA:64:32:0:0,128']);
}, replaceFrames(['I420', 'RGBA'], {
    visibleRect: { x: 4, y: 2, width: 32, height: 16 }, displayWidth: 90, displayHeight: 45,
}));

receiverTest('closes every frame', async (page) => {
    await start(page);
    await waitForFrames(page, 21);
    // The newest may be on its way into a slot.
    const [read, open] = await page.run(() => [probe.frames.length, probe.openFrames]);
    assert.ok(read > 20 && open <= 1, `${read} read, ${open} open`);
});

receiverTest('ignores everything else that the host posts', async (page) => {
    await start(page);
    await waitForFrames(page, 1);
    const shown = await card(page);
    await page.postJson({ type: 'diagnostics', diagnostics: { windowsVersion: '10.0.22631', appVersion: '0.1.3' } });
    await page.postJson({ type: 'virtual-camera-usage', active: true });
    await page.postMediaResult('snapshot', false, '', 3222091478);
    await page.postJson('text');
    await waitForMoreFrames(page, 4);
    assert.deepEqual(await card(page), shown);
    assert.deepEqual(await texts(page), ['ready']);
});

receiverTest('begins again after a reload', async (page) => {
    await page.open(ReceiverPage);
    await page.giveSlots();
    await waitForFrames(page, 3);
    await page.reload();
    assert.deepEqual(await page.run(() => host.posted), ['ready']);
    assert.equal((await card(page))[0], 'Starting receiver\u2026');
    await page.giveSlots();
    await waitForFrames(page, 1);
    assert.ok((await frames(page))[0].startsWith('frame:0:'));
});

// --- Failures ---

async function waitForFailure(page, message) {
    await page.waitFor(() => document.getElementById('title').textContent === 'Receiver error');
    await page.waitForText(`error:${message}`);
    assert.deepEqual(await card(page), ['Receiver error', message]);
    assert.deepEqual(await texts(page), ['ready', `error:${message}`]);
}

receiverTest('reports a missing track processor', async (page) => {
    await start(page);
    await waitForFailure(page, 'MediaStreamTrackProcessor is unavailable');
    assert.equal(await dotColor(page), Green);
    assert.deepEqual(await frames(page), []);
    const drawn = await page.run(() => probe.texts.length);
    await page.waitFor((count) => probe.texts.length > count, drawn);
}, 'delete window.MediaStreamTrackProcessor;');

receiverTest('reports an unsupported format and stops', async (page) => {
    await start(page);
    await waitForFailure(page, 'Unsupported decoded format: I422');
    assert.equal(await dotColor(page), Green);
    assert.equal((await frames(page)).length, 1);
    assert.deepEqual(await page.run(() => [probe.frames.length, probe.openFrames]), [2, 0]);
}, replaceFrames(['NV12', 'I422', 'NV12']));

// Frames that only have a format take the place of the decoded ones: most of these formats no decoder here produces.
receiverTest('supports no other format of WebCodecs', async (page) => {
    const planar = ['I420', 'I422', 'I444'].flatMap((format) => ['', 'A'].flatMap((alpha) =>
        ['', 'P10', 'P12'].map((depth) => `${format}${alpha}${depth}`)));
    const others = [...planar, 'NV21', 'NV12A', 'rgba', null].filter((format) => !/^I420A?$/.test(format));
    await start(page);
    for (const format of others) {
        await page.run((next) => {
            window.nextFormat = next;
            probe.connections[1].ontrack({ track: null });
        }, format);
        await page.waitForText(`error:Unsupported decoded format: ${format}`);
    }
    assert.deepEqual(await frames(page), []);
    assert.ok(await page.run((count) => window.closedFrames >= count, others.length));
}, `window.nextFormat = 'I422';
    window.closedFrames = 0;
    window.MediaStreamTrackProcessor = class {
        constructor() {
            const format = window.nextFormat;
            this.readable = new ReadableStream({
                start(controller) {
                    controller.enqueue({
                        format, codedWidth: 64, codedHeight: 32, copyTo: async () => [{ offset: 0, stride: 64 }],
                        close: () => ++window.closedFrames,
                    });
                },
            });
        }
    };`);

receiverTest('reports a slot that is too small and stops', async (page) => {
    await openAsProduct(page);
    await page.giveSlots(1000);
    await page.waitFor(() => document.getElementById('title').textContent === 'Receiver error');
    const [, message] = await card(page);
    await waitForFailure(page, message);
    assert.match(message, /copyTo/);
    assert.deepEqual(await frames(page), []);
    assert.deepEqual(await page.run(() => [probe.frames.length, probe.openFrames]), [1, 0]);
    assert.equal(await dotColor(page), Green);
});

receiverTest('reports a failing negotiation and stays amber', async (page) => {
    await start(page);
    await waitForFailure(page, '<b>no answer</b>');
    assert.equal(await dotColor(page), Amber);
    assert.equal(await page.run(() => document.querySelector('#detail b')), null);
}, `RTCPeerConnection.prototype.createAnswer = async () => {
        throw new Error('<b>no answer</b>');
    };
    // The track arrives with the offer; without it only the failure is shown.
    Object.defineProperty(RTCPeerConnection.prototype, 'ontrack', { set() {} });`);

for (const side of ['first', 'second']) {
    receiverTest(`reports a candidate that the ${side} connection refuses`, async (page) => {
        await start(page);
        await page.waitForText('error:no candidate');
        assert.deepEqual(await card(page), ['Receiver error', 'no candidate']);
    }, `const connections = [];
        let refused = false;
        window.RTCPeerConnection = class extends RTCPeerConnection {
            constructor() {
                super();
                connections.push(this);
            }
            async addIceCandidate(candidate) {
                if (connections.indexOf(this) === ${side === 'first' ? 0 : 1} && !refused) {
                    refused = true;
                    throw new Error('no candidate');
                }
                return super.addIceCandidate(candidate);
            }
        };`);
}
