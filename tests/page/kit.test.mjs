// The page author's kit, examples/page/vistel_receiver.mjs: what it posts, receives and promises. And the pages in the
// protocol's document, as they stand there.
import assert from 'node:assert/strict';
import { cp, mkdir, mkdtemp, rm, writeFile } from 'node:fs/promises';
import { join, relative } from 'node:path';

import { SourceFolder } from '../rig/prefix.mjs';
import { codeBlocks } from './code_blocks.mjs';
import { FakeHost, pageTest } from './page_test.mjs';

const SlotBytes = 8294400;
const AlreadyExists = 0x800700B7;
const NotAvailable = 0xC00D36D6;
const NoAnswer = 'the receiver did not answer; its log is %TEMP%\\vistel-receiver.log';
const Closed = 'Error: The VistelReceiver is closed';
const Jpeg = 'C:\\Users\\a\\Pictures\\Vistel\\Vistel-20240305-142709-042.jpg';
const Mp4 = 'C:\\Users\\a\\Videos\\Vistel\\Vistel-20240305-142710-000.mp4';

// What the functions below use: the kit's exports, one receiver, and the events that it has dispatched.
async function prepare() {
    window.kit = await import('/examples/page/vistel_receiver.mjs');
    window.received = [];
    window.receiver = new kit.VistelReceiver();
    for (const type of ['slots', 'diagnostics', 'usage', 'media-result']) {
        receiver.addEventListener(type, ({ detail }) => received.push([type, detail]));
    }
    // A frame whose every byte differs from its neighbors.
    window.makeFrame = (format, codedWidth, codedHeight, more = {}) => {
        const bytes = new Uint8Array(codedWidth * codedHeight * (format.includes('P1') ? 6 : 4));
        bytes.forEach((_, index) => {
            bytes[index] = index * 7;
        });
        return new VideoFrame(bytes, { format, codedWidth, codedHeight, timestamp: 0, ...more });
    };
    // The state of a promise after everything that was pending has run.
    window.settle = async (promise) => {
        const state = { state: 'pending' };
        promise.then((value) => Object.assign(state, { state: 'resolved', value }),
            (error) => Object.assign(state, { state: 'rejected', error: error.message, kind: error.constructor.name }));
        await new Promise((resolve) => setTimeout(resolve));
        return state;
    };
    window.outcome = (promise) => promise.catch((error) => `${error.constructor.name}: ${error.message}`);
    // Copies wait from here on until they are let go.
    window.copies = [];
    window.holdCopies = () => {
        const { copyTo } = VideoFrame.prototype;
        VideoFrame.prototype.copyTo = async function (...values) {
            await new Promise((resolve, reject) => copies.push({ width: this.codedWidth, resolve, reject }));
            return copyTo.apply(this, values);
        };
    };
    // Long waits end at once from here on.
    window.endLongWaits = () => {
        const { setTimeout } = window;
        window.setTimeout = (callback, ms, ...rest) => setTimeout(callback, ms > 1000 ? 1 : ms, ...rest);
    };
}

function kitTest(name, body) {
    pageTest(name, [FakeHost], async (page) => {
        await page.open('tests/page/blank.html');
        await page.run(prepare);
        await body(page);
    });
}

function connectedTest(name, body) {
    kitTest(name, async (page) => {
        await page.run(async () => {
            const done = receiver.connect();
            host.postBuffer(0);
            host.postBuffer(1);
            await done;
            host.posted.length = 0;
            received.length = 0;
        });
        await body(page);
    });
}

const posted = (page) => page.run(() => host.posted);
const received = (page) => page.run(() => window.received);

// --- Connecting ---

pageTest('is not available in a browser without a host', [], async (page) => {
    await page.open('tests/page/blank.html');
    assert.deepEqual(await page.run(async () => {
        const { VistelReceiver } = await import('/examples/page/vistel_receiver.mjs');
        try {
            return [VistelReceiver.available, new VistelReceiver()];
        } catch (error) {
            return [VistelReceiver.available, error.message];
        }
    }), [false, 'The page is not shown by the receiver']);
});

kitTest('is available in the receiver and posts nothing by itself', async (page) => {
    assert.deepEqual(
        await page.run(() => [kit.VistelReceiver.available, host.posted, receiver.connected, receiver.slotSizes]),
        [true, [], false, [0, 0]]);
});

for (const first of [0, 1]) {
    kitTest(`connects when both slots are there, slot ${first} first`, async (page) => {
        assert.deepEqual(await page.run(async (slot) => {
            const done = receiver.connect();
            const steps = [[...host.posted]];
            host.postBuffer(slot);
            steps.push((await settle(done)).state, receiver.connected);
            host.postBuffer(1 - slot);
            steps.push((await settle(done)).state, receiver.connected, receiver.slotSizes);
            return steps;
        }, first), [['ready'], 'pending', false, 'resolved', true, [SlotBytes, SlotBytes]]);
        assert.deepEqual(await received(page), [['slots', null]]);
    });
}

kitTest('ignores other buffers', async (page) => {
    assert.deepEqual(await page.run(async () => {
        const done = receiver.connect();
        host.postBuffer(0);
        for (const data of [{ slot: 2 }, { slot: '1' }, { slot: null }, {}, undefined, null]) {
            host.postBufferWith(data, new ArrayBuffer(8));
        }
        return [(await settle(done)).state, receiver.slotSizes];
    }), ['pending', [SlotBytes, 0]]);
});

connectedTest('connects again with new slots', async (page) => {
    assert.deepEqual(await page.run(async () => {
        const done = receiver.connect();
        const steps = [receiver.connected, receiver.slotSizes];
        host.postBuffer(0, 1000);
        host.postBuffer(1, 2000);
        await done;
        return [...steps, host.posted, receiver.slotSizes, received];
    }), [false, [0, 0], ['ready'], [1000, 2000], [['slots', null]]]);
});

connectedTest('takes slots that are replaced without a request', async (page) => {
    assert.deepEqual(await page.run(() => {
        host.postBuffer(0, 1000);
        host.postBuffer(1, 2000);
        return receiver.slotSizes;
    }), [1000, 2000]);
});

kitTest('reports that no slots arrive', async (page) => {
    assert.equal(await page.run(() => {
        endLongWaits();
        return outcome(receiver.connect());
    }), `Error: ready: ${NoAnswer}`);
    assert.equal(await page.run(async () => {
        const done = receiver.connect();
        host.postBuffer(0);
        host.postBuffer(1);
        return (await settle(done)).state;
    }), 'resolved');
});

