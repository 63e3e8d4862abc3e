// The browser half of the WebView2 stand-in. Listens for the runtime DLL, starts one headless Chromium for each
// WebView2 environment and carries calls, messages and shared memory between the two.
import { EventEmitter, once } from 'node:events';
import { mkdtempSync, readdirSync, rmSync } from 'node:fs';
import { createServer } from 'node:net';
import { createRequire } from 'node:module';
import { join } from 'node:path';

import { temporaryRoot } from '../temporary_root.mjs';
import { Chromium } from './chromium.mjs';
import { encodeLine, readLines } from './host_lines.mjs';
import { PageSession } from './page_session.mjs';

const { WebSocketServer } = loadWebSockets();

const MaxMessageBytes = 64 << 20;

// Debian keeps its packages where its own node looks, and no other.
function loadWebSockets() {
    const require = createRequire(import.meta.url);
    try {
        return require('ws');
    } catch (error) {
        if (error.code !== 'MODULE_NOT_FOUND') {
            throw error;
        }
        return require('/usr/share/nodejs/ws');
    }
}

// Options:
//   chromiumPath        the browser to start
//   shmDir              where shared buffers live; a folder that both sides can map
//   userDataRoot        existing folder for the browsers' profiles
//   log                 receives lines of text
//   hostResolverRules   Chromium's --host-resolver-rules, such as "MAP receiver.example 127.0.0.1:8080"
//   publicPorts         ports of this machine that the browser takes for the internet
//   extraChromiumFlags  further command line flags
//   screencast          whether the window shows the page
//   driveC              the folder that file:///C:/ addresses mean
//   pageScript          a script that every document runs before its own
export async function startBrowserServer(options) {
    const server = new BrowserServer(options);
    await server.start();
    return server;
}

// The connection of one WebView2 environment.
class HostConnection {
    #socket;
    #server;
    #name;
    #chromium;
    #pages = new Map();
    #callbacksSent = []; // who waits for the records, in the order of asking
    #ended;

