// The runtime DLL and the browser server together, seen through the test host: what a host may rely on.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { existsSync, mkdtempSync, readdirSync, rmSync } from 'node:fs';
import { createServer } from 'node:http';
import { join } from 'node:path';
import { test } from 'node:test';

import { temporaryRoot } from '../temporary_root.mjs';
import { startBrowserServer } from './browser_server.mjs';
import { HostProcess } from './host_process.mjs';
import { PlaySound, SilentSound } from './silent_sound.mjs';

const Ok = '00000000';
const InvalidArgument = '80070057';
const BrowserClosed = '8007139f';

// Answers with the page given here, until the test ends; with a content security policy, where one is given.
async function serve(t, pages, policy) {
    const server = createServer((request, response) => {
        const page = pages[request.url];
        response.writeHead(page === undefined ? 404 : 200, {
            'Content-Type': 'text/html', ...(policy && { 'Content-Security-Policy': policy }),
        });
        response.end(page ?? '<title>nothing here</title>');
    });
    server.listen(0, '127.0.0.1');
    await once(server, 'listening');
    t.after(() => {
        server.closeAllConnections();
        server.close();
    });
    return `http://127.0.0.1:${server.address().port}`;
}

const temporaryFolder = () => mkdtempSync(join(temporaryRoot(), 'browser-server-test-'));

async function start(t, { host: hostOptions, ...options } = {}) {
    const folder = temporaryFolder();
    const server = await startBrowserServer({ userDataRoot: folder, ...options });
    let host;
    t.after(async () => {
        const exitCode = await host?.end();
        await server.stop();
        rmSync(folder, { recursive: true });
        assert.equal(exitCode, 0);
    });
    host = new HostProcess(server, hostOptions);
    return { server, host, folder };
}

// Fills slots with the pattern that the host checks, as fast as the host confirms the slots before.
const patternPage = `<script>
    const slots = [];
    async function slot(n) {
        while (!slots[n]) {
            await new Promise((resolve) => { wake = resolve; });
        }
        return slots[n];
    }
    const confirmed = new Set();
    let wake = () => {};
    chrome.webview.addEventListener('sharedbufferreceived', (event) => {
        const buffer = event.getBuffer();
        slots[event.additionalData.slot] = new Int32Array(buffer, 0, buffer.byteLength >> 2);
        wake();
    });
    chrome.webview.addEventListener('message', (event) => {
        confirmed.add(event.data.checked);
        wake();
    });
    async function post(frames, words) {
        for (let n = 0; n < frames; ++n) {
            while (n >= 2 && !confirmed.has(n - 2)) {
                await new Promise((resolve) => { wake = resolve; });
            }
            const content = await slot(n % 2);
            const first = Math.imul(n, 2654435761 | 0);
            for (let i = 0; i < words; ++i) content[i] = first + i;
            chrome.webview.postMessage('frame:' + n % 2 + ':' + n + ':' + words);
        }
        while (!confirmed.has(frames - 1)) {
            await new Promise((resolve) => { wake = resolve; });
        }
    }
</script>`.replaceAll('\n', ' ');

test('a page comes up, and messages pass in both directions in order', async (t) => {
    const { host } = await start(t);
    assert.match(await host.line('environment '), /^environment 00000000 \d+\.\d+\.\d+\.\d+$/);
    assert.equal(await host.line('controller-call'), `controller-call ${Ok} child`);
    const page = 'html <script>chrome.webview.addEventListener("message", (e) => chrome.webview.postMessage(e.data));' +
        'for (const message of ["one", "tab\\t quote\\" \\u00e9\\u4e2d \\\\",' +
        '    "\\ud83d\\ude00 \\ude00\\ud83d\\ud7ff", 3, null, {a: [1]}])' +
        '    chrome.webview.postMessage(message);</script>';
    assert.equal(await host.show(page), 'navigation 1 0 about:blank');
    await host.line(`message ${InvalidArgument} about:blank {"a":[1]}`);
    assert.deepEqual(host.lines.filter((line) => line.startsWith('message ')), [
        `message ${Ok} about:blank "one"`,
        `message ${Ok} about:blank "tab\\u0009 quote\\" \u00e9\u4e2d \\\\"`,
        `message ${Ok} about:blank "\\ud83d\\ude00 \\ude00\\ud83d\ud7ff"`,
        `message ${InvalidArgument} about:blank 3`,
        `message ${InvalidArgument} about:blank null`,
        `message ${InvalidArgument} about:blank {"a":[1]}`,
    ]);
    assert.equal(await host.call('json {"text":"\\u00e9 \\\\ \\"","list":[true,null,-1.5e3]}'), Ok);
    await host.line(`message ${InvalidArgument} about:blank {"text":"\u00e9 \\\\ \\"","list":[true,null,-1500]}`);
});