kitTest('has a time limit of its own for the slots', async (page) => {
    assert.deepEqual(await page.run(async () => {
        const limits = [];
        const { setTimeout } = window;
        window.setTimeout = (callback, ms, ...rest) => {
            limits.push(ms);
            return setTimeout(callback, 0, ...rest);
        };
        await outcome(receiver.connect());
        await outcome(receiver.connect({ timeoutMs: 70000 }));
        window.setTimeout = setTimeout;
        return limits.filter((ms) => ms > 0); // The host's timers have none.
    }), [5000, 70000]);
});

kitTest('asks for slots once while it waits for them', async (page) => {
    assert.deepEqual(await page.run(async () => {
        const first = receiver.connect();
        host.postBuffer(0);
        const second = receiver.connect();
        host.postBuffer(1);
        await Promise.all([first, second]);
        const steps = [[...host.posted], receiver.connected];
        const third = receiver.connect();
        return [...steps, (await settle(third)).state, host.posted];
    }), [['ready'], true, 'pending', ['ready', 'ready']]);
});

const waitForCopies = (page, count) => page.waitFor((wanted) => copies.length === wanted, count);

connectedTest('gives old slots back', async (page) => {
    await page.run(() => {
        holdCopies();
        window.copying = receiver.postFrame(makeFrame('I420', 64, 32));
    });
    await waitForCopies(page, 1);
    assert.deepEqual(await page.run(async () => {
        const [first, second] = host.buffers;
        const done = receiver.connect();
        const steps = [host.released.map((buffer) => buffer === second)]; // The copy needs the other one.
        copies[0].resolve();
        await copying;
        steps.push(host.released.map((buffer) => buffer === first));
        host.postBuffer(0);
        host.postBuffer(1);
        await done;
        const third = host.buffers[0];
        host.postBuffer(0);
        return [...steps, host.released.length, host.released[2] === third];
    }), [[true], [false, true], 3, true]);
});

connectedTest('works without the means to give slots back', async (page) => {
    assert.equal(await page.run(async () => {
        delete chrome.webview.releaseBuffer;
        const done = receiver.connect();
        host.postBuffer(0);
        host.postBuffer(1);
        await done;
        return receiver.postFrame(makeFrame('I420', 64, 32));
    }), true);
});

kitTest('is the only one of its page until it is closed', async (page) => {
    assert.deepEqual(await page.run(async () => {
        const copy = await import('/examples/page/vistel_receiver.mjs?copy');
        const make = ({ VistelReceiver }) => {
            try {
                return new VistelReceiver() instanceof EventTarget;
            } catch (error) {
                return error.message;
            }
        };
        const steps = [copy !== kit, make(kit), make(copy)];
        receiver.close();
        steps.push(make(copy), make(copy), make(kit));
        receiver.close();
        return [...steps, make(kit)];
    }), [true, ...Array(2).fill('This page has a VistelReceiver already; close() it first'), true,
         ...Array(3).fill('This page has a VistelReceiver already; close() it first')]);
});

for (const how of ['close()', 'its signal']) {
    kitTest(`ends everything with ${how}`, async (page) => {
        assert.deepEqual(await page.run(async (bySignal) => {
            receiver.close();
            const controller = new AbortController();
            window.receiver = new kit.VistelReceiver({ signal: controller.signal });
            for (const type of ['slots', 'diagnostics', 'usage', 'media-result']) {
                receiver.addEventListener(type, ({ detail }) => received.push([type, detail]));
            }
            host.postBuffer(0);
            host.postBuffer(1);
            const pending = [receiver.connect(), receiver.takeSnapshot(), receiver.stopRecording()];
            host.postBuffer(0);
            receiver.setQuality('1080p');
            if (bySignal) {
                controller.abort();
            } else {
                receiver.close();
            }
            const outcomes = await Promise.all(pending.map(outcome));
            outcomes.push(await outcome(receiver.connect()), await outcome(receiver.takeSnapshot()));
            host.postBuffer(1);
            host.postJson({ type: 'virtual-camera-usage', active: true });
            host.postMediaResult('snapshot', true, 'a', 0);
            return [outcomes, await receiver.postFrame(makeFrame('I420', 64, 32)), received, host.posted,
                host.released.length];
        }, how !== 'close()'), [
            Array(5).fill(Closed), false, [['slots', null]], ['ready', 'media:snapshot'], 3,
        ]);
    });
}

const listenerTypes = (page, ...expressions) => Promise.all(expressions.map((one) => page.listenerTypes(one)));

for (const how of ['close()', 'its signal']) {
    connectedTest(`removes its listeners with ${how}`, async (page) => {
        await page.run(() => {
            receiver.close();
            window.stopper = new AbortController();
            window.feedStopper = new AbortController();
            window.receiver = new kit.VistelReceiver({ signal: stopper.signal });
            window.feeding = receiver.feed(new MediaStreamTrackGenerator({ kind: 'video' }),
                                           { signal: feedStopper.signal });
            window.connecting = outcome(receiver.connect());
        });
        const all = () => listenerTypes(page, 'chrome.webview', 'stopper.signal', 'feedStopper.signal', 'receiver');
        assert.deepEqual(await all(), [['message', 'sharedbufferreceived'], ['abort'], ['abort'], ['slots']]);
        await page.run(async (bySignal) => {
            if (bySignal) {
                stopper.abort();
            } else {
                receiver.close();
            }
            await Promise.all([feeding, connecting]);
        }, how !== 'close()');
        assert.deepEqual(await all(), [[], [], [], []]);
    });
}

connectedTest('leaves no listener of a track that has ended', async (page) => {
    await page.run(async () => {
        window.stopper = new AbortController();
        const track = new MediaStreamTrackGenerator({ kind: 'video' });
        const feeding = receiver.feed(track, { signal: stopper.signal });
        track.stop();
        await feeding;
    });
    assert.deepEqual(await listenerTypes(page, 'stopper.signal'), [[]]);
});

kitTest('is not made with a signal that has ended', async (page) => {
    assert.equal(await page.run(() => {
        receiver.close();
        return outcome((async () => new kit.VistelReceiver({ signal: AbortSignal.abort() }))());
    }), 'DOMException: signal is aborted without reason');
    assert.equal(await page.run(() => new kit.VistelReceiver() !== null), true);
});

// --- Frames ---

