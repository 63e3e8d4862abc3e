// chrome.webview as a page sees it, with the test in the receiver's place. Runs before the page's own scripts.
(() => {
    'use strict';
    const webview = new EventTarget();
    const host = {
        posted: [], // Every text, in order.
        postedMs: [], // When each was posted.
        buffers: [null, null],
        released: [], // Buffers that the page has given back, in order.
        errors: [], // Errors that the page has not caught.
        onText: null, // Called with each text, after the page's own work, as the receiver would be.

        get texts() {
            return host.posted.filter((text) => !text.startsWith('frame:'));
        },
        get frames() {
            return host.posted.filter((text) => text.startsWith('frame:'));
        },
        postJson(message) {
            webview.dispatchEvent(new MessageEvent('message', { data: message }));
        },
        postBuffer(slot, size = 8294400) {
            const buffer = new ArrayBuffer(size);
            host.buffers[slot] = buffer;
            host.postBufferWith({ slot }, buffer);
        },
        postBufferWith(additionalData, buffer) {
            webview.dispatchEvent(Object.assign(new Event('sharedbufferreceived'), {
                additionalData, getBuffer: () => buffer,
            }));
        },
        postMediaResult(action, success, path, error) {
            host.postJson({ type: 'media-result', action, success, path, error });
        },
    };
    webview.postMessage = (text) => {
        host.posted.push(text);
        host.postedMs.push(performance.now());
        setTimeout(() => host.onText?.(text));
    };
    webview.releaseBuffer = (buffer) => host.released.push(buffer);
    addEventListener('error', (event) => host.errors.push(event.message));
    addEventListener('unhandledrejection', (event) => host.errors.push(String(event.reason)));
    window.host = host;
    window.chrome ??= {};
    window.chrome.webview = webview;
})();