test('a shared buffer holds what the page wrote before its message', async (t) => {
    const { server, host } = await start(t);
    await host.show(`html ${patternPage}`);
    assert.equal(await host.call('slot 0 8294400'), Ok);
    assert.equal(await host.call('slot 1 8294400'), Ok);
    const page = await server.page();
    const posts = [];
    server.events.on('message', ({ text, postedMs }) => text.startsWith('frame:') && posts.push(postedMs));
    for (const words of [345600, 777600, 2073600, 16385, 1]) {
        await page.evaluate(`confirmed.clear(), post(24, ${words})`);
    }
    assert.equal(await host.value('frames'), `${24 * 5} 0`);
    const timings = await server.callbackTimings();
    assert.equal(timings.length, 24 * 5);
    assert.ok(timings.every((microseconds) => microseconds > 0));
    assert.deepEqual(await server.callbackResults(), { 0: 24 * 5 });
    const ends = (await server.callbacks()).map(({ endMs }) => endMs);
    assert.deepEqual(ends, [...ends].sort((a, b) => a - b));
    assert.equal(posts.length, ends.length);
    assert.ok(posts.every((postedMs, index) => Math.abs(ends[index] - postedMs) < 60_000)); // by one clock
});

test('a message that names no slot brings every change along', async (t) => {
    const { server, host } = await start(t);
    await host.show(`html ${patternPage}`);
    await host.call('slot 0 200001');
    await host.call('slot 1 131072');
    const page = await server.page();
    await page.evaluate('Promise.all([slot(0), slot(1)]).then(() => true)');
    await page.evaluate('new Uint8Array(slots[0].buffer).fill(7), slots[1][32767] = 77');
    await page.evaluate('chrome.webview.postMessage("go")');
    await host.line(`message ${Ok} about:blank "go"`);
    assert.equal(await host.value('word 0 49999'), String(0x07070707));
    assert.equal(await host.value('byte 0 200000'), '7');
    assert.equal(await host.value('word 1 32767'), '77');
    assert.equal(await host.value('word 1 0'), '0');
});

test('a released buffer is cut off from the page, a posted one can be posted again', async (t) => {
    const { server, host } = await start(t);
    await host.show(`html ${patternPage}`);
    await host.call('slot 0 65536');
    const page = await server.page();
    await page.evaluate('slot(0).then(() => true)');
    await page.evaluate('slots[0][5] = 55, chrome.webview.releaseBuffer(slots[0].buffer)');
    assert.equal(await page.evaluate('slots[0].length'), 0);
    await page.evaluate('chrome.webview.postMessage("released")');
    await host.line(`message ${Ok} about:blank "released"`);
    assert.equal(await host.value('word 0 5'), '55');
    assert.equal(await host.call('repost {"slot":3}'), Ok);
    assert.equal(await page.evaluate('slot(3).then((content) => content[5])'), 55); // What the host's memory holds.
    await page.evaluate('slots[3][6] = 66, chrome.webview.postMessage("again")');
    await host.line(`message ${Ok} about:blank "again"`);
    assert.equal(await host.value('word 0 6'), '66');
});