const Visible31x17 = { visibleRect: { x: 2, y: 4, width: 31, height: 17 } };
const FullRange601 = { colorSpace: { matrix: 'smpte170m', fullRange: true } };
const Limited601 = { colorSpace: { matrix: 'smpte170m', fullRange: false } };
const Limited709 = { colorSpace: { matrix: 'bt709', fullRange: false } };
const Frames = [
    [['I420', 64, 32], {}, 'I420:64:32:0:0:0:64:32:0,64;2048,32;2560,32'],
    [['I420A', 64, 32], {}, 'I420A:64:32:0:0:0:64:32:0,64;2048,32;2560,32;3072,64'],
    [['NV12', 64, 32], {}, 'NV12:64:32:0:0:0:64:32:0,64;2048,64'],
    [['RGBA', 64, 32], {}, 'RGBA:64:32:0:0:0:64:32:0,256'],
    [['RGBX', 64, 32], {}, 'RGBX:64:32:0:0:0:64:32:0,256'],
    [['BGRA', 64, 32], {}, 'BGRA:64:32:0:0:0:64:32:0,256'],
    [['BGRX', 64, 32], {}, 'BGRX:64:32:0:0:0:64:32:0,256'],
    // Copied in a format that the receiver accepts.
    [['I422', 64, 32], {}, 'RGBX:64:32:0:0:0:64:32:0,256'],
    [['I444', 64, 32], {}, 'RGBX:64:32:0:0:0:64:32:0,256'],
    [['I422A', 64, 32], {}, 'RGBX:64:32:0:0:0:64:32:0,256'],
    [['I420P10', 64, 32], {}, 'RGBX:64:32:0:0:0:64:32:0,256'],
    [['I444P12', 64, 32], {}, 'RGBX:64:32:0:0:0:64:32:0,256'],
    // The display size is that of the rotated picture.
    [['I420', 64, 32, { rotation: 90 }], {}, 'I420:64:32:0:90:0:32:64:0,64;2048,32;2560,32'],
    [['I420', 64, 32, { rotation: 180 }], {}, 'I420:64:32:0:180:0:64:32:0,64;2048,32;2560,32'],
    [['I420', 64, 32, { rotation: 270, flip: true }], {}, 'I420:64:32:1:270:0:32:64:0,64;2048,32;2560,32'],
    [['I420', 64, 32, { flip: true }], {}, 'I420:64:32:1:0:0:64:32:0,64;2048,32;2560,32'],
    [['I420', 64, 32], { mirror: true }, 'I420:64:32:0:0:1:64:32:0,64;2048,32;2560,32'],
    [['I420', 64, 32, { flip: true }], { mirror: true }, 'I420:64:32:1:0:1:64:32:0,64;2048,32;2560,32'],
    // Pixels that are not square.
    [['I420', 64, 32, { displayWidth: 100, displayHeight: 30 }], {}, 'I420:64:32:0:0:0:100:30:0,64;2048,32;2560,32'],
    // Only the visible part is copied, cut to even edges.
    [['I420', 64, 32, Visible31x17], {}, 'I420:30:16:0:0:0:31:17:0,30;480,15;600,15'],
    // Colors other than BT.601 limited range are sent as RGB if they are to be exact.
    [['I420', 64, 32, Limited709], { exactColors: true }, 'RGBX:64:32:0:0:0:64:32:0,256'],
    [['I420', 64, 32, FullRange601], { exactColors: true }, 'RGBX:64:32:0:0:0:64:32:0,256'],
    [['I420', 64, 32, Limited601], { exactColors: true }, 'I420:64:32:0:0:0:64:32:0,64;2048,32;2560,32'],
    [['I420', 64, 32, Limited709], {}, 'I420:64:32:0:0:0:64:32:0,64;2048,32;2560,32'],
    [['BGRA', 64, 32], { exactColors: true }, 'BGRA:64:32:0:0:0:64:32:0,256'],
];

connectedTest('describes frames', async (page) => {
    for (const [index, [frame, options, expected]] of Frames.entries()) {
        assert.deepEqual(await page.run(async (values, postOptions) => {
            const videoFrame = makeFrame(...values);
            return [await receiver.postFrame(videoFrame, postOptions), host.posted.at(-1), videoFrame.codedWidth];
        }, frame, options), [true, `frame:${index % 2}:${expected}`, 0], JSON.stringify([frame, options]));
    }
    assert.equal((await posted(page)).length, Frames.length);
});

kitTest('cuts to even edges inside the visible rectangle', async (page) => {
    for (const [visible, expected] of [
        [[0, 0, 64, 32], [0, 0, 64, 32]],
        [[0, 0, 63, 31], [0, 0, 62, 30]],
        [[1, 3, 32, 16], [2, 4, 30, 14]],
        [[1, 3, 33, 17], [2, 4, 32, 16]],
        [[2, 4, 1, 1], [2, 4, 0, 0]],
    ]) {
        assert.deepEqual(await page.run((values) => {
            const { x, y, width, height } = kit.copyRectangle(new DOMRectReadOnly(...values));
            return [x, y, width, height];
        }, visible), expected, visible.join());
    }
});

kitTest('makes the text of any picture', async (page) => {
    assert.equal(await page.run((picture) => kit.frameMessage(picture), {
        slot: 1, format: 'NV12', width: 1280, height: 720, flip: true, rotation: 270, mirror: false,
        displayWidth: 720, displayHeight: 1280, planes: [{ offset: 0, stride: 1280 }, { offset: 921600, stride: 1280 }],
    }), 'frame:1:NV12:1280:720:1:270:0:720:1280:0,1280;921600,1280');
});

connectedTest('copies the picture into the slot that it names', async (page) => {
    assert.deepEqual(await page.run(async () => {
        const wrong = [];
        for (const slot of [0, 1, 0]) {
            const whole = makeFrame('I420', 64, 32);
            const bytes = new Uint8Array(64 * 32 * 3 / 2);
            await whole.copyTo(bytes);
            whole.close();
            const visibleRect = { x: 2, y: 4 + 2 * slot, width: 30, height: 16 };
            await receiver.postFrame(makeFrame('I420', 64, 32, { visibleRect }));
            if (receiver.lastPicture.slot !== slot) {
                wrong.push(`slot ${receiver.lastPicture.slot}`);
            }
            const stored = new Uint8Array(host.buffers[slot]);
            const chroma = receiver.lastPicture.planes[1];
            for (let row = 0; row < 16; ++row) {
                for (let column = 0; column < 30; ++column) {
                    if (stored[row * 30 + column] !== bytes[(visibleRect.y + row) * 64 + 2 + column]) {
                        wrong.push(`luma ${column}, ${row}`);
                    }
                    if (stored[chroma.offset + (row >> 1) * chroma.stride + (column >> 1)] !==
                        bytes[64 * 32 + (visibleRect.y + row >> 1) * 32 + (2 + column >> 1)]) {
                        wrong.push(`chroma ${column}, ${row}`);
                    }
                }
            }
        }
        return [wrong, host.frames.map((text) => text.slice(0, 8)), receiver.framesPosted, receiver.framesDropped];
    }), [[], ['frame:0:', 'frame:1:', 'frame:0:'], 3, 0]);
});

