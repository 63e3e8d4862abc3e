// What the receiver does with each message of a page: its state, its answers, its log. Pure: the browser's part is in
// receiver_simulator.mjs.

import { convertFrame } from "./frame_conversion.mjs";
import { Code, planeExtents, readFrame, recognizeCommand, SlotBytes, takeSlot } from "./message_rules.mjs";

/** @typedef {import("./message_rules.mjs").Frame} Frame */
/** @typedef {import("./message_rules.mjs").Verdict} Verdict */
/** @typedef {import("./frame_conversion.mjs").Picture} Picture */

/**
 * What the receiver sends, in its order.
 * @typedef {object} Output
 * @property {(slot: 0 | 1, bytes: ArrayBuffer) => void} postSlot
 * @property {(json: string) => void} postJson
 * @property {(line: string) => void} log  A line of the receiver's log, without its time.
 */

/** @typedef {{width: number, height: number}} Size */

/** @type {Map<string, Size>} */
const Qualities = new Map([["720p", { width: 1280, height: 720 }], ["1080p", { width: 1920, height: 1080 }]]);
const Layouts = ["landscape", "portrait", "setup"];
const UserFolder = "C:\\Users\\simulator";

const Diagnostics = {
    windowsVersion: "10.0.22631",
    buildNumber: 22631,
    architecture: "x64",
    osSupported: true,
    webView2Ready: true,
    virtualCameraRegistered: true,
    appVersion: "0.1.3",
};

/** @type {Verdict} */
const Done = { code: Code.Ok, reason: "" };

/** @param {number} code */
export const isFailure = (code) => code >= 0x80000000;

export class ReceiverModel {
    #output;
    #pageReady = false;
    #cameraInUse = false;
    #size = { width: 1280, height: 720 };
    #layout = "setup";
    #isFirstFrame = true;
    /** The running recording. @type {{path: string, frames: number} | null} */
    #recording = null;
    /** @type {(Uint8Array | null)[]} */
    #slots = [null, null];
    /** Size of the picture that a snapshot is made of. @type {Size | null} */
    #snapshotSize = null;
    /** The bytes of the newest frame, at their places in its slot. */
    #frameBytes = new Uint8Array(SlotBytes);
    /** The newest frame, until its picture is asked for. @type {{frame: Frame, size: Size} | null} */
    #unconverted = null;
    /** @type {Picture | null} */
    #picture = null;

    framesPublished = 0;
    /** Whether the files of snapshots and recordings cannot be written. */
    diskFull = false;

    /** @param {Output} output */
    constructor(output) {
        this.#output = output;
    }

    /**
     * The camera's picture; null before the first frame. It is converted only here, because a conversion takes several
     * milliseconds of the page's thread, and not every frame is looked at.
     */
    get picture() {
        if (this.#unconverted) {
            const { frame, size } = this.#unconverted;
            this.#picture = convertFrame(this.#frameBytes, frame, size.width, size.height);
            this.#unconverted = null;
        }
        return this.#picture;
    }

    get size() {
        return this.#size;
    }

    get layout() {
        return this.#layout;
    }

    get recording() {
        return this.#recording;
    }

    /** @param {0 | 1} slot */
    slotBytes(slot) {
        return this.#slots[slot];
    }

    /**
     * Moves the memory of a slot to another buffer: the page has given its own one back.
     * @param {0 | 1} slot
     * @param {ArrayBuffer} buffer
     */
    moveSlot(slot, buffer) {
        this.#slots[slot] = new Uint8Array(buffer);
    }

    /** @param {boolean} active  Whether a camera application requests frames. */
    setCameraInUse(active) {
        if (active !== this.#cameraInUse) {
            this.#cameraInUse = active;
            if (this.#pageReady) {
                this.#postUsage();
            }
        }
    }

    /**
     * Handles one posted value.
     * @param {unknown} message
     * @returns {Verdict}
     */
    handle(message) {
        if (typeof message !== "string") {
            return refused("The message is not a string");
        }
        const [text] = message.split("\0", 1); // The receiver's texts end there.
        const found = recognizeCommand(text);
        switch (found?.command) {
        case "ready":
            return this.#handleReady();
        case "window:orientation:":
            return this.#handleLayout(found.argument);
        case "media:snapshot":
            return this.#handleSnapshot();
        case "media:record:start":
            return this.#handleRecordStart();
        case "media:record:stop":
            return this.#handleRecordStop();
        case "quality:":
            return this.#handleQuality(found.argument);
        case "frame:":
            return this.#handleFrame(found.argument);
        default:
            this.#log(`Web message: ${text}`);
            return {
                code: Code.Ok,
                reason: text.startsWith("error:") ? "" : `"${text.slice(0, 60)}" is no command: it is only logged`,
            };
        }
    }

