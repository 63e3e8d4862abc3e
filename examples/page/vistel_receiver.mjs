// Speaks the receiver's page protocol on behalf of a page: frame slots, frame messages, commands and answers.
// Where the frames come from and how the page shows what it hears is left to the page.

/**
 * What the browser offers as chrome.webview, as far as it is used here.
 * @typedef {object} WebView
 * @property {(text: string) => void} postMessage
 * @property {(type: string, listener: (event: any) => void) => void} addEventListener
 */

/** @typedef {"landscape" | "portrait" | "setup"} Orientation */
/** @typedef {"720p" | "1080p"} Quality */

/**
 * @typedef {object} MediaResult
 * @property {"snapshot" | "recording-started" | "recording-stopped" | "recording-failed"} action
 * @property {boolean} success
 * @property {string} path   Full path of the file, empty when there is none.
 * @property {number} error  HRESULT as an unsigned number. A stop while nothing was being recorded succeeds with 1.
 */

/**
 * @typedef {object} Diagnostics
 * @property {string} windowsVersion
 * @property {number} buildNumber
 * @property {string} architecture
 * @property {boolean} osSupported
 * @property {boolean} webView2Ready
 * @property {boolean} virtualCameraRegistered
 * @property {string} appVersion
 */

/**
 * What lies in a slot: the numbers of one frame message.
 * @typedef {object} SlotPicture
 * @property {0 | 1} slot
 * @property {string} format
 * @property {number} width          Width of the planes in the slot, even.
 * @property {number} height         Height of the planes in the slot, even.
 * @property {boolean} flip          The frame's own horizontal flip, applied after its rotation.
 * @property {0 | 90 | 180 | 270} rotation  Degrees clockwise.
 * @property {boolean} mirror        A further horizontal flip that the page wishes.
 * @property {number} displayWidth   Display size after rotation; only its aspect ratio counts.
 * @property {number} displayHeight
 * @property {PlaneLayout[]} planes  Byte offset and stride of each plane.
 */

/** The formats that the receiver converts; a frame in any other format is copied as RGBX. */
const HostFormats = new Set(["NV12", "I420", "I420A", "RGBA", "RGBX", "BGRA", "BGRX"]);
const MaxCodedWidth = 4096;
const MaxCodedHeight = 2160;
const MaxDisplaySize = 4096;

/** Long enough for the receiver to finish a long recording's file. */
const AnswerTimeoutMs = 60000;

const Orientations = ["landscape", "portrait", "setup"];
const Qualities = ["720p", "1080p"];

/** The answer to a start while a recording runs. */
const AlreadyExists = 0x800700B7;

/** Names of the codes that are likely in a MediaResult. */
const ErrorNames = new Map([
    [0x80004001, "E_NOTIMPL"],
    [0x80004003, "E_POINTER"],
    [0x80004005, "E_FAIL"],
    [0x80040154, "REGDB_E_CLASSNOTREG"],
    [0x80070002, "ERROR_FILE_NOT_FOUND"],
    [0x80070003, "ERROR_PATH_NOT_FOUND"],
    [0x80070005, "E_ACCESSDENIED"],
    [0x8007000E, "E_OUTOFMEMORY"],
    [0x80070020, "ERROR_SHARING_VIOLATION"],
    [0x80070057, "E_INVALIDARG"],
    [0x80070070, "ERROR_DISK_FULL"],
    [AlreadyExists, "ERROR_ALREADY_EXISTS"],
    [0x8007010B, "ERROR_DIRECTORY"],
    [0xC00D36B4, "MF_E_INVALIDMEDIATYPE"],
    [0xC00D36D6, "MF_E_NOT_AVAILABLE"],
    [0xC00D4A44, "MF_E_SINK_NO_SAMPLES_PROCESSED"],
    [0xC00D5212, "MF_E_TOPO_CODEC_NOT_FOUND"],
]);

/**
 * A code as people look it up: hexadecimal, with its name where that is known.
 * @param {number} error  As in a MediaResult.
 */
export function errorText(error) {
    const name = ErrorNames.get(error);
    return `0x${error.toString(16).toUpperCase().padStart(8, "0")}${name ? ` ${name}` : ""}`;
}