connectedTest('fills a slot to the last byte', async (page) => {
    assert.equal(await page.run(() => receiver.postFrame(makeFrame('RGBA', 1920, 1080))), true);
    assert.deepEqual(await posted(page), ['frame:0:RGBA:1920:1080:0:0:0:1920:1080:0,7680']);
});

kitTest('drops frames while there are no slots', async (page) => {
    assert.deepEqual(await page.run(async () => {
        host.postBuffer(0);
        const frame = makeFrame('I420', 64, 32);
        return [await receiver.postFrame(frame), frame.codedWidth, receiver.framesDropped, host.posted];
    }), [false, 0, 1, []]);
});

const postSmallFrame = (page) => page.run(() => receiver.postFrame(makeFrame('I420', 64, 32)));
const widths = (page) => page.run(() => host.frames.map((text) => Number(text.split(':')[3])));

connectedTest('posts the newest of the frames that come while another is copied', async (page) => {
    await page.run(() => {
        holdCopies();
        window.postWide = (width) => receiver.postFrame(makeFrame('I420', width, 32));
        window.posting = [postWide(64)];
    });
    await waitForCopies(page, 1);
    await page.run(() => {
        posting.push(postWide(66), postWide(68));
        copies[0].resolve();
    });
    await waitForCopies(page, 2);
    assert.deepEqual(await page.run(() => {
        copies[1].resolve();
        return Promise.all(posting);
    }), [true, false, true]);
    assert.deepEqual(await widths(page), [64, 68]);
    assert.deepEqual(await page.run(() => [copies.length, receiver.drops]), [2, { busy: 1, noSlot: 0, failed: 0 }]);
});

// Posts two frames of widths 64 and 66, one to each slot, then calls `body` with a clock and timers that the test moves.
function burstTest(name, body) {
    connectedTest(name, async (page) => {
        await page.run(async () => {
            window.nowMs = 5000;
            performance.now = () => nowMs;
            window.timers = [];
            const { setTimeout } = window;
            window.setTimeout = (callback, ms, ...rest) =>
                (ms > 0 && ms < 1000 ? timers.push({ callback, ms }) : setTimeout(callback, ms, ...rest));
            window.post = (width, options) => receiver.postFrame(makeFrame('I420', width, 32), options);
            await post(64);
            nowMs += 5;
            await post(66);
        });
        await body(page);
    });
}

burstTest('writes no slot again before it could be read', async (page) => {
    assert.deepEqual(await page.run(async () => {
        const posting = [post(68)];
        nowMs += 10;
        posting.push(post(70));
        posting.push(post(72));
        await settle(posting[2]);
        const steps = [timers.map(({ ms }) => ms), host.frames.length];
        nowMs += 1; // the 16th since the first frame
        timers.at(-1).callback();
        return [...steps, await Promise.all(posting)];
    }), [[11, 1], 2, [false, false, true]]);
    assert.deepEqual(await widths(page), [64, 66, 72]);
});

burstTest('waits for no timer when the next frame comes', async (page) => {
    assert.deepEqual(await page.run(async () => {
        const waiting = post(68);
        await settle(waiting);
        nowMs += 11;
        const results = [await post(70), await waiting, timers.length];
        nowMs += 5;
        return [...results, await post(72), timers.length, receiver.drops];
    }), [true, false, 1, true, 1, { busy: 1, noSlot: 0, failed: 0 }]);
    assert.deepEqual(await widths(page), [64, 66, 70, 72]);
});

burstTest('does not wait before it writes a new slot', async (page) => {
    assert.deepEqual(await page.run(async () => {
        host.postBuffer(0);
        host.postBuffer(1);
        return [await post(68), await post(70), timers.length];
    }), [true, true, 0]);
});

burstTest('drops the frame that waits for a slot when it is closed', async (page) => {
    assert.deepEqual(await page.run(async () => {
        const waiting = post(68);
        await settle(waiting);
        receiver.close();
        return [await waiting, receiver.drops];
    }), [false, { busy: 0, noSlot: 1, failed: 0 }]);
});

burstTest('ends feeding while a frame waits for a slot', async (page) => {
    await page.run(() => {
        const generator = new MediaStreamTrackGenerator({ kind: 'video' });
        window.stopper = new AbortController();
        window.feeding = receiver.feed(generator, { signal: stopper.signal });
        generator.writable.getWriter().write(makeFrame('I420', 68, 32));
    });
    await page.waitFor(() => timers.length === 1);
    assert.deepEqual(await page.run(async () => {
        stopper.abort();
        await feeding;
        return receiver.drops;
    }), { busy: 1, noSlot: 0, failed: 0 });
});

connectedTest('drops a frame whose slot is replaced during the copy', async (page) => {
    await page.run(() => {
        holdCopies();
        window.copying = receiver.postFrame(makeFrame('I420', 64, 32));
    });
    await waitForCopies(page, 1);
    assert.deepEqual(await page.run(async () => {
        const done = receiver.connect();
        host.postBuffer(0);
        host.postBuffer(1);
        await done;
        copies[0].resolve();
        return [await copying, host.posted, receiver.framesPosted, receiver.drops];
    }), [false, ['ready'], 0, { busy: 0, noSlot: 1, failed: 0 }]);
    await page.run(() => {
        window.copying = receiver.postFrame(makeFrame('I420', 64, 32));
    });
    await waitForCopies(page, 2);
    assert.equal(await page.run(() => {
        copies[1].resolve();
        return copying;
    }), true);
});

connectedTest('scales frames down that the receiver has no room for', async (page) => {
    for (const [frame, size] of [
        [['I420', 3840, 2160], '1920:1080'],
        [['RGBA', 2560, 1440], '1920:1080'],
        [['RGBA', 1922, 1080], '1920:1078'], // two pixels per row more than fit into the slot
        [['RGBA', 2560, 1440, { rotation: 90 }], '1080:1920'],
        [['I420', 4098, 64], '1920:30'],
        [['I420', 64, 2162], '56:1920'],
        [['I420', 64, 32, { displayWidth: 4097, displayHeight: 32 }], '1920:14'],
        [['I420', 64, 32, { visibleRect: { x: 0, y: 0, width: 1, height: 32 } }], '2:32'],
        [['I420', 64, 32, { visibleRect: { x: 0, y: 0, width: 64, height: 1 } }], '64:2'],
    ]) {
        const [isPosted, width, text] = await page.run(async (values) => {
            const videoFrame = makeFrame(...values);
            return [await receiver.postFrame(videoFrame), videoFrame.codedWidth, host.posted.at(-1)];
        }, frame);
        assert.deepEqual([isPosted, width], [true, 0]);
        assert.match(text, new RegExp(`^frame:[01]:(RGBA|RGBX|BGRA|BGRX):${size}:0:0:0:${size}:0,\\d+$`));
    }
});