test('buffers follow the rules for their size, their data and their end', async (t) => {
    const { server, host } = await start(t);
    await host.show(`html ${patternPage}`);
    assert.equal(await host.call('slot 0 0'), InvalidArgument);
    assert.equal(await host.call('slot 0 2147483648'), InvalidArgument);
    assert.equal(await host.call('slot 0 65536'), Ok);
    await (await server.page()).evaluate('slot(0).then(() => true)');
    assert.equal(readdirSync(server.shmFolder).length, 1);
    assert.equal(await host.call('repost {"slot":'), InvalidArgument);
    assert.equal(await host.call('slot-size'), Ok);
    assert.equal(await host.call('slot-close'), Ok);
    assert.equal(await host.call('slot-size'), '80000013');
    assert.equal(await host.call('repost {"slot":0}'), '80000013');
    const page = await server.page();
    const handled = once(server.events, 'handled');
    await page.evaluate('slots[0][0] = 1, chrome.webview.postMessage("still here")');
    await handled; // The host has reported its Close before.
    assert.deepEqual(readdirSync(server.shmFolder), []);
    assert.equal(await page.evaluate('slots[0].length'), 16384);
    await host.line(`message ${Ok} about:blank "still here"`);
});

test('calls that the real browser refuses are refused', async (t) => {
    const { server, host } = await start(t);
    const stub = once(server.events, 'stub');
    await host.show('html <p>here</p>');
    for (const [command, result] of [
        ['navigate receiver.example', InvalidArgument],
        ['navigate ', InvalidArgument],
        ['navigate 1http://a/', InvalidArgument],
        ['html-bytes 2097153', InvalidArgument],
        ['json {bad}', InvalidArgument],
        ['json {"a":1,}', InvalidArgument],
        ['json "\\q"', InvalidArgument],
        ['json [01]', InvalidArgument],
        ['json ', InvalidArgument],
        ['json  [ 1 , "\\u00e9" , -0.5e-3, {} , [] ] ', Ok],
        ['web-messages off', Ok],
        ['json {}', '80070005'],
        ['web-messages on', Ok],
        ['json {}', Ok],
        ['other-thread', '8001010e'],
        ['ancestors', '80004002'],
        ['stub', '80004001'],
    ]) {
        assert.equal(await host.call(command), result, command);
    }
    assert.deepEqual(await stub, ['OpenDevToolsWindow']);
});

test('navigation ends with its result, its status and its address', async (t) => {
    const address = await serve(t, {
        '/': '<script>chrome.webview.postMessage("hello")</script>',
        '/csp': '<meta http-equiv="Content-Security-Policy" content="default-src \'none\'"><p>nothing may run</p>',
    });
    const closedPort = await new Promise((resolve) => {
        const server = createServer().listen(0, '127.0.0.1', () => {
            const { port } = server.address();
            server.close(() => resolve(port));
        });
    });
    const { server, host } = await start(t, {
        hostResolverRules: `MAP receiver.example ${address.slice('http://'.length)}, MAP missing.example ~NOTFOUND`,
    });
    for (const [url, result] of [
        [`${address}/`, '1 0'],
        [`${address}/missing`, '0 0'],
        ['http://receiver.example/', '1 0'],
        ['http://missing.example/', '0 13'],
        [`http://127.0.0.1:${closedPort}/`, '0 12'],
        ['http://127.0.0.1:9/', '0 0'],
        [`${address}/csp`, '1 0'],
        [`${address}/csp#part`, '1 0'],
    ]) {
        assert.equal(await host.show(`navigate ${url}`), `navigation ${result} ${url}`);
    }
    for (const url of [`${address}/`, 'http://receiver.example/']) {
        const message = host.lines.indexOf(`message ${Ok} ${url} "hello"`);
        const end = host.lines.indexOf(`navigation 1 0 ${url}`);
        assert.ok(message >= 0 && message < end, `message ${message}, end of navigation ${end}`);
    }
    const page = await server.page();
    await page.evaluate('chrome.webview.postMessage("past the policy")');
    await host.line(`message ${Ok} ${address}/csp#part "past the policy"`);
    const from = host.lines.length;
    await page.evaluate(`void (location.href = "${address}/")`);
    assert.equal(await host.line('navigation ', from), `navigation 1 0 ${address}/`);
});