    #handleReady() {
        this.#log("Web message: ready");
        for (const slot of /** @type {const} */ ([0, 1])) {
            const buffer = new ArrayBuffer(SlotBytes);
            this.#slots[slot] = new Uint8Array(buffer);
            this.#output.postSlot(slot, buffer);
        }
        this.#log("Shared frame buffers posted to script");
        this.#post({ type: "diagnostics", diagnostics: Diagnostics });
        this.#log("System diagnostics posted to script");
        this.#pageReady = true;
        if (this.#cameraInUse) {
            this.#postUsage();
        }
        return Done;
    }

    /** @param {string} layout */
    #handleLayout(layout) {
        if (!Layouts.includes(layout)) {
            return refused(`"${layout.slice(0, 40)}" is none of ${Layouts.join(", ")}`);
        }
        if (layout !== this.#layout) {
            this.#layout = layout;
            this.#log(`Receiver window layout: ${layout}`);
        }
        return Done;
    }

    /** @param {string} name */
    #handleQuality(name) {
        if (this.#recording) { // Before the name is examined: an unknown one ends it, too.
            const { verdict, path } = this.#endRecording();
            this.#postMediaResult("recording-stopped", verdict.code, path);
        }
        const size = Qualities.get(name);
        if (!size) {
            return refused(`"${name.slice(0, 40)}" is none of ${[...Qualities.keys()].join(", ")}`);
        }
        this.#size = size;
        this.#log(`Video quality selected: ${name}`);
        return Done;
    }

    #handleSnapshot() {
        const size = this.#snapshotSize;
        let verdict = Done;
        if (!size) {
            verdict = { code: Code.NotAvailable, reason: "There is no picture yet: post a frame first" };
        } else if (size.width < this.#size.width) {
            verdict = refused("The newest picture has the size before the change of quality: post a frame first");
        } else if (this.diskFull) {
            verdict = { code: Code.DiskFull, reason: "The disk is full" };
        }
        const path = size ? capturePath("Pictures", "jpg") : "";
        this.#log("Snapshot requested", verdict.code);
        this.#postMediaResult("snapshot", verdict.code, path);
        return verdict;
    }

    #handleRecordStart() {
        /** @type {Verdict} */
        const verdict = this.#recording ? { code: Code.AlreadyExists, reason: "A recording is running" } : Done;
        const path = this.#recording ? "" : capturePath("Videos", "mp4");
        this.#recording ??= { path, frames: 0 };
        this.#log("Recording started", verdict.code);
        this.#postMediaResult("recording-started", verdict.code, path);
        return verdict;
    }

    #handleRecordStop() {
        const { verdict, path } = this.#endRecording();
        this.#log("Recording stopped", verdict.code);
        this.#postMediaResult("recording-stopped", verdict.code, path);
        return verdict;
    }

    /** @returns {{verdict: Verdict, path: string}} */
    #endRecording() {
        const recording = this.#recording;
        this.#recording = null;
        if (!recording) {
            return { verdict: { code: Code.False, reason: "No recording was running" }, path: "" };
        }
        const isEmpty = recording.frames === 0;
        return {
            verdict: isEmpty ? { code: Code.NoSamples, reason: "No frame was posted since the start" } : Done,
            path: recording.path,
        };
    }

    /** @param {string} argument */
    #handleFrame(argument) {
        const named = takeSlot(argument);
        const bytes = named && this.#slots[named.slot];
        if (!bytes) {
            return refused(named ? 'The slot was not posted yet: post "ready" and wait for it'
                : 'The message names no slot: it begins with "frame:0:" or "frame:1:"');
        }
        const isFirst = this.#isFirstFrame;
        this.#isFirstFrame = false;
        if (isFirst) {
            this.#log(`First frame descriptor: frame:${argument}`);
        }
        const result = readFrame(named.fields);
        const verdict = "refusal" in result ? this.#refuseFrame(result.refusal) : this.#publish(bytes, result.frame);
        if (isFirst) {
            this.#log("First browser frame published", verdict.code);
        }
        return verdict;
    }

    /** @param {Verdict} refusal */
    #refuseFrame(refusal) {
        if (refusal.code === Code.InvalidMediaType) { // The receiver makes snapshots of a black picture then.
            this.#snapshotSize = this.#size;
        }
        return refusal;
    }

    /**
     * @param {Uint8Array} bytes
     * @param {Frame} frame
     */
    #publish(bytes, frame) {
        for (const { start, end } of planeExtents(frame)) {
            this.#frameBytes.set(bytes.subarray(start, end), start);
        }
        this.#unconverted = { frame, size: this.#size };
        this.#snapshotSize = this.#size;
        ++this.framesPublished;
        if (this.#recording && this.diskFull) {
            const { path } = this.#recording;
            this.#recording = null;
            this.#postMediaResult("recording-failed", Code.DiskFull, path);
            return { code: Code.DiskFull, reason: "The recording has ended: the disk is full" };
        }
        if (this.#recording) {
            ++this.#recording.frames;
        }
        return Done;
    }

    #postUsage() {
        this.#post({ type: "virtual-camera-usage", active: this.#cameraInUse });
    }

    /**
     * @param {string} action
     * @param {number} code
     * @param {string} path
     */
    #postMediaResult(action, code, path) {
        this.#post({ type: "media-result", action, success: !isFailure(code), path, error: code });
    }

    /** @param {object} message */
    #post(message) {
        this.#output.postJson(JSON.stringify(message));
    }

    /**
     * @param {string} text
     * @param {number} code
     */
    #log(text, code = Code.Ok) {
        const narrow = text.replace(/[\ud800-\udbff][\udc00-\udfff]|[^\x20-\xff]/g, "?");
        this.#output.log(narrow + (isFailure(code) ? ` (HRESULT ${hexadecimal(code)})` : ""));
    }
}

/** @param {number} code */
export const hexadecimal = (code) => `0x${code.toString(16).toUpperCase().padStart(8, "0")}`;

/**
 * @param {string} reason
 * @returns {Verdict}
 */
function refused(reason) {
    return { code: Code.InvalidArgument, reason };
}

/**
 * @param {"Pictures" | "Videos"} folder
 * @param {"jpg" | "mp4"} extension
 */
function capturePath(folder, extension) {
    const now = new Date();
    const text = (/** @type {number} */ value, digits = 2) => String(value).padStart(digits, "0");
    const date = text(now.getFullYear(), 4) + text(now.getMonth() + 1) + text(now.getDate());
    const time = text(now.getHours()) + text(now.getMinutes()) + text(now.getSeconds());
    const name = `Vistel-${date}-${time}-${text(now.getMilliseconds(), 3)}.${extension}`;
    return `${UserFolder}\\${folder}\\Vistel\\${name}`;
}