connectedTest('rotates and mirrors a frame that it scales down', async (page) => {
    // White on the left. Rotated, that is on top.
    assert.deepEqual(await page.run(async () => {
        const [width, height] = [2560, 1440];
        const pixels = new Uint32Array(width * height).fill(0xFF000000);
        for (let row = 0; row < height; ++row) {
            pixels.fill(0xFFFFFFFF, row * width, row * width + width / 2);
        }
        await receiver.postFrame(new VideoFrame(pixels, {
            format: 'RGBA', codedWidth: width, codedHeight: height, timestamp: 0, rotation: 90,
        }), { mirror: true });
        const { planes: [{ offset, stride }], mirror } = receiver.lastPicture;
        const bytes = new Uint8Array(host.buffers[0], offset);
        return [mirror, [[100, 100], [980, 100], [100, 1800], [980, 1800]].map(([x, y]) => bytes[y * stride + x * 4])];
    }), [true, [255, 255, 0, 0]]);
});

kitTest('refuses a frame that a small slot has no room for', async (page) => {
    assert.deepEqual(await page.run(async () => {
        host.postBuffer(0, 1000);
        host.postBuffer(1, 1000);
        const frame = makeFrame('I420', 64, 32);
        return [await outcome(receiver.postFrame(frame)), frame.codedWidth, host.posted, receiver.drops];
    }), ['RangeError: A slot of 1000 bytes has no room for 64 x 32 pixels', 0, [],
         { busy: 0, noSlot: 0, failed: 1 }]);
});

kitTest('refuses a frame that is closed', async (page) => {
    assert.deepEqual(await page.run(async () => {
        host.postBuffer(0);
        host.postBuffer(1);
        const frame = makeFrame('I420', 64, 32);
        frame.close();
        return [await outcome(receiver.postFrame(frame)), host.posted, receiver.drops];
    }), ['TypeError: The frame is closed', [], { busy: 0, noSlot: 0, failed: 1 }]);
});

// --- Feeding ---

// A track whose frames the test writes, and the state of the call that feeds it. Copies wait until they are let go.
const startFeeding = (page) => page.run(() => {
    window.generator = new MediaStreamTrackGenerator({ kind: 'video' });
    window.writer = generator.writable.getWriter();
    window.stopper = new AbortController();
    window.errors = [];
    receiver.addEventListener('frame-error', ({ detail }) => errors.push(detail.message));
    window.feedOptions = { signal: stopper.signal };
    holdCopies();
    window.feeding = receiver.feed(generator, feedOptions).then(() => 'ended', (error) => error.message);
});
const writeFrame = (page, width) => page.run((codedWidth) => {
    writer.write(makeFrame('I420', codedWidth, 32, { timestamp: codedWidth }));
}, width);
// While one frame is being copied, another one waits: the third.
const feedThreeFrames = async (page) => {
    await startFeeding(page);
    await writeFrame(page, 64);
    await waitForCopies(page, 1);
    await writeFrame(page, 66);
    await writeFrame(page, 68);
    await page.waitFor(() => receiver.drops.busy === 1);
};

connectedTest('feeds the newest frame of a track and drops those between', async (page) => {
    await startFeeding(page);
    await writeFrame(page, 64);
    await waitForCopies(page, 1);
    for (const width of [66, 68, 70]) {
        await writeFrame(page, width);
    }
    await page.waitFor(() => receiver.drops.busy === 2);
    assert.deepEqual(await widths(page), []);
    await page.run(() => copies[0].resolve());
    await waitForCopies(page, 2);
    await page.run(() => {
        feedOptions.mirror = true;
        copies[1].resolve();
    });
    await page.waitFor(() => host.frames.length === 2);
    await writeFrame(page, 72);
    await waitForCopies(page, 3);
    await page.run(() => copies[2].resolve());
    await page.waitFor(() => host.frames.length === 3);
    assert.deepEqual(await widths(page), [64, 70, 72]);
    assert.ok((await posted(page)).at(-1).includes(':72:32:0:0:1:'));
    assert.deepEqual(await page.run(() => receiver.drops), { busy: 2, noSlot: 0, failed: 0 });
});

connectedTest('goes on feeding after a frame that fails', async (page) => {
    await startFeeding(page);
    await writeFrame(page, 64);
    await waitForCopies(page, 1);
    await page.run(() => copies[0].reject(new Error('no copy')));
    await page.waitFor(() => errors.length === 1);
    await writeFrame(page, 66);
    await waitForCopies(page, 2);
    await page.run(() => copies[1].resolve());
    await page.waitFor(() => host.frames.length === 1);
    assert.deepEqual(await page.run(() => [errors, receiver.drops.failed]), [['no copy'], 1]);
});

for (const [how, end] of [
    ['its track', () => generator.stop()], ['its signal', () => stopper.abort()], ['close()', () => receiver.close()],
]) {
    connectedTest(`ends feeding with ${how}`, async (page) => {
        await startFeeding(page);
        await writeFrame(page, 64);
        await waitForCopies(page, 1);
        await page.run(() => copies[0].resolve());
        await page.run(end);
        assert.equal(await page.run(() => feeding), 'ended');
    });
}

for (const [how, end, expected] of [
    ['its signal', () => stopper.abort(), [64]], ['close()', () => receiver.close(), []],
]) {
    connectedTest(`posts no frame that waits when ${how} ends feeding`, async (page) => {
        await feedThreeFrames(page);
        await page.run(end);
        await page.run(() => copies[0].resolve());
        assert.equal(await page.run(() => feeding), 'ended');
        assert.deepEqual(await widths(page), expected);
        assert.equal(await page.run(() => copies.length), 1);
    });
}

connectedTest('feeds the last frame of a track', async (page) => {
    await feedThreeFrames(page);
    await page.run(() => generator.stop());
    await page.run(() => copies[0].resolve());
    await waitForCopies(page, 2);
    await page.run(() => copies[1].resolve());
    assert.equal(await page.run(() => feeding), 'ended');
    assert.deepEqual(await widths(page), [64, 68]);
});

connectedTest('feeds video only', async (page) => {
    assert.equal(await page.run(() => outcome(receiver.feed(new MediaStreamTrackGenerator({ kind: 'audio' })))),
                 'TypeError: This is no video track');
});