test('a page keeps to its content security policy, and its messages pass', async (t) => {
    const { server, host } = await start(t);
    // The first policy forbids the rig's worker, the second one the worker's socket, the third one its address.
    const policies = [
        "default-src 'none'; script-src 'nonce-own'", "script-src 'nonce-own'; worker-src blob:; connect-src 'none'",
        "script-src 'nonce-own'; require-trusted-types-for 'script'",
    ];
    for (const [round, policy] of policies.entries()) {
        const address = await serve(t, {
            '/': '<script nonce="own">addEventListener("securitypolicyviolation", (event) =>' +
                'chrome.webview.postMessage(`${event.effectiveDirective} ${event.blockedURI}`));</script>' +
                `${patternPage.replace('<script>', '<script nonce="own">')}` +
                '<script>chrome.webview.postMessage("not allowed")</script>' +
                '<script nonce="own">chrome.webview.postMessage("allowed")</script>',
        }, policy);
        assert.equal(await host.show(`navigate ${address}/`), `navigation 1 0 ${address}/`);
        await host.line(`message ${Ok} ${address}/ "script-src-elem inline"`);
        await host.call('slot 0 345600');
        await host.call('slot 1 345600');
        const page = await server.page();
        await page.evaluate('post(6, 86400)');
        assert.equal(await host.value('frames'), `${6 * (round + 1)} 0`, policy);
        const start = `message ${Ok} ${address}/ `;
        const messages = host.lines.filter((line) => line.startsWith(start) && !line.includes('frame:'));
        assert.deepEqual(messages.map((line) => line.slice(start.length)).sort(),
                         ['"allowed"', '"script-src-elem inline"'], policy);
        assert.equal(await page.evaluate('"__rigSend" in window'), false);
    }
});

test('a page from elsewhere does not reach this machine', async (t) => {
    const inside = await serve(t, { '/': 'this machine' });
    const outside = await serve(t, { '/': '<script>chrome.webview.postMessage("from outside")</script>' });
    const outsidePort = Number(new URL(outside).port);
    const { server, host } = await start(t, {
        publicPorts: [outsidePort], hostResolverRules: `MAP page.example 127.0.0.1:${outsidePort}`,
    });
    const page = await server.page();
    const fetched = (url) =>
        page.evaluate(`fetch('${url}', { mode: 'no-cors' }).then(() => 'answered', () => 'refused')`);
    assert.equal(await host.show('navigate http://page.example/'), 'navigation 1 0 http://page.example/');
    await host.line(`message ${Ok} http://page.example/ "from outside"`);
    assert.equal(await fetched('http://page.example/'), 'answered');
    assert.equal(await fetched(inside), 'refused');
    await host.show('html <p>here</p>');
    assert.equal(await fetched(inside), 'refused');
    await host.show(`navigate ${inside}/`);
    assert.equal(await fetched(inside), 'answered');
});

test('a new document has to be given its buffers again', async (t) => {
    const { server, host } = await start(t);
    for (let round = 0; round < 3; ++round) {
        await host.show(`html ${patternPage}`);
        await host.call('slot 0 345600');
        await host.call('slot 1 345600');
        await (await server.page()).evaluate('post(6, 86400)');
    }
    assert.equal(await host.value('frames'), '18 0');
    assert.equal(readdirSync(server.shmFolder).length, 2);
});

test('permissions are asked for and answered', async (t) => {
    const address = await serve(t, { '/': '' });
    const { server, host } = await start(t);
    await host.show(`navigate ${address}/`);
    const page = await server.page();
    assert.equal(await page.evaluate('Notification.requestPermission()'), 'default');
    await host.line(`permission 4 0 ${address}/`);
    assert.equal(
        await page.evaluate('navigator.mediaDevices.getUserMedia({audio: true, video: true}).catch((e) => e.name)'),
        'NotAllowedError');
    await host.line(`permission 1 0 ${address}/`);
    // What plays without play() does not ask.
    assert.equal(await page.evaluate('new AudioContext().state'), 'suspended');
    assert.equal(await page.evaluate(`new Promise((resolve) => {
        const audio = new Audio();
        audio.autoplay = true;
        audio.oncanplaythrough = () => resolve(audio.paused);
        audio.src = '${SilentSound}';
    })`), true);
    assert.equal(await page.evaluate(PlaySound), 'NotAllowedError');
    await host.line(`permission 9 0 ${address}/`);
    assert.equal(await host.call('allow 9'), Ok);
    assert.equal(await page.evaluate(PlaySound), 'plays');
});

