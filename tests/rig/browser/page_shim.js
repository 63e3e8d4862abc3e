// chrome.webview as a page of the real browser sees it. Runs in every new document before the page's own scripts.
// Everything the page sends goes through one WebSocket, which a worker owns, so that a busy page cannot hold it up; or,
// when the policy of the page forbids the worker or its socket, through a function that the browser server has added.
// That is slow, but no policy concerns it.
//
// The order that the real browser's shared memory gives is kept by sending: what the page wrote into a buffer before it
// posts a message travels ahead of that message. Only blocks that differ from what was sent last travel. What a page's
// own worker writes into a buffer that was transferred to it is not seen.
(socketUrl, bindingName) => {
    'use strict';
    const sendByBinding = window[bindingName];
    delete window[bindingName];
    if (window !== window.top || location.protocol === 'chrome-error:') {
        return;
    }

    const BlockBytes = 65536;
    const MaxUnacknowledged = 2; // Data messages on their way, as many as there are slots.
    const PermissionKinds = { microphone: 1, camera: 2, notifications: 4, autoplay: 9 };
    const Allowed = 1;

    // Runs in the worker. Transfer buffers go back to the page as soon as the socket has its own copy.
    const socketWorker = (url) => {
        const socket = new WebSocket(url);
        let waiting = [];
        const send = ({ data, used, text }) => {
            if (data) {
                socket.send(new Uint8Array(data, 0, used));
                self.postMessage({ data }, [data]);
            }
            if (text !== undefined) {
                socket.send(text);
            }
        };
        socket.onopen = () => {
            self.postMessage({ isOpen: true });
            waiting.forEach(send);
            waiting = undefined;
        };
        socket.onerror = () => self.postMessage({ isRefused: true });
        socket.onmessage = () => self.postMessage({ acknowledged: true });
        self.onmessage = (event) => (waiting ? waiting.push(event.data) : send(event.data));
    };

    const buffers = new Set(); // { id, data, buffer, bytes, words, sentBytes, sentWords }
    const freeTransfers = [];
    const roomWaiters = [];
    let unacknowledged = 0;

    const onAcknowledged = () => {
        --unacknowledged;
        if (unacknowledged < MaxUnacknowledged) {
            roomWaiters.splice(0).forEach((resolve) => resolve());
        }
    };

    let worker;
    let unconfirmed = []; // What the worker has been given, until its socket is open.
    const give = (item) => {
        if (worker) {
            unconfirmed?.push(item);
            worker.postMessage(item, item.data && !unconfirmed ? [item.data] : []);
            return;
        }
        const { data, used, text } = item;
        sendByBinding(JSON.stringify({ data: data && new Uint8Array(data, 0, used).toBase64(), text }));
        if (data) {
            freeTransfers.push(data);
        }
    };
    const doWithoutWorker = () => {
        if (unconfirmed) {
            worker = undefined;
            unconfirmed.forEach(give);
            unconfirmed = undefined;
        }
    };
    let ownViolation = 'blob'; // Pages of the real browser get no event for chrome.webview.
    window.addEventListener('securitypolicyviolation', (event) => {
        if (event.blockedURI === ownViolation) {
            ownViolation = undefined;
            event.stopImmediatePropagation();
        }
    }, true);
    try {
        const code = new Blob([`(${socketWorker})(${JSON.stringify(socketUrl)})`]);
        worker = new Worker(URL.createObjectURL(code));
        worker.onerror = doWithoutWorker;
        worker.onmessage = ({ data: { data, acknowledged, isOpen, isRefused } }) => {
            if (data) {
                freeTransfers.push(data);
            }
            if (acknowledged) {
                onAcknowledged();
            }
            if (isOpen || isRefused) {
                ownViolation = undefined;
            }
            if (isOpen) {
                unconfirmed = undefined;
            }
            if (isRefused) {
                doWithoutWorker();
            }
        };
    } catch {
        ownViolation = 'trusted-types-sink';
        doWithoutWorker();
    }

    const room = async () => {
        while (unacknowledged >= MaxUnacknowledged) {
            await new Promise((resolve) => roomWaiters.push(resolve));
        }
    };

    const isUnchanged = ({ bytes, words, sentBytes, sentWords }, start, end) => {
        const endWord = end >> 2;
        for (let i = start >> 2; i < endWord; ++i) {
            if (words[i] !== sentWords[i]) {
                return false;
            }
        }
        for (let i = endWord << 2; i < end; ++i) {
            if (bytes[i] !== sentBytes[i]) {
                return false;
            }
        }
        return true;
    };

    // The changed parts of the buffers as one transfer: their number, then id, offset and length of each, then the
    // bytes.
    const takeChanges = (candidates) => {
        const runs = [];
        let changedBytes = 0;
        for (const entry of candidates) {
            const size = entry.bytes.length; // 0 once the page has transferred the buffer away.
            let last;
            for (let start = 0; start < size; start += BlockBytes) {
                const end = Math.min(start + BlockBytes, size);
                if (isUnchanged(entry, start, end)) {
                    last = undefined;
                    continue;
                }
                if (last) {
                    last.end = end;
                } else {
                    last = { entry, start, end };
                    runs.push(last);
                }
                changedBytes += end - start;
            }
        }
        if (runs.length === 0) {
            return {};
        }
        const headerBytes = 4 + runs.length * 12;
        const used = headerBytes + changedBytes;
        let data = freeTransfers.pop();
        if (!data || data.byteLength < used) {
            data = new ArrayBuffer(Math.ceil(used / (1 << 20)) * (1 << 20));
        }
        const header = new Uint32Array(data, 0, headerBytes / 4);
        const payload = new Uint8Array(data, headerBytes);
        header[0] = runs.length;
        let offset = 0;
        runs.forEach(({ entry, start, end }, i) => {
            header.set([entry.id, start, end - start], 1 + i * 3);
            // Read once, because the page may write at the same time: what counts as sent is what is sent.
            payload.set(entry.bytes.subarray(start, end), offset);
            entry.sentBytes.set(payload.subarray(offset, offset + end - start), start);
            offset += end - start;
        });
        return { data, used };
    };

    const send = (candidates, message) => {
        const { data, used } = takeChanges(candidates);
        if (data) {
            ++unacknowledged;
        }
        const text = message === undefined ? undefined : JSON.stringify(message);
        if (data || text !== undefined) {
            give({ data, used, text });
        }
    };

    // Looking through both slots for every frame is what takes the time; a frame names the only slot that it changed.
    const buffersOf = (text) => {
        const slot = /^frame:(\d+):/.exec(text)?.[1];
        const named = slot === undefined ? undefined : [...buffers].filter((b) => String(b.data?.slot) === slot).pop();
        return named ? [named] : buffers;
    };

    class WebView extends EventTarget {
        postMessage(message) {
            const isString = typeof message === 'string';
            const text = isString ? message : JSON.stringify(message) ?? 'null';
            send(isString ? buffersOf(text) : buffers, {
                type: 'message', kind: isString ? 'string' : 'json', text, source: location.href,
                postedMs: performance.timeOrigin + performance.now(),
            });
        }

        releaseBuffer(buffer) {
            for (const entry of buffers) {
                if (entry.buffer === buffer) {
                    send([entry]);
                    buffers.delete(entry);
                }
            }
            structuredClone(buffer, { transfer: [buffer] }); // Detaches it.
        }
    }

    const webview = new WebView();
    const dispatch = (event, members) => {
        for (const [name, value] of Object.entries({ ...members, source: webview })) {
            Object.defineProperty(event, name, { value });
        }
        webview.dispatchEvent(event);
    };

    const permissionWaiters = new Map();
    let lastPermission = 0;
    const isAllowed = (kind) =>
        new Promise((resolve) => {
            permissionWaiters.set(++lastPermission, (state) => resolve(state === Allowed));
            send([], {
                type: 'permission', id: lastPermission, kind, uri: location.href,
                userInitiated: navigator.userActivation?.isActive ?? false,
            });
        });

    // What the browser server calls. JSON texts are parsed here, as the real browser does.
    Object.defineProperty(webview, '__rig', {
        value: {
            message(json) {
                dispatch(new MessageEvent('message', { data: JSON.parse(json) }), {});
            },
            buffer(id, size, json, readOnly, base64) {
                const bytes = new Uint8Array(size);
                if (base64) {
                    const content = atob(base64);
                    for (let i = 0; i < content.length; ++i) {
                        bytes[i] = content.charCodeAt(i);
                    }
                }
                const data = json === '' ? undefined : JSON.parse(json);
                const buffer = bytes.buffer;
                if (!readOnly) {
                    const sentBytes = base64 ? bytes.slice() : new Uint8Array(size);
                    buffers.add({
                        id, data, buffer, bytes, sentBytes,
                        words: new Int32Array(buffer, 0, size >> 2),
                        sentWords: new Int32Array(sentBytes.buffer, 0, size >> 2),
                    });
                }
                dispatch(new Event('sharedbufferreceived'), { additionalData: data, getBuffer: () => buffer });
            },
            // The host has closed the buffer: it no longer sees what the page writes there.
            forget(id) {
                for (const entry of buffers) {
                    if (entry.id === id) {
                        buffers.delete(entry);
                    }
                }
            },
            acknowledge: onAcknowledged,
            flush(number) {
                send([], { type: 'flushed', number });
                return true;
            },
            permission(id, state) {
                permissionWaiters.get(id)?.(state);
                permissionWaiters.delete(id);
            },
        },
    });
    // For pages that fill a slot by hand: resolves when few enough frames are on their way.
    Object.defineProperty(webview, '__room', { value: room });
    if (!window.chrome) {
        Object.defineProperty(window, 'chrome', { value: {}, configurable: true, writable: true, enumerable: true });
    }
    Object.defineProperty(window.chrome, 'webview', { value: webview, configurable: true, enumerable: true });

    const replace = (owner, name, make) => {
        const original = owner?.[name];
        if (original) {
            owner[name] = make(original);
        }
    };
    replace(window.VideoFrame?.prototype, 'copyTo', (original) => async function copyTo(destination, ...rest) {
        const target = ArrayBuffer.isView(destination) ? destination.buffer : destination;
        if ([...buffers].some((entry) => entry.buffer === target)) {
            await room();
        }
        return original.call(this, destination, ...rest);
    });
    replace(window.MediaDevices?.prototype, 'getUserMedia', (original) => async function getUserMedia(constraints) {
        for (const [wanted, kind] of [
            [constraints?.audio, PermissionKinds.microphone],
            [constraints?.video, PermissionKinds.camera],
        ]) {
            if (wanted && !(await isAllowed(kind))) {
                throw new DOMException('Permission denied', 'NotAllowedError');
            }
        }
        return original.call(this, constraints);
    });
    replace(window.Notification, 'requestPermission', () => async function requestPermission(callback) {
        const permission = (await isAllowed(PermissionKinds.notifications)) ? 'granted' : 'default';
        callback?.(permission);
        return permission;
    });
    replace(window.HTMLMediaElement?.prototype, 'play', (original) => async function play() {
        const needsPermission = !this.muted && !navigator.userActivation?.hasBeenActive;
        if (needsPermission && !(await isAllowed(PermissionKinds.autoplay))) {
            throw new DOMException('play() failed because the user did not interact first.', 'NotAllowedError');
        }
        return original.call(this);
    });
}