connectedTest('feeds large frames and frames in other formats', async (page) => {
    await page.run(() => {
        window.generator = new MediaStreamTrackGenerator({ kind: 'video' });
        window.writer = generator.writable.getWriter();
        window.feeding = receiver.feed(generator);
    });
    for (const [format, width, height, expected] of [
        ['I420', 3840, 2160, /^frame:0:(RGB|BGR)[AX]:1920:1080:/], ['I444', 64, 32, /^frame:1:RGBX:64:32:/],
        ['RGBA', 2560, 1440, /^frame:0:(RGB|BGR)[AX]:1920:1080:/], ['I420', 64, 32, /^frame:1:I420:64:32:/],
    ]) {
        const before = await page.run(() => host.frames.length);
        await page.run((...values) => {
            writer.write(makeFrame(...values));
        }, format, width, height);
        await page.waitFor((count) => host.frames.length === count, before + 1);
        assert.match((await posted(page)).at(-1), expected);
    }
    assert.deepEqual(await page.run(() => receiver.drops), { busy: 0, noSlot: 0, failed: 0 });
});

connectedTest('does not feed with a signal that has ended', async (page) => {
    assert.equal(await page.run(() => outcome(receiver.feed(new MediaStreamTrackGenerator({ kind: 'video' }),
                                                            { signal: AbortSignal.abort() }))), undefined);
});

connectedTest('reports a failing copy and goes on', async (page) => {
    assert.deepEqual(await page.run(async () => {
        const { copyTo } = VideoFrame.prototype;
        VideoFrame.prototype.copyTo = async () => {
            throw new Error('no copy');
        };
        const frame = makeFrame('I420', 64, 32);
        const failed = await outcome(receiver.postFrame(frame));
        VideoFrame.prototype.copyTo = copyTo;
        return [failed, frame.codedWidth, await receiver.postFrame(makeFrame('I420', 64, 32)), host.posted.length];
    }), ['Error: no copy', 0, true, 1]);
    assert.ok((await posted(page))[0].startsWith('frame:0:'));
});

// --- Commands without an answer ---

kitTest('posts commands', async (page) => {
    for (const [method, value, text] of [
        ['setOrientation', 'landscape', 'window:orientation:landscape'],
        ['setOrientation', 'portrait', 'window:orientation:portrait'],
        ['setOrientation', 'setup', 'window:orientation:setup'],
        ['setQuality', '720p', 'quality:720p'],
        ['setQuality', '1080p', 'quality:1080p'],
        ['reportError', 'it is: broken', 'error:it is: broken'],
        ['reportError', 'one\ntwo \r\n  three', 'error:one two three'],
    ]) {
        assert.deepEqual(await page.run((name, argument) => {
            receiver[name](argument);
            return host.posted.splice(0);
        }, method, value), [text]);
    }
});

kitTest('refuses commands that the receiver does not know', async (page) => {
    for (const [method, ...values] of [
        ['setOrientation', ''], ['setOrientation', 'Portrait'], ['setOrientation', null], ['setQuality', '480p'],
        ['setQuality'],
    ]) {
        assert.match(await page.run((name, list) => outcome((async () => receiver[name](...list))()), method, values),
                     /^TypeError: /, `${method} ${values}`);
    }
    assert.deepEqual(await posted(page), []);
});

// --- Snapshots and recordings ---

function result(action, success, path, error) {
    return { type: 'media-result', action, success, path, error };
}

// Calls a method of the receiver, lets the host answer, and returns the state of the call.
function answer(page, [method, ...values], ...results) {
    return page.run((name, list, messages) => {
        const promise = Promise.resolve(receiver[name](...list));
        messages.forEach((message) => host.postJson(message));
        return settle(promise);
    }, method, values, results);
}

for (const [method, text, action, path] of [
    ['takeSnapshot', 'media:snapshot', 'snapshot', Jpeg],
    ['startRecording', 'media:record:start', 'recording-started', Mp4],
    ['stopRecording', 'media:record:stop', 'recording-stopped', Mp4],
]) {
    kitTest(`settles ${method} on its result`, async (page) => {
        assert.equal((await answer(page, [method])).state, 'pending');
        assert.deepEqual(await posted(page), [text]);
        const succeeded = result(action, true, path, 0);
        await page.postJson(succeeded);
        assert.deepEqual(await received(page), [['media-result', succeeded]]);

        assert.deepEqual(await answer(page, [method], succeeded), { state: 'resolved', value: succeeded });
        assert.deepEqual(await answer(page, [method], result(action, false, path, 0x80004005)),
                         { state: 'rejected', kind: 'MediaError', error: `${action}: 0x80004005 E_FAIL` });
        assert.deepEqual(await posted(page), [text, text, text]);
    });

    kitTest(`gives up ${method} when it is not answered, and goes on`, async (page) => {
        assert.deepEqual(await page.run(async (name) => {
            const { setTimeout } = window;
            endLongWaits();
            const asked = [receiver[name]()];
            window.setTimeout = setTimeout;
            receiver.setQuality('720p');
            asked.push(receiver.stopRecording());
            const failed = await outcome(asked[0]);
            host.postMediaResult('recording-stopped', true, 'a', 0);
            return [failed, (await asked[1]).path, host.posted];
        }, method), [`Error: ${text}: ${NoAnswer}`, 'a', [text, 'quality:720p', 'media:record:stop']]);
    });
}

kitTest('puts the whole result into the error', async (page) => {
    assert.deepEqual(await page.run(async (code) => {
        const asked = receiver.takeSnapshot();
        host.postMediaResult('snapshot', false, '', code);
        const error = await asked.catch((reason) => reason);
        return [error instanceof kit.MediaError, error instanceof Error, error.name, error.result];
    }, NotAvailable), [true, true, 'MediaError', result('snapshot', false, '', NotAvailable)]);
});

kitTest('names errors', async (page) => {
    const codes = [0x80004001, 0x80070057, AlreadyExists, 0x8007010B, NotAvailable, 0x88982F8B, 1];
    assert.deepEqual(await page.run((values) => values.map(kit.errorText), codes), [
        '0x80004001 E_NOTIMPL', '0x80070057 E_INVALIDARG', '0x800700B7 ERROR_ALREADY_EXISTS',
        '0x8007010B ERROR_DIRECTORY', '0xC00D36D6 MF_E_NOT_AVAILABLE', '0x88982F8B', '0x00000001',
    ]);
});

kitTest('ignores results of other commands while it waits', async (page) => {
    assert.equal((await answer(page, ['takeSnapshot'], result('recording-stopped', true, Mp4, 0),
                               result('recording-failed', false, Mp4, 0x80004005))).state, 'pending');
    assert.equal((await answer(page, ['reportError', 'x'])).state, 'resolved');
    await page.postJson(result('snapshot', true, Jpeg, 0));
    assert.equal((await received(page)).length, 3);
});

