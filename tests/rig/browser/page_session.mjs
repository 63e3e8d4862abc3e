// One page of a browser: carries out what the host asks for and reports what the page does.
import { randomBytes } from 'node:crypto';
import { once } from 'node:events';
import { closeSync, fstatSync, openSync, readFileSync, writeFileSync, writeSync } from 'node:fs';
import { writeFile } from 'node:fs/promises';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';

const shim = readFileSync(new URL('page_shim.js', import.meta.url), 'utf8').trim().replace(/^(\/\/.*\n)*/, '');

// The function through which a page sends when its policy forbids the socket. The page does not see it.
const BindingName = '__rigSend';

const Allowed = 1; // COREWEBVIEW2_PERMISSION_STATE_ALLOW
const Autoplay = 9; // COREWEBVIEW2_PERMISSION_KIND_AUTOPLAY

const QuietMs = 300;

// COREWEBVIEW2_WEB_ERROR_STATUS; every other error is UNKNOWN, 0.
const OperationCanceled = 14;
const errorStatus = {
    'net::ERR_CERT_COMMON_NAME_INVALID': 1, 'net::ERR_CERT_DATE_INVALID': 2, 'net::ERR_CERT_REVOKED': 4,
    'net::ERR_CERT_AUTHORITY_INVALID': 5, 'net::ERR_CERT_INVALID': 5, 'net::ERR_ADDRESS_UNREACHABLE': 6,
    'net::ERR_TIMED_OUT': 7, 'net::ERR_CONNECTION_TIMED_OUT': 7, 'net::ERR_INVALID_HTTP_RESPONSE': 8,
    'net::ERR_CONNECTION_ABORTED': 9, 'net::ERR_CONNECTION_RESET': 10, 'net::ERR_INTERNET_DISCONNECTED': 11,
    'net::ERR_CONNECTION_REFUSED': 12, 'net::ERR_NAME_NOT_RESOLVED': 13, 'net::ERR_ABORTED': OperationCanceled,
    'net::ERR_TOO_MANY_REDIRECTS': 15,
};

export class PageSession {
    token = randomBytes(16).toString('hex');
    #chromium;
    #session;
    #targetId;
    #windowId;
    #isHidden = false;
    #crash; // What the last crash() waits for: a page that is ending loads nothing.
    #toHost;
    #events;
    #screencast;
    #shmFolder;
    #driveC;
    #name;
    #pendingHtml;
    #document; // What the main frame shows while its load has not ended yet.
    #ending; // The report of an ended load, held until what the page has posted so far is with the host.
    #endings = 0;
    #loads = new Map(); // Loader id: { httpStatus, errorText }
    #source = 'about:blank';
    #autoplayRequests = new Set(); // ids
    #buffers = new Map(); // Id: { name, file }
    #lastBuffer = 0;
    #castStarted = false;
    #shownPicture; // What the host is painting,
    #nextPicture; // and what it is to paint then.
    #quietTimer;
    #lookedAgain = false;
    #socket;

    // `toHost` sends a line that concerns this page; `events` receives what tests may want to see.
    static async open({
        chromium, socketUrl, toHost, events, screencast, pageScript, shmFolder, driveC, name, onOpening,
    }) {
        const page = new PageSession();
        page.#chromium = chromium;
        page.#toHost = toHost;
        page.#events = events;
        page.#screencast = screencast;
        page.#shmFolder = shmFolder;
        page.#driveC = driveC;
        page.#name = name;
        const { targetId } = await chromium.send('Target.createTarget', { url: 'about:blank' });
        page.#targetId = targetId;
        page.#session = (await chromium.send('Target.attachToTarget', { targetId, flatten: true })).sessionId;
        page.#windowId = (await chromium.send('Browser.getWindowForTarget', { targetId })).windowId;
        onOpening(page);
        const source = `(${shim})(${JSON.stringify(`${socketUrl}/${page.token}`)}, '${BindingName}')`;
        await Promise.all([
            page.#send('Page.enable'),
            page.#send('Runtime.enable'),
            page.#send('Network.enable'),
            page.#send('Inspector.enable'),
            page.#send('Runtime.addBinding', { name: BindingName }),
            page.#send('Page.addScriptToEvaluateOnNewDocument', { source: `${source};${pageScript ?? ''}` }),
        ]);
        return page;
    }