test('dialogs and new windows do not hold the page up', async (t) => {
    const { server, host } = await start(t);
    const seen = [];
    server.events.on('dialog', ({ type, text }) => seen.push(`${type} ${text}`));
    await host.show('html <p>here</p>');
    const page = await server.page();
    assert.equal(await page.evaluate('alert("one"), confirm("two")'), true);
    assert.deepEqual(seen, ['alert one', 'confirm two']);
    assert.equal(await page.evaluate('window.open("about:blank")'), null); // There was no click.
});

test('the page takes the size of its bounds and is painted into the window', async (t) => {
    const { server, host, folder } = await start(t, { screencast: true });
    await host.show('html <body style="margin:0; background:rgb(200,40,80)">');
    const page = await server.page();
    assert.equal(await host.call('bounds 450 300'), Ok);
    const deadline = Date.now() + 60_000;
    const pixel = async (x, y) => (await host.value(`pixel ${x} ${y}`)).split(' ').map(Number);
    const isNear = (a, b) => a.every((value, i) => Math.abs(value - b[i]) <= 4); // JPEG
    for (const [x, y] of [[1, 1], [448, 298]]) {
        while (!isNear(await pixel(x, y), [200, 40, 80])) {
            assert.ok(Date.now() < deadline, `the pixel at ${x}, ${y} is ${await pixel(x, y)}`);
        }
    }
    assert.equal(await page.evaluate('innerWidth + "x" + innerHeight'), '450x300');
    await page.evaluate('void (document.body.style.background = "rgb(20,140,180)")');
    while (!isNear(await pixel(200, 200), [20, 140, 180])) {
        assert.ok(Date.now() < deadline);
    }
    const file = join(folder, 'page.png');
    await page.screenshot(file);
    assert.ok(existsSync(file));
});

// Counts in the page: animation frames, the page's timers, and the timers of a worker.
const countingPage = `<body style="margin:0; background:rgb(200,40,80)"> <script>
    const counts = { frames: 0, timers: 0, workerTimers: 0 };
    requestAnimationFrame(function next() {
        ++counts.frames;
        requestAnimationFrame(next);
    });
    setInterval(() => ++counts.timers, 10);
    const worker = new Worker(URL.createObjectURL(new Blob(['setInterval(() => postMessage(0), 10)'])));
    worker.onmessage = () => ++counts.workerTimers;
</script>`.replaceAll('\n', ' ');

test('a page without an area is hidden and throttled until it has one again', async (t) => {
    const { server, host } = await start(t, { screencast: true });
    await host.show(`html ${countingPage}`);
    const page = await server.page();
    const deadline = Date.now() + 60_000;
    const waitFor = async (condition) => {
        while (!await page.evaluate(condition)) {
            assert.ok(Date.now() < deadline, condition);
        }
    };
    await waitFor('counts.frames > 2 && counts.timers > 2 && counts.workerTimers > 2');
    assert.equal(await host.call('bounds 0 0'), Ok);
    await waitFor('document.visibilityState === "hidden"');
    // Timers of the page run once a second from some moment on, those of the worker go on.
    await waitFor('Object.assign(counts, { hiddenFrames: counts.frames, lastTimers: counts.timers, begin: 0 })');
    await waitFor(`(() => {
        if (counts.timers > counts.lastTimers) {
            Object.assign(counts, { lastTimers: counts.timers, begin: counts.workerTimers });
        }
        return counts.workerTimers >= counts.begin + 50;
    })()`);
    assert.equal(await page.evaluate('counts.frames - counts.hiddenFrames'), 0);

    await page.evaluate('void (document.body.style.background = "rgb(20,140,180)")');
    assert.equal(await host.call('bounds 450 300'), Ok);
    await waitFor('document.visibilityState === "visible"');
    await waitFor('counts.frames > counts.hiddenFrames + 2');
    assert.equal(await page.evaluate('innerWidth + "x" + innerHeight'), '450x300');
    const isShown = (value) => Math.abs(Number(value.split(' ')[0]) - 20) <= 4; // JPEG
    while (!isShown(await host.value('pixel 200 200'))) {
        assert.ok(Date.now() < deadline, 'the page is painted again');
    }
});