connectedTest('takes a snapshot of the first frame of a new size', async (page) => {
    assert.deepEqual(await page.run(async () => {
        const post = () => receiver.postFrame(makeFrame('I420', 64, 32));
        const commands = () => host.posted.splice(0).map((text) => text.replace(/^frame:.*/, 'frame'));
        receiver.setQuality('1080p');
        const asked = receiver.takeSnapshot();
        receiver.setQuality('1080p');
        const steps = [commands()];
        await post();
        steps.push(commands());
        host.postMediaResult('snapshot', true, 'a', 0);
        await asked;
        steps.push(commands());
        receiver.takeSnapshot(); // The quality is the same as before.
        steps.push(commands());
        host.postMediaResult('snapshot', true, 'b', 0);
        return steps;
    }), [['quality:1080p'], ['frame', 'media:snapshot'], ['quality:1080p'], ['media:snapshot']]);
});

connectedTest('gives up a snapshot when no frame of the new size is posted', async (page) => {
    assert.deepEqual(await page.run(async () => {
        receiver.setQuality('1080p');
        endLongWaits();
        return [await outcome(receiver.takeSnapshot()), host.posted];
    }), ['Error: media:snapshot: no frame was posted after the change of quality', ['quality:1080p']]);
});

kitTest('counts a stop while idle as a success', async (page) => {
    const stopped = result('recording-stopped', true, '', 1);
    assert.deepEqual(await answer(page, ['stopRecording'], stopped), { state: 'resolved', value: stopped });
});

kitTest('knows whether a recording runs', async (page) => {
    const isRecording = () => page.run(() => receiver.recording);
    const after = async (call, ...results) => {
        await answer(page, call, ...results);
        return isRecording();
    };
    const alreadyExists = result('recording-started', false, '', AlreadyExists);
    assert.equal(await isRecording(), false);
    assert.equal(await after(['startRecording'], result('recording-started', false, Mp4, 0x80004005)), false);
    assert.equal(await after(['startRecording'], result('recording-started', false, '', 0x8007010B)), false);
    assert.equal(await after(['startRecording'], result('recording-started', true, Mp4, 0)), true);
    assert.equal(await after(['takeSnapshot'], result('snapshot', false, '', NotAvailable)), true);
    assert.equal(await after(['startRecording'], alreadyExists), true);
    assert.equal(await after(['stopRecording'], result('recording-stopped', false, Mp4, 0x80004005)), false);
    // One that was started before the page was loaded.
    assert.equal(await after(['startRecording'], alreadyExists), true);
    // A change of quality ends it without a request.
    assert.equal(await after(['setQuality', '720p'], result('recording-stopped', true, Mp4, 0)), false);
    assert.equal(await after(['startRecording'], result('recording-started', true, Mp4, 0)), true);
    // It fails by itself.
    const failed = result('recording-failed', false, Mp4, 0x80070070);
    await page.postJson(failed);
    assert.equal(await isRecording(), false);
    assert.deepEqual((await received(page)).at(-1), ['media-result', failed]);
});

connectedTest('counts the frames of a recording', async (page) => {
    assert.deepEqual(await page.run(async () => {
        const post = () => receiver.postFrame(makeFrame('I420', 64, 32));
        const counts = [receiver.framesRecorded];
        const count = () => counts.push(receiver.framesRecorded);
        await post();
        receiver.startRecording();
        await post();
        host.postMediaResult('recording-started', true, 'a', 0);
        count();
        await post();
        receiver.takeSnapshot(); // is no end
        await post();
        host.postMediaResult('snapshot', true, 'b', 0);
        await post();
        count();
        receiver.startRecording().catch(() => {}); // nor is a start while a recording runs
        host.postMediaResult('recording-started', false, '', 0x800700B7);
        await post();
        receiver.stopRecording();
        await post();
        host.postMediaResult('recording-stopped', true, 'a', 0);
        await post();
        count();
        receiver.stopRecording();
        host.postMediaResult('recording-stopped', true, '', 1);
        count();
        return counts;
    }), [0, 1, 4, 5, 5]);
});

for (const [method, ...values] of [['takeSnapshot'], ['setQuality', '720p'], ['startRecording'], ['stopRecording']]) {
    connectedTest(`counts a recording up to the quality that ends it, before ${method}`, async (page) => {
        assert.equal(await page.run(async (name, list) => {
            const post = () => receiver.postFrame(makeFrame('I420', 64, 32));
            receiver.startRecording();
            host.postMediaResult('recording-started', true, 'a', 0);
            await post();
            receiver.setQuality('1080p');
            await post();
            receiver[name](...list);
            await post();
            host.postMediaResult('recording-stopped', true, 'a', 0);
            return receiver.framesRecorded;
        }, method, values), 1);
    });
}

for (const [isStopped, frames] of [[false, 2], [true, 1]]) {
    connectedTest(`counts a recording up to ${isStopped ? 'the stop before its' : 'its'} failure`, async (page) => {
        assert.equal(await page.run(async (stopFirst) => {
            const post = () => receiver.postFrame(makeFrame('I420', 64, 32));
            receiver.startRecording();
            host.postMediaResult('recording-started', true, 'a', 0);
            await post();
            if (stopFirst) {
                receiver.stopRecording();
            }
            await post();
            host.postMediaResult('recording-failed', false, 'a', 0x80070070);
            await post();
            return receiver.framesRecorded;
        }, isStopped), frames);
    });
}

kitTest('has its state up to date when it dispatches an event', async (page) => {
    assert.deepEqual(await page.run(() => {
        const seen = [];
        receiver.addEventListener('media-result', () => seen.push(receiver.recording));
        receiver.addEventListener('usage', () => seen.push(receiver.cameraInUse));
        receiver.addEventListener('diagnostics', () => seen.push(receiver.diagnostics.appVersion));
        host.postMediaResult('recording-started', true, '', 0);
        host.postMediaResult('recording-failed', false, '', 2147500037);
        host.postJson({ type: 'virtual-camera-usage', active: true });
        host.postJson({ type: 'diagnostics', diagnostics: { appVersion: '0.1.3' } });
        return seen;
    }), [true, false, true, '0.1.3']);
});

kitTest('takes the stop of a quality change for its own', async (page) => {
    const first = result('recording-stopped', true, Mp4, 0);
    const second = result('recording-stopped', true, '', 1);
    assert.deepEqual(await page.run((...results) => {
        receiver.setQuality('1080p');
        const stopping = receiver.stopRecording();
        results.forEach((message) => host.postJson(message));
        return settle(stopping);
    }, first, second), { state: 'resolved', value: first });
    const started = result('recording-started', true, Mp4, 0);
    assert.deepEqual(await answer(page, ['startRecording'], started), { state: 'resolved', value: started });
    assert.equal(await page.run(() => receiver.recording), true);
});