    get session() {
        return this.#session;
    }

    get targetId() {
        return this.#targetId;
    }

    // --- For tests ---

    async evaluate(expression) {
        const { result, exceptionDetails } = await this.#send('Runtime.evaluate', {
            expression, awaitPromise: true, returnByValue: true,
        });
        if (exceptionDetails) {
            throw new Error(exceptionDetails.exception?.description ?? exceptionDetails.text);
        }
        return result.value;
    }

    // Ends the page's process, as the worst of pages does by itself.
    crash() {
        this.#crash = once(this.#events, 'crashed');
        this.#post('Page.crash');
    }

    // What a person does who has seen enough of a page.
    reload() {
        this.#post('Page.reload');
    }

    async screenshot(file) {
        const { data } = await this.#send('Page.captureScreenshot', { format: 'png' });
        await writeFile(file, Buffer.from(data, 'base64'));
    }

    // --- From the host ---

    // Bounds without an area are those of a minimized window: the page is hidden until it has an area again.
    setBounds(width, height) {
        const isHidden = width < 1 || height < 1;
        if (isHidden !== this.#isHidden) {
            this.#isHidden = isHidden;
            this.#setWindowState(isHidden ? 'minimized' : 'normal').catch(() => {}); // The browser has ended.
        }
        if (isHidden) {
            return; // To the browser, a size of zero means its own.
        }
        this.#post('Emulation.setDeviceMetricsOverride', { width, height, deviceScaleFactor: 1, mobile: false });
        if (this.#screencast && !this.#castStarted) {
            this.#castStarted = true;
            this.#startScreencast();
        }
    }

    async navigate(url) {
        await this.#crash;
        this.#pendingHtml = undefined;
        let result;
        try {
            result = await this.#send('Page.navigate', { url: this.#fileOfDriveC(url) });
        } catch {
            this.#reportNavigation(false, 0, url); // An address that Chromium cannot read.
            return;
        }
        if (result.errorText === 'net::ERR_ABORTED') {
            this.#reportNavigation(false, OperationCanceled, this.#source); // Overtaken or a download: no document.
        } else if (!result.loaderId) {
            this.#reportNavigation(true, 0, url); // Within the same document.
        }
    }

    // This browser does not know the drives of Windows.
    #fileOfDriveC(url) {
        const [, path] = /^file:\/\/\/C:[\\/](.*)$/is.exec(url) ?? [];
        return path && this.#driveC ? `${pathToFileURL(this.#driveC)}/${path}` : url;
    }

    // A blank document first, so that the page's script finds chrome.webview; the text then replaces its content.
    async navigateToString(html) {
        await this.#crash;
        this.#pendingHtml = html;
        this.#post('Page.navigate', { url: 'about:blank' });
    }

    postJson(json) {
        this.#call('message', json);
    }

    postBuffer(name, size, mode, json) {
        const file = openSync(join(this.#shmFolder, name), 'r+');
        const id = ++this.#lastBuffer;
        this.#buffers.set(id, { name, file });
        const isUntouched = fstatSync(file).blocks === 0;
        const content = isUntouched ? '' : readFileSync(join(this.#shmFolder, name)).toString('base64');
        this.#call('buffer', id, size, json, mode === 'read-only', content);
    }

    closeBuffer(name) {
        for (const [id, buffer] of this.#buffers) {
            if (buffer.name === name) {
                this.#buffers.delete(id);
                closeSync(buffer.file);
                this.#call('forget', id);
            }
        }
    }

    // Chromium lets a page play once it has seen a user's action: there is no other way to allow one document to play.
    answerPermission(id, state) {
        const userGesture = this.#autoplayRequests.delete(id) && state === Allowed;
        this.#post('Runtime.evaluate', { expression: `chrome.webview.__rig.permission(${id}, ${state})`, userGesture });
    }

    // The host has decoded the picture that it was sent.
    painted() {
        this.#releasePicture(this.#shownPicture);
        this.#shownPicture = undefined;
        this.#sendPicture();
        this.#lookAgainOnceQuiet();
    }

    close() {
        clearTimeout(this.#quietTimer);
        for (const { file } of this.#buffers.values()) {
            closeSync(file);
        }
        this.#buffers.clear();
        this.#socket?.terminate();
        this.#chromium.send('Target.closeTarget', { targetId: this.#targetId }).catch(() => {});
    }

    // --- From the page ---

    // A new document brings a new socket.
    onSocket(socket) {
        this.#socket = socket;
        socket.on('message', (data, isBinary) => {
            if (isBinary) {
                this.#store(data);
                socket.send('');
            } else {
                this.#onPageMessage(JSON.parse(data.toString()));
            }
        });
        socket.on('error', () => {}); // The document went away in the middle of a message.
    }

    #onBinding({ data, text }) {
        if (data !== undefined) {
            this.#store(Buffer.from(data, 'base64'));
            this.#call('acknowledge');
        }
        if (text !== undefined) {
            this.#onPageMessage(JSON.parse(text));
        }
    }

    #store(data) {
        const runs = data.readUInt32LE(0);
        let offset = 4 + runs * 12;
        for (let i = 0; i < runs; ++i) {
            const header = 4 + i * 12;
            const buffer = this.#buffers.get(data.readUInt32LE(header));
            const position = data.readUInt32LE(header + 4);
            const length = data.readUInt32LE(header + 8);
            for (let done = 0; buffer && done < length;) {
                done += writeSync(buffer.file, data, offset + done, length - done, position + done);
            }
            offset += length;
        }
    }

    #onPageMessage(message) {
        if (message.type === 'message') {
            this.#toHost('message', this.#name, message.kind, message.text, message.source);
            this.#events.emit('message', message);
        } else if (message.type === 'flushed') {
            if (message.number === this.#endings) {
                this.#reportEnding();
            }
        } else {
            if (message.kind === Autoplay) {
                this.#autoplayRequests.add(message.id);
            }
            this.#toHost('permission', this.#name, message.id, message.kind, message.uri, message.userInitiated);
            this.#events.emit('permission', message);
        }
    }

    onChromiumEvent(method, params) {
        switch (method) {
        case 'Network.responseReceived':
            if (params.type === 'Document') {
                this.#loads.set(params.requestId, { httpStatus: params.response.status });
            }
            break;
        case 'Network.loadingFailed':
            if (params.type === 'Document') {
                this.#loads.set(params.requestId, { errorText: params.errorText });
            }
            break;
        case 'Page.frameNavigated':
            if (!params.frame.parentId) {
                this.#reportEnding();
                this.#document = params.frame;
                this.#setSource(params.frame.unreachableUrl ?? params.frame.url + (params.frame.urlFragment ?? ''));
            }
            break;
        case 'Page.navigatedWithinDocument':
            if (params.frameId === this.#targetId) {
                this.#setSource(params.url);
            }
            break;
        case 'Page.loadEventFired':
            this.#onLoad();
            break;
        case 'Runtime.bindingCalled':
            this.#onBinding(JSON.parse(params.payload));
            break;
        case 'Page.javascriptDialogOpening':
            this.#events.emit('dialog', { type: params.type, text: params.message });
            this.#post('Page.handleJavaScriptDialog', { accept: true });
            break;
        case 'Page.screencastFrame':
            this.#onPicture(params);
            break;
        case 'Inspector.targetCrashed':
            this.#reportEnding();
            this.#events.emit('crashed', { what: 'page' });
            break;
        }
    }

    #setSource(url) {
        this.#source = url;
        this.#toHost('source', this.#name, url);
    }

    #onLoad() {
        if (!this.#document) {
            return;
        }
        if (this.#pendingHtml !== undefined) {
            const html = JSON.stringify(this.#pendingHtml);
            this.#pendingHtml = undefined;
            this.#post('Runtime.evaluate', {
                expression: `document.open(); document.write(${html}); document.close();`,
            });
            return; // The written document has a load event of its own.
        }
        const { unreachableUrl, loaderId } = this.#document;
        const { httpStatus = 0, errorText } = this.#loads.get(loaderId) ?? {};
        this.#document = undefined;
        this.#loads.clear();
        const isSuccess = !unreachableUrl && httpStatus < 400;
        this.#reportEnding();
        this.#ending = [isSuccess, unreachableUrl ? errorStatus[errorText] ?? 0 : 0, this.#source];
        this.#flush(++this.#endings);
    }

    // What the page posted while it loaded reaches the host before the end of the load does, as it does in the real
    // browser: the report follows a mark through the page's own socket. An error page has none. (The end of a socket
    // is no such mark: that of the previous document may come later than this document's load.)
    async #flush(number) {
        const expression = `window.chrome?.webview?.__rig.flush(${number}) ?? false`;
        const isComing = await this.evaluate(expression).catch(() => false);
        if (!isComing && number === this.#endings) {
            this.#reportEnding();
        }
    }

    #reportEnding() {
        if (this.#ending) {
            this.#reportNavigation(...this.#ending);
            this.#ending = undefined;
        }
    }

    #reportNavigation(isSuccess, status, source) {
        this.#toHost('navigation', this.#name, isSuccess, status, source);
        this.#events.emit('navigated', { isSuccess, status, source });
    }

    // One picture at a time goes to the host. Chromium holds back new ones while it waits for some to be released; each
    // has to be, even one that was never shown.
    #onPicture(picture) {
        if (this.#nextPicture) {
            this.#releasePicture(this.#nextPicture);
        }
        this.#nextPicture = picture;
        this.#sendPicture();
    }

    #sendPicture() {
        if (this.#nextPicture && !this.#shownPicture) {
            this.#shownPicture = this.#nextPicture;
            this.#nextPicture = undefined;
            const file = join(this.#shmFolder, `picture-${this.token}.jpg`);
            writeFileSync(file, Buffer.from(this.#shownPicture.data, 'base64'));
            this.#toHost('picture', this.#name, file);
        }
    }

    // Chromium drops a change that comes while enough pictures are on their way, and does not come back to it. So, once
    // no more pictures come, one is asked for that shows what there is.
    #lookAgainOnceQuiet() {
        clearTimeout(this.#quietTimer);
        if (this.#lookedAgain) {
            this.#lookedAgain = false; // This was the picture that was asked for.
        } else if (!this.#shownPicture) {
            this.#quietTimer = setTimeout(() => {
                this.#lookedAgain = true;
                this.#post('Page.stopScreencast');
                this.#startScreencast();
            }, QuietMs).unref();
        }
    }

    #setWindowState(windowState) {
        return this.#chromium.send('Browser.setWindowBounds', { windowId: this.#windowId, bounds: { windowState } });
    }

    #startScreencast() {
        this.#post('Page.startScreencast', { format: 'jpeg', quality: 80, everyNthFrame: 1 });
    }

    #releasePicture({ sessionId }) {
        this.#post('Page.screencastFrameAck', { sessionId });
    }

    #call(method, ...values) {
        const list = values.map((value) => JSON.stringify(value)).join();
        this.#post('Runtime.evaluate', { expression: `chrome.webview.__rig.${method}(${list})` });
    }

    #send(method, params = {}) {
        return this.#chromium.send(method, params, this.#session);
    }

    // For commands without a waiting caller: they fail only when the page or the browser has just ended.
    #post(method, params) {
        this.#send(method, params).catch(() => {});
    }
}