/** A snapshot or recording command that the receiver could not carry out. */
export class MediaError extends Error {
    /** @param {MediaResult} result */
    constructor(result) {
        super(`${result.action}: ${errorText(result.error)}`);
        this.name = "MediaError";
        this.result = result;
    }
}

/**
 * The text that tells the receiver which picture a slot now holds.
 * @param {SlotPicture} picture
 * @returns {string}
 */
export function frameMessage(picture) {
    const planes = picture.planes.map(({ offset, stride }) => `${offset},${stride}`).join(";");
    return [
        "frame", picture.slot, picture.format, picture.width, picture.height, Number(picture.flip), picture.rotation,
        Number(picture.mirror), picture.displayWidth, picture.displayHeight, planes,
    ].join(":");
}

/**
 * The part of a frame to copy: its visible rectangle, cut to even edges, since chroma is shared by two pixels
 * each way and the receiver takes even sizes only. Not to be confused with the coded size, which may be larger.
 * @param {DOMRectReadOnly} visible
 */
export function copyRectangle(visible) {
    const x = visible.x + visible.x % 2;
    const y = visible.y + visible.y % 2;
    const right = visible.x + visible.width;
    const bottom = visible.y + visible.height;
    return { x, y, width: right - right % 2 - x, height: bottom - bottom % 2 - y };
}

/**
 * Whether a frame's colors mean to the receiver what they mean to the browser: it passes YUV bytes on as BT.601
 * limited range, whatever they are, and converts RGB to that itself.
 * @param {VideoFrame} frame
 */
function hasHostColors(frame) {
    const { matrix, fullRange } = frame.colorSpace;
    return matrix === "rgb" || (!fullRange && (matrix === null || matrix === "smpte170m" || matrix === "bt470bg"));
}

/**
 * One page's connection to the receiver.
 *
 * Events, each a CustomEvent with the named detail:
 * - "slots": null; both slots have arrived and frames can be posted.
 * - "diagnostics": Diagnostics, after every connect().
 * - "usage": boolean, whether a camera application is pulling frames. Inactive until told otherwise.
 * - "media-result": MediaResult, every one, asked for or not: a change of quality ends a recording, and a
 *   recording can fail by itself.
 *
 * Quality and media commands reach the receiver in the order of the calls, each after the one before was answered.
 * A result names only its action, so with one command under way at a time no result that was not asked for can be
 * taken for another command's answer later on.
 */
export class VistelReceiver extends EventTarget {
    /** @type {WebView} */
    #webview;
    /** @type {(Uint8Array | null)[]} */
    #slots = [null, null];
    /** @type {0 | 1} */
    #nextSlot = 0;
    #copying = false;
    /** @type {((result: MediaResult) => void) | null} Set while a command waits for its answer. */
    #takeResult = null;
    /** @type {(() => void)[]} What to post once that answer is here. */
    #waiting = [];
    /** framesPosted when a start was posted last, and when that of the last recording was. */
    #askedAt = 0;
    #beganAt = 0;
    /** @type {number | null} framesPosted when what ended it was posted, null before. */
    #endedAt = 0;

    framesPosted = 0;
    /** Frames given up because a copy was under way or the slots were missing or replaced. */
    framesDropped = 0;
    /** Whether a recording runs, as far as the receiver has said: one from before a reload is not known. */
    recording = false;
    /** Whether a camera application is pulling frames. */
    cameraInUse = false;
    /** @type {Diagnostics | null} */
    diagnostics = null;
    /** @type {SlotPicture | null} The picture posted last. */
    lastPicture = null;

    /** Whether this page is shown by the receiver (or by another program that hosts WebView2). */
    static get available() {
        return Boolean(globalThis.chrome?.webview);
    }