    constructor(socket, server, name) {
        this.#socket = socket;
        this.#server = server;
        this.#name = name;
        socket.setNoDelay(true);
        socket.on('error', () => {}); // "close" follows.
        socket.on('close', () => this.#callbacksSent.splice(0).forEach((resolve) => resolve()));
        readLines(socket, (fields) => this.#onLine(fields));
    }

    get pages() {
        return [...this.#pages.values()];
    }

    kill() {
        this.#chromium?.kill();
    }

    // Resolves when the DLL has sent all the callback records it has.
    async fetchCallbacks() {
        if (this.#socket.destroyed) {
            return;
        }
        const answered = new Promise((resolve) => {
            this.#callbacksSent.push(resolve);
        });
        this.#toHost('callbacks');
        await answered;
    }

    // The environment is gone, or the server stops: the browser ends with it.
    end() {
        this.#ended ??= (async () => {
            this.#socket.destroy();
            this.pages.forEach((page) => page.close());
            this.#pages.clear();
            for (const file of readdirSync(this.#server.shmFolder)) {
                if (file.startsWith(`${this.#name}-`)) {
                    rmSync(join(this.#server.shmFolder, file));
                }
            }
            await this.#starting;
            await this.#chromium?.stop();
        })();
        return this.#ended;
    }

    #starting;

    #toHost = (...fields) => {
        if (!this.#socket.destroyed) {
            this.#socket.write(encodeLine(fields));
        }
    };

    #onLine([verb, name, ...values]) {
        const page = this.#pages.get(name);
        const events = this.#server.events;
        switch (verb) {
        case 'environment':
            this.#starting = this.#startBrowser();
            break;
        case 'controller':
            this.#openPage(name);
            break;
        case 'bounds':
            page?.setBounds(Number(values[0]), Number(values[1]));
            break;
        case 'navigate':
            this.#navigate(page, values[0]);
            break;
        case 'html':
            page?.navigateToString(values[0]);
            break;
        case 'json':
            page?.postJson(values[0]);
            events.emit('json', values[0]);
            break;
        case 'buffer':
            page?.postBuffer(values[0], Number(values[1]), values[2], values[3]);
            break;
        case 'buffer-closed':
            this.pages.forEach((each) => each.closeBuffer(name));
            rmSync(join(this.#server.shmFolder, name), { force: true });
            break;
        case 'permission':
            page?.answerPermission(Number(values[0]), Number(values[1]));
            break;
        case 'painted':
            page?.painted();
            break;
        case 'setting':
            events.emit('setting', { name: values[0], value: values[1] === 'true' });
            break;
        case 'handled':
            events.emit('handled', { result: parseInt(values[0], 16), text: values[1] });
            break;
        case 'callbacks':
            this.#server.addCallbacks(Number(name), values[0]);
            break;
        case 'callbacks-sent':
            this.#callbacksSent.shift()?.();
            break;
        case 'stub':
            this.#server.log(`the host called ${name}, which the stand-in lacks`);
            events.emit('stub', name);
            break;
        case 'close':
            page?.close();
            this.#pages.delete(name);
            events.emit('closed');
            break;
        default:
            this.#server.log(`unknown line from the runtime: ${verb}`);
        }
    }

    // Two addresses end a process, as they do in the real browser.
    #navigate(page, address) {
        if (address === 'edge://inducebrowsercrashforrealz') {
            this.kill();
        } else if (address === 'edge://kill') {
            page?.crash();
        } else {
            page?.navigate(address);
        }
    }

    async #startBrowser() {
        try {
            this.#chromium = await this.#server.startChromium(this.#name);
            this.#chromium.on('event', (method, params, session) => this.#onChromiumEvent(method, params, session));
            this.#chromium.once('exit', () => {
                if (!this.#ended) {
                    this.#server.log('Chromium has ended');
                    this.#server.events.emit('crashed', { what: 'browser' });
                    this.#toHost('gone');
                }
            });
            const { product } = await this.#chromium.send('Browser.getVersion');
            await this.#chromium.send('Target.setDiscoverTargets', { discover: true });
            this.#chromium.send('Browser.setDownloadBehavior', { behavior: 'deny' }).catch(() => {});
            this.#toHost('environment', this.#name, product.replace(/^.*\//, ''));
        } catch (error) {
            this.#server.log(`Chromium does not start: ${error.message}`);
            this.#toHost('environment-failed');
        }
    }

    async #openPage(name) {
        try {
            const page = await PageSession.open({
                chromium: this.#chromium,
                socketUrl: this.#server.socketUrl,
                toHost: this.#toHost,
                events: this.#server.events,
                screencast: this.#server.options.screencast,
                pageScript: this.#server.options.pageScript,
                shmFolder: this.#server.shmFolder,
                driveC: this.#server.options.driveC,
                name,
                onOpening: (opening) => this.#pages.set(name, opening),
            });
            this.#toHost('controller', name);
            this.#server.events.emit('controller', page);
        } catch (error) {
            this.#server.log(`no page: ${error.message}`);
            this.#toHost('controller-failed', name);
        }
    }

    #onChromiumEvent(method, params, session) {
        if (method === 'Target.targetCreated' && params.targetInfo.openerId) {
            // The real browser would open a window; what counts here is that the page asked for one.
            this.#server.events.emit('newwindow', params.targetInfo.url);
            this.#chromium.send('Target.closeTarget', { targetId: params.targetInfo.targetId }).catch(() => {});
            return;
        }
        this.pages.find((page) => page.session === session)?.onChromiumEvent(method, params);
    }
}

class BrowserServer {
    // "controller" (page), "navigated", "message", "permission", "dialog", "newwindow" (from the page);
    // "json", "setting", "handled", "stub", "closed" (from the host); "crashed".
    events = new EventEmitter();
    #connections = new Set();
    #connectionCount = 0;
    #callbacks = [];
    #latestPage;
    #stopped;
    #listener = createServer((socket) => this.#onConnection(socket));
    #webSockets;
    #publicPorts; // The socket's port, so that pages of every origin reach it, and those of the options.

