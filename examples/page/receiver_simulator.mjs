// A receiver for the page author's own browser. Imported before the page's own modules, it makes chrome.webview, checks
// every message by the receiver's rules, answers as the receiver does, and shows the camera's picture in a panel. In
// the receiver itself it does nothing, so that a page may keep it.

import { planeExtents, readFrame, recognizeCommand, takeSlot } from "./simulator/message_rules.mjs";
import { Panel } from "./simulator/panel.mjs";
import { hexadecimal, isFailure, ReceiverModel } from "./simulator/receiver_model.mjs";
import { ReadMs, SlotWatch } from "./simulator/slot_watch.mjs";

/** Of the refusals and of the log; older ones are dropped. */
const MaxKept = 1000;

/** chrome.webview as a page sees it. */
class SimulatedWebView extends EventTarget {
    #simulator;

    /** @param {ReceiverSimulator} simulator */
    constructor(simulator) {
        super();
        this.#simulator = simulator;
    }

    /** @param {unknown} message */
    postMessage(message) {
        this.#simulator.receive(message);
    }

    /** @param {ArrayBuffer} buffer */
    releaseBuffer(buffer) {
        this.#simulator.release(buffer);
    }
}

export class ReceiverSimulator {
    counts = { frames: 0, refused: 0, races: 0 };
    /** What was wrong, the newest last. @type {{message: unknown, code: number, reason: string}[]} */
    refusals = [];
    /** The receiver's log, without the times. @type {string[]} */
    log = [];
    webview = new SimulatedWebView(this);

    /** @type {(() => void)[]} */
    #tasks = [];
    #channel = new MessageChannel();
    #panel;
    #model = new ReceiverModel({
        postSlot: (slot, buffer) => this.#later(() =>
            this.#dispatch(new Event("sharedbufferreceived"), { additionalData: { slot }, getBuffer: () => buffer })),
        postJson: (json) => this.#later(() =>
            this.#dispatch(new MessageEvent("message", { data: JSON.parse(json) }), {})),
        log: (line) => keep(this.log, line),
    });
    #watches = [0, 1].map(() => new SlotWatch(() => this.#onRace()));

    constructor() {
        this.#channel.port1.onmessage = () => this.#tasks.shift()?.();
        this.#panel = new Panel({
            setCameraInUse: (active) => this.setCameraInUse(active),
            setDiskFull: (full) => {
                this.#model.diskFull = full;
            },
        });
        this.#show();
    }

    /** The camera's newest picture, NV12; null before the first frame. */
    get picture() {
        return this.#model.picture;
    }

    /** @param {boolean} active  Whether a camera application uses the camera. */
    setCameraInUse(active) {
        this.#later(() => this.#model.setCameraInUse(active));
    }

    /**
     * A value that the page posts. It is handled in a later task, as in the receiver.
     * @param {unknown} message
     */
    receive(message) {
        this.#watchSlot(message);
        this.#later(() => this.#handle(message));
    }

    /**
     * Detaches a buffer. The receiver keeps the memory of its slots.
     * @param {ArrayBuffer} buffer
     */
    release(buffer) {
        const slot = /** @type {const} */ ([0, 1]).find((each) => this.#model.slotBytes(each)?.buffer === buffer);
        const kept = structuredClone(buffer, { transfer: [buffer] });
        if (slot !== undefined) {
            this.#model.moveSlot(slot, kept);
        }
    }

    /** @param {unknown} message */
    #watchSlot(message) {
        const found = typeof message === "string" ? recognizeCommand(message) : null;
        const named = found?.command === "frame:" ? takeSlot(found.argument) : null;
        const bytes = named && this.#model.slotBytes(named.slot);
        if (bytes) {
            const result = readFrame(named.fields);
            if ("frame" in result) {
                this.#watches[named.slot].begin(bytes, planeExtents(result.frame));
            }
        }
    }

    /** @param {unknown} message */
    #handle(message) {
        const { code, reason } = this.#model.handle(message);
        this.counts.frames = this.#model.framesPublished;
        if (isFailure(code)) {
            ++this.counts.refused;
            keep(this.refusals, { message, code, reason });
            this.#report(`${reason} (${hexadecimal(code)})`, message);
        } else if (reason) {
            this.#panel.addLine(reason, false);
        }
        this.#show();
    }

    #onRace() {
        ++this.counts.races;
        this.#report(`A slot changed within ${ReadMs} ms after its frame message: the camera may show parts of two ` +
            "pictures. Await copyTo() before the message, use the slots alternately, post at the rate of the video");
        this.#show();
    }

    /**
     * @param {string} text
     * @param {unknown[]} details
     */
    #report(text, ...details) {
        if (this.#panel.addLine(text, true)) {
            console.warn(`Receiver simulator: ${text}`, ...details);
        }
    }

    #show() {
        const { size, layout, recording } = this.#model;
        this.#panel.show({ counts: this.counts, size, layout, recording, takePicture: () => this.picture });
    }

    /**
     * Runs a task after those before it. Timers would be late while the page is hidden.
     * @param {() => void} task
     */
    #later(task) {
        this.#tasks.push(task);
        this.#channel.port2.postMessage(null);
    }

    /**
     * @param {Event} event
     * @param {object} members
     */
    #dispatch(event, members) {
        for (const [name, value] of Object.entries({ ...members, source: this.webview })) {
            Object.defineProperty(event, name, { value });
        }
        this.webview.dispatchEvent(event);
    }
}

/**
 * @template Item
 * @param {Item[]} list
 * @param {Item} item
 */
function keep(list, item) {
    list.push(item);
    if (list.length > MaxKept) {
        list.shift();
    }
}

function startSimulator() {
    const page = /** @type {{chrome?: {webview?: unknown}}} */ (globalThis);
    if (page.chrome?.webview) {
        return null;
    }
    const simulator = new ReceiverSimulator();
    page.chrome ??= {};
    page.chrome.webview = simulator.webview;
    return simulator;
}

/** The running simulator; null in the receiver. */
export const simulator = startSimulator();