test('no callback runs inside another', async (t) => {
    const { server, host } = await start(t);
    await host.show('html <p>here</p>');
    const page = await server.page();
    await host.call('nest');
    await page.evaluate('chrome.webview.postMessage("first")');
    await host.line('nested');
    await page.evaluate('chrome.webview.postMessage("second")');
    assert.equal(await host.call('unnest'), Ok);
    await host.line(`message ${Ok} about:blank "second"`);
    const order = host.lines.filter((line) => /^(message|nested|unnested)/.test(line));
    assert.deepEqual(order, [
        `message ${Ok} about:blank "first"`, 'nested', 'unnested', `message ${Ok} about:blank "second"`,
    ]);
});

test('after Close nothing arrives and calls fail', async (t) => {
    const { server, host } = await start(t);
    await host.show('html <script>setInterval(() => chrome.webview.postMessage("tick"), 5)</script>');
    await host.line('message');
    const closed = once(server.events, 'closed');
    assert.equal(await host.call('close'), Ok);
    const count = host.lines.length;
    await closed;
    assert.equal(await host.call('navigate about:blank'), BrowserClosed);
    assert.equal(await host.call('json {}'), BrowserClosed);
    assert.equal(await host.call('bounds 10 10'), BrowserClosed);
    assert.equal(await host.call('close'), Ok);
    assert.equal(await host.call('release'), Ok);
    assert.deepEqual(host.lines.slice(count).filter((line) => line.startsWith('message')), []);
});

test('a removed handler is not called any more', async (t) => {
    const { server, host } = await start(t);
    await host.show('html <p>here</p>');
    assert.equal(await host.call('remove'), Ok);
    const handled = once(server.events, 'handled');
    await (await server.page()).evaluate('chrome.webview.postMessage("unheard")');
    assert.deepEqual(await handled, [{ result: 0, text: 'unheard' }]);
    await host.value('frames');
    assert.deepEqual(host.lines.filter((line) => line.startsWith('message')), []);
});

test('a parent that goes while the controller is made aborts it before DestroyWindow returns', async (t) => {
    const { host } = await start(t, { host: { destroyParent: true } });
    await host.line('controller ');
    assert.deepEqual(host.lines.slice(-3), [
        `controller-call ${Ok} child`, 'window destroyed', 'controller 80004004 null',
    ]);
});

test('a browser that crashes is reported, and calls fail from then on', async (t) => {
    const { server, host } = await start(t);
    await host.show('html <p>here</p>');
    const crashed = once(server.events, 'crashed');
    const closed = once(server.events, 'closed');
    server.killBrowser();
    assert.deepEqual(await crashed, [{ what: 'browser' }]);
    await closed;
    assert.equal(await host.call('navigate about:blank'), BrowserClosed);
});

test('without a browser server there is no runtime', async (t) => {
    const { host } = await start(t, { host: { environment: { RIG_PORT: '1' } } });
    assert.equal(await host.line('environment-call'), 'environment-call 80070002');
});

test('a browser that cannot start fails the environment', async (t) => {
    const { host } = await start(t, { chromiumPath: '/bin/false' });
    assert.equal(await host.line('environment '), 'environment 80004005 null');
});

test('failures on request at a chosen call, and interfaces that an old runtime lacks', async (t) => {
    const { host } = await start(t, {
        host: {
            faults: 'CreateSharedBuffer:1=8007000e,PostSharedBufferToScript:1,ICoreWebView2_17:4,Navigate=80070057',
        },
    });
    await host.show('html <p>here</p>');
    const results = [];
    for (let i = 0; i < 5; ++i) {
        results.push(await host.call('slot 0 4096'));
    }
    assert.deepEqual(results, [Ok, '8007000e', '80004005', Ok, '80004002']);
    assert.equal(await host.call('navigate about:blank'), InvalidArgument);
});

test('a host that is killed takes its browser along, and stop leaves nothing', async (t) => {
    const userDataRoot = temporaryFolder();
    const server = await startBrowserServer({ userDataRoot });
    t.after(async () => {
        await server.stop();
        rmSync(userDataRoot, { recursive: true });
    });
    const host = new HostProcess(server);
    await host.show(`html ${patternPage}`);
    await host.call('slot 0 8294400');
    assert.equal(readdirSync(userDataRoot).length, 1);
    host.kill();
    await server.stop();
    await server.stop();
    assert.deepEqual(readdirSync(userDataRoot), []);
    assert.ok(!existsSync(server.shmFolder));
});