    constructor(options) {
        this.options = options;
        this.events.setMaxListeners(0);
        this.events.on('controller', (page) => {
            this.#latestPage = page;
        });
    }

    async start() {
        this.shmFolder = mkdtempSync(join(this.options.shmDir ?? temporaryRoot(), 'webview-rig-'));
        process.once('exit', this.#onProcessExit);
        this.#listener.listen(0, '127.0.0.1');
        this.#webSockets = new WebSocketServer({
            host: '127.0.0.1', port: 0, perMessageDeflate: false, maxPayload: MaxMessageBytes,
        });
        this.#webSockets.on('connection', (socket, request) => {
            const token = request.url.slice(1);
            const page = this.#pages().find((each) => each.token === token);
            if (page) {
                page.onSocket(socket);
            } else {
                socket.terminate();
            }
        });
        await Promise.all([once(this.#listener, 'listening'), once(this.#webSockets, 'listening')]);
        this.port = this.#listener.address().port;
        const { port } = this.#webSockets.address();
        this.socketUrl = `ws://127.0.0.1:${port}`;
        this.#publicPorts = [port, ...this.options.publicPorts ?? []];
    }

    log(text) {
        this.options.log?.(text);
    }

    // What the DLL must find in its environment.
    environment() {
        return { RIG_PORT: String(this.port), RIG_SHM: this.shmFolder };
    }

    // The newest page; waits for the first one.
    async page() {
        return this.#latestPage ?? (await once(this.events, 'controller'))[0];
    }

    // Ends every browser as a crash would.
    killBrowser() {
        this.#connections.forEach((connection) => connection.kill());
    }

    // Each of the host's callbacks for messages that begin with "frame:", in their order: { microseconds, result,
    // endMs }: how long it took, the HRESULT as unsigned number, and when it returned, as the `postedMs` of messages.
    async callbacks() {
        await Promise.all([...this.#connections].map((connection) => connection.fetchCallbacks()));
        return this.#callbacks;
    }

    // How long the host took in each of its callbacks for messages that begin with "frame:" and that it accepted, in
    // microseconds.
    async callbackTimings() {
        return (await this.callbacks()).filter(({ result }) => result === 0)
            .map(({ microseconds }) => microseconds);
    }

    // What those callbacks returned: { HRESULT as unsigned number: count }.
    async callbackResults() {
        const counts = {};
        for (const { result } of await this.callbacks()) {
            counts[result] = (counts[result] ?? 0) + 1;
        }
        return counts;
    }

    addCallbacks(ticksPerSecond, list) {
        for (const record of list.split(',')) {
            const [ticks, result, endMicroseconds] = record.split(':');
            const microseconds = (Number(ticks) * 1e6) / ticksPerSecond;
            this.#callbacks.push({ microseconds, result: parseInt(result, 16), endMs: Number(endMicroseconds) / 1000 });
        }
    }

    startChromium(name) {
        return Chromium.start({
            path: this.options.chromiumPath,
            profile: join(this.options.userDataRoot, name),
            hostResolverRules: this.options.hostResolverRules,
            publicPorts: this.#publicPorts,
            extraFlags: this.options.extraChromiumFlags,
        });
    }

    stop() {
        this.#stopped ??= (async () => {
            this.#listener.close();
            await Promise.all([...this.#connections].map((connection) => connection.end()));
            this.#webSockets.clients.forEach((socket) => socket.terminate());
            this.#webSockets.close();
            process.off('exit', this.#onProcessExit);
            rmSync(this.shmFolder, { recursive: true, force: true });
        })();
        return this.#stopped;
    }

    // For a process that ends without stop().
    #onProcessExit = () => {
        this.killBrowser();
        rmSync(this.shmFolder, { recursive: true, force: true });
    };

    #pages() {
        return [...this.#connections].flatMap((connection) => connection.pages);
    }

    #onConnection(socket) {
        const connection = new HostConnection(socket, this, `webview-${++this.#connectionCount}`);
        this.#connections.add(connection);
        // The host has gone, if only by a crash.
        socket.once('close', () => connection.end().finally(() => this.#connections.delete(connection)));
    }
}