kitTest('posts commands in the order of the calls, one at a time', async (page) => {
    assert.deepEqual(await page.run(async () => {
        const steps = [];
        const step = async () => {
            await new Promise((resolve) => setTimeout(resolve));
            steps.push(host.posted.splice(0).join());
        };
        const asked = [receiver.takeSnapshot(), receiver.takeSnapshot()];
        receiver.setQuality('1080p');
        asked.push(receiver.startRecording());
        receiver.setQuality('720p');
        asked.push(receiver.stopRecording());
        receiver.setOrientation('setup');
        const outcomes = Promise.all(asked.map(outcome));
        await step();
        host.postMediaResult('snapshot', true, 'a', 0);
        await step();
        host.postMediaResult('snapshot', false, 'b', 2147500037);
        await step();
        host.postMediaResult('recording-started', true, 'c', 0);
        await step();
        host.postMediaResult('recording-stopped', true, 'c', 0);
        await step();
        return [steps, (await outcomes).map((value) => value.path ?? value)];
    }), [
        ['media:snapshot,window:orientation:setup', 'media:snapshot', 'quality:1080p,media:record:start',
         'quality:720p,media:record:stop', ''],
        ['a', 'MediaError: snapshot: 0x80004005 E_FAIL', 'c', 'c'],
    ]);
});

kitTest('clears the time limit of an answered command', async (page) => {
    assert.deepEqual(await page.run(async () => {
        const limits = new Set();
        const { setTimeout, clearTimeout } = window;
        window.setTimeout = (callback, ms, ...rest) => {
            const timer = setTimeout(callback, ms, ...rest);
            if (ms > 1000) {
                limits.add(timer);
            }
            return timer;
        };
        window.clearTimeout = (timer) => {
            limits.delete(timer);
            clearTimeout(timer);
        };
        const connecting = receiver.connect();
        const limitsWhileConnecting = limits.size;
        host.postBuffer(0);
        host.postBuffer(1);
        const asked = receiver.takeSnapshot();
        host.postMediaResult('snapshot', true, 'a', 0);
        Object.assign(window, { setTimeout, clearTimeout });
        await connecting;
        return [limitsWhileConnecting, limits.size, (await asked).path];
    }), [1, 0, 'a']);
});

// --- What the receiver sends ---

kitTest('receives the diagnostics', async (page) => {
    const diagnostics = {
        windowsVersion: '10.0.22631', buildNumber: 22631, architecture: 'x64', osSupported: true, webView2Ready: true,
        virtualCameraRegistered: false, appVersion: '0.1.3',
    };
    assert.equal(await page.run(() => receiver.diagnostics), null);
    await page.postJson({ type: 'diagnostics', diagnostics });
    assert.deepEqual(await received(page), [['diagnostics', diagnostics]]);
    assert.deepEqual(await page.run(() => receiver.diagnostics), diagnostics);
});

kitTest('receives whether the camera is used', async (page) => {
    assert.equal(await page.run(() => receiver.cameraInUse), false);
    for (const active of [true, false]) {
        await page.postJson({ type: 'virtual-camera-usage', active });
        assert.equal(await page.run(() => receiver.cameraInUse), active);
    }
    assert.deepEqual(await received(page), [['usage', true], ['usage', false]]);
});

kitTest('ignores what it does not know', async (page) => {
    await page.postMediaResult('recording-started', true, '', 0);
    for (const message of ['text', null, 7, [], {}, { type: 'else' }, result('recording-paused', true, '', 0)]) {
        await page.postJson(message);
    }
    assert.equal(await page.run(() => receiver.recording), true);
    assert.deepEqual((await received(page)).map(([type]) => type), ['media-result', 'media-result']);
});

// --- The pages in the document ---

const Protocol = 'docs/page-protocol.md';
const PageFiles = ['vistel_receiver.mjs', 'receiver_simulator.mjs', 'simulator'];

// Opens the document's first page, with the script that has all of `parts`.
async function openFirstPage(page, folder, parts, isSimulated) {
    const [html, simulatedScripts] = await codeBlocks(Protocol, 'html');
    const scripts = await codeBlocks(Protocol, 'js');
    const files = {
        'index.html': isSimulated ? html.replace(/<script.*\n/, simulatedScripts) : html,
        'page.mjs': scripts.find((script) => parts.every((part) => script.includes(part))),
        'drawing.mjs': scripts.find((script) => script.startsWith('// drawing.mjs')),
    };
    for (const [name, text] of Object.entries(files)) {
        await writeFile(join(folder, name), text);
    }
    for (const name of PageFiles) {
        await cp(join(SourceFolder, 'examples/page', name), join(folder, name), { recursive: true });
    }
    await page.open(`${relative(SourceFolder, folder)}/index.html`);
}

// The test's body gets a folder that the server knows and that is removed at the end.
function firstPageTest(name, scripts, body) {
    pageTest(name, scripts, async (page) => {
        const build = join(SourceFolder, 'build');
        await mkdir(build, { recursive: true });
        const folder = await mkdtemp(join(build, 'first-page-'));
        try {
            await body(page, folder);
        } finally {
            await rm(folder, { recursive: true });
        }
    });
}

for (const [how, parts] of [
    ['with', ['vistel_receiver.mjs', 'drawing.mjs']], ['without', ['postMessage("ready")', 'drawing.mjs']],
]) {
    firstPageTest(`the document's first page ${how} the module sends its picture`, [FakeHost], async (page, folder) => {
        await openFirstPage(page, folder, parts, false);
        await page.waitForText('ready');
        await page.giveSlots();
        await page.waitFor(() => host.frames.length >= 5);
        await page.postJson({ type: 'virtual-camera-usage', active: true });
        assert.equal(await page.run(() => document.body.textContent), 'The camera is in use');
        assert.deepEqual(await page.run(() => host.texts), ['ready', 'quality:1080p']);
        const frames = await page.run(() => host.frames);
        frames.forEach((text, index) => assert.match(
            text, new RegExp(`^frame:${index % 2}:(RGBA|RGBX|BGRA|BGRX):1280:720:0:0:0:1280:720:0,5120$`)));
        // The bar.
        assert.ok(await page.run(() => new Uint32Array(host.buffers[0], 0, 1280)
            .some((pixel) => (pixel & 0xFFFFFF) !== 0)));
    });

    firstPageTest(`the document's first page ${how} the module runs in the simulator`, [], async (page, folder) => {
        await openFirstPage(page, folder, parts, true);
        await page.waitFor(async () => {
            const { simulator } = await import('./receiver_simulator.mjs');
            return simulator.counts.frames >= 5;
        });
        assert.deepEqual(await page.run(async () => {
            const { simulator: { refusals, picture: { width, height } } } = await import('./receiver_simulator.mjs');
            return { refusals, width, height };
        }), { refusals: [], width: 1920, height: 1080 });
    });
}