    /** @param {WebView | undefined} webview */
    constructor(webview = globalThis.chrome?.webview) {
        super();
        if (!webview) {
            throw new Error("The page is not shown by the receiver");
        }
        this.#webview = webview;
        webview.addEventListener("sharedbufferreceived", (event) => this.#onSlot(event));
        webview.addEventListener("message", (event) => this.#onMessage(event.data));
    }

    get connected() {
        return this.#slots.every((slot) => slot !== null);
    }

    /**
     * Frames of the recording that runs or, after its end, of the last one: those posted from its start to its end.
     * Not known, and not counted, of one from before a reload.
     */
    get framesRecorded() {
        return (this.#endedAt ?? this.framesPosted) - this.#beganAt;
    }

    /** Byte sizes of the slots, 0 for one that has not arrived. */
    get slotSizes() {
        return this.#slots.map((slot) => slot?.byteLength ?? 0);
    }

    /**
     * Asks for new slots and the diagnostics; resolves when both slots have arrived. The receiver says nothing when
     * it cannot make them, so that only time tells.
     * @returns {Promise<void>}
     */
    connect() {
        this.#slots = [null, null];
        return new Promise((resolve, reject) => {
            const timer = setTimeout(() => reject(noAnswer("ready")), AnswerTimeoutMs);
            this.addEventListener("slots", () => {
                clearTimeout(timer);
                resolve();
            }, { once: true });
            this.#webview.postMessage("ready");
        });
    }

    /**
     * Copies a frame into the next slot and tells the receiver. Always closes the frame. The receiver never
     * acknowledges a frame; the two slots take turns, and a frame that comes while another is being copied is
     * dropped.
     *
     * exactColors copies a frame whose YUV colors the receiver would misread (a canvas captured by WebRTC is
     * BT.709 full range) as RGB instead: true colors for more than twice the bytes.
     * @param {VideoFrame} frame
     * @param {{mirror?: boolean, exactColors?: boolean}} options
     * @returns {Promise<boolean>} Whether the frame was posted.
     */
    async postFrame(frame, { mirror = false, exactColors = false } = {}) {
        const slot = this.#nextSlot;
        const bytes = this.#slots[slot];
        if (this.#copying || !bytes || !this.connected) {
            frame.close();
            ++this.framesDropped;
            return false;
        }
        this.#copying = true;
        try {
            const { format, options } = this.#planCopy(frame, bytes.byteLength, exactColors);
            const planes = await frame.copyTo(bytes, options);
            if (this.#slots[slot] !== bytes) {
                ++this.framesDropped;
                return false;
            }
            this.lastPicture = {
                slot,
                format,
                width: options.rect.width,
                height: options.rect.height,
                // Older runtimes have neither attribute and deliver upright frames.
                flip: frame.flip ?? false,
                rotation: frame.rotation ?? 0,
                mirror,
                displayWidth: frame.displayWidth,
                displayHeight: frame.displayHeight,
                planes,
            };
            this.#webview.postMessage(frameMessage(this.lastPicture));
            this.#nextSlot = slot === 0 ? 1 : 0;
            ++this.framesPosted;
            return true;
        } finally {
            this.#copying = false;
            frame.close();
        }
    }

    /** @param {Orientation} orientation */
    setOrientation(orientation) {
        requireOneOf(Orientations, orientation);
        this.#webview.postMessage(`window:orientation:${orientation}`);
    }

    /**
     * Chooses the size at which the camera, snapshots and recordings get the picture. Ends a running recording.
     * @param {Quality} quality
     */
    setQuality(quality) {
        requireOneOf(Qualities, quality);
        this.#inTurn(() => this.#post(`quality:${quality}`));
    }

    /** Resolves to the result with the picture's path; rejects with a MediaError. */
    takeSnapshot() {
        return this.#ask("media:snapshot", "snapshot");
    }

    /** Resolves to the result with the path of the file being written; rejects with a MediaError. */
    startRecording() {
        return this.#ask("media:record:start", "recording-started");
    }

    /** Resolves to the result with the finished file's path, empty when nothing was being recorded. */
    stopRecording() {
        return this.#ask("media:record:stop", "recording-stopped");
    }

    /**
     * Leaves a line in the receiver's log.
     * @param {string} message
     */
    reportError(message) {
        this.#webview.postMessage(`error:${message}`);
    }

    /**
     * @param {string} command
     * @param {MediaResult["action"]} action
     * @returns {Promise<MediaResult>}
     */
    #ask(command, action) {
        return new Promise((resolve, reject) => this.#inTurn(() => {
            const timer = setTimeout(() => {
                reject(noAnswer(command));
                this.#endTurn();
            }, AnswerTimeoutMs);
            this.#takeResult = (result) => {
                if (result.action !== action) {
                    return;
                }
                clearTimeout(timer);
                if (result.success) {
                    resolve(result);
                } else {
                    reject(new MediaError(result));
                }
                this.#endTurn();
            };
            this.#post(command);
        }));
    }

    /**
     * The receiver takes messages in their order: a recording has the frames between the commands at its ends. A
     * quality ends it as a stop does, even the one in force.
     * @param {string} command
     */
    #post(command) {
        if (command === "media:record:start") {
            this.#askedAt = this.framesPosted;
        } else if (command !== "media:snapshot") {
            this.#endedAt ??= this.framesPosted;
        }
        this.#webview.postMessage(command);
    }

    /** @param {() => void} post */
    #inTurn(post) {
        if (this.#takeResult) {
            this.#waiting.push(post);
        } else {
            post();
        }
    }

    #endTurn() {
        this.#takeResult = null;
        while (!this.#takeResult && this.#waiting.length > 0) {
            this.#waiting.shift()?.();
        }
    }

    /**
     * @param {VideoFrame} frame
     * @param {number} slotSize
     * @param {boolean} exactColors
     */
    #planCopy(frame, slotSize, exactColors) {
        const rect = copyRectangle(frame.visibleRect);
        const asItIs = HostFormats.has(frame.format) && (!exactColors || hasHostColors(frame));
        const options = asItIs ? { rect } : { rect, format: "RGBX" };
        const fits = rect.width >= 2 && rect.width <= MaxCodedWidth && rect.height >= 2 &&
            rect.height <= MaxCodedHeight && frame.displayWidth <= MaxDisplaySize &&
            frame.displayHeight <= MaxDisplaySize && frame.allocationSize(options) <= slotSize;
        if (!fits) {
            throw new RangeError(`The receiver has no room for a ${frame.format} frame of ` +
                `${rect.width} x ${rect.height}`);
        }
        return { format: asItIs ? frame.format : "RGBX", options };
    }

    /** @param {{additionalData?: {slot?: unknown}, getBuffer: () => ArrayBuffer}} event */
    #onSlot(event) {
        const slot = event.additionalData?.slot;
        if (slot !== 0 && slot !== 1) {
            return;
        }
        this.#slots[slot] = new Uint8Array(event.getBuffer());
        if (this.connected) {
            this.#notify("slots", null);
        }
    }

    /** @param {any} message */
    #onMessage(message) {
        switch (message?.type) {
        case "diagnostics":
            this.diagnostics = message.diagnostics;
            this.#notify("diagnostics", message.diagnostics);
            break;
        case "virtual-camera-usage":
            this.cameraInUse = message.active;
            this.#notify("usage", message.active);
            break;
        case "media-result":
            this.#onMediaResult(message);
            break;
        default:
            break; // A newer receiver may say more.
        }
    }

    /** @param {MediaResult} result */
    #onMediaResult(result) {
        if (result.action === "recording-started") {
            this.recording = result.success || result.error === AlreadyExists;
            if (result.success) {
                this.#beganAt = this.#askedAt;
                this.#endedAt = null;
            }
        } else if (result.action === "recording-stopped" || result.action === "recording-failed") {
            this.recording = false;
            this.#endedAt ??= this.framesPosted;
        }
        this.#notify("media-result", result);
        this.#takeResult?.(result);
    }

    /**
     * @param {string} type
     * @param {unknown} detail
     */
    #notify(type, detail) {
        this.dispatchEvent(new CustomEvent(type, { detail }));
    }
}

/** @param {string} text */
function noAnswer(text) {
    return new Error(`${text}: the receiver did not answer`);
}

/**
 * @param {string[]} values
 * @param {string} value
 */
function requireOneOf(values, value) {
    if (!values.includes(value)) {
        throw new TypeError(`"${value}" is none of ${values.join(", ")}`);
    }
}
