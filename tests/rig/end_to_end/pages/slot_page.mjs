// A page that does what a test says: puts bytes into the slots and posts texts. See slot_page_run.mjs.
import { fillGradient } from './gradient.mjs';
import { fillNoise } from './noise.mjs';

const slots = [];
const received = [];

chrome.webview.addEventListener('sharedbufferreceived', (event) => {
    slots[event.additionalData.slot] = event.getBuffer();
});

chrome.webview.addEventListener('message', (event) => {
    received.push(JSON.stringify(event.data));
});

globalThis.slotPage = {
    // The messages that have arrived since the last time, as texts.
    takeReceived: () => received.splice(0),

    // Byte sizes of the slots that have arrived.
    slotSizes: () => slots.map((slot) => slot.byteLength),

    fill(slot, seed) {
        fillNoise(new Uint32Array(slots[slot]), seed);
    },

    paint(slot, width, height, step) {
        fillGradient(new Uint8Array(slots[slot]), width, height, step);
    },

    // Gives the slots back, while the host still has them.
    release() {
        slots.splice(0).forEach((slot) => chrome.webview.releaseBuffer(slot));
    },

    post(messages) {
        messages.forEach((message) => chrome.webview.postMessage(message));
    },

    // Posts a message again and again until the page is gone.
    repeat(message) {
        const { port1, port2 } = new MessageChannel();
        port1.onmessage = async () => {
            await chrome.webview.__room();
            new Uint32Array(slots[0]).fill(performance.now());
            chrome.webview.postMessage(message);
            port2.postMessage('');
        };
        port2.postMessage('');
    },
};
