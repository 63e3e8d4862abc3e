// Implements the receiver's page protocol for a page: frame slots, frame messages, commands and their answers.
// The page supplies the frames and shows what the receiver reports.

/** @typedef {"landscape" | "portrait" | "setup"} Orientation */
/** @typedef {"720p" | "1080p"} Quality */

/**
 * @typedef {object} MediaResult
 * @property {"snapshot" | "recording-started" | "recording-stopped" | "recording-failed"} action
 * @property {boolean} success
 * @property {string} path   Full path of the file, empty when there is none.
 * @property {number} error  HRESULT as an unsigned number. A stop while no recording is running succeeds with 1.
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
 * What the receiver posts. A newer receiver may post more.
 * @typedef {{type: "diagnostics", diagnostics: Diagnostics} | {type: "virtual-camera-usage", active: boolean} |
 *     {type: "media-result"} & MediaResult} HostMessage
 */

/**
 * The part of chrome.webview that a page of the receiver needs.
 * @typedef {object} WebView
 * @property {(text: string) => void} postMessage
 * @property {<Type extends keyof WebViewEvents>(type: Type, listener: (event: WebViewEvents[Type]) => void,
 *     options?: {once?: boolean, signal?: AbortSignal}) => void} addEventListener
 * @property {(buffer: ArrayBuffer) => void} [releaseBuffer]
 */

/**
 * @typedef {object} WebViewEvents
 * @property {MessageEvent<HostMessage>} message
 * @property {Event & {additionalData: {slot: 0 | 1}, getBuffer: () => ArrayBuffer}} sharedbufferreceived
 */

/**
 * The events of a VistelReceiver.
 * @typedef {{
 *     "slots": CustomEvent<null>,
 *     "diagnostics": CustomEvent<Diagnostics>,
 *     "usage": CustomEvent<boolean>,
 *     "frame-error": CustomEvent<Error>,
 *     "media-result": CustomEvent<MediaResult>,
 * }} VistelReceiverEvents
 */

/**
 * @typedef {object} FrameOptions
 * @property {boolean} [mirror]       Mirror the picture, left to right.
 * @property {boolean} [exactColors]  Copy a frame as RGB if the receiver would show wrong colors for its YUV; see
 *     hasHostColors(). The frame then has more than twice the bytes.
 * @property {AbortSignal} [signal]   Ends feed(), and drops a frame that waits.
 */

/**
 * The picture in a slot: the fields of one frame message.
 * @typedef {object} SlotPicture
 * @property {0 | 1} slot
 * @property {string} format
 * @property {number} width          Width of the planes in the slot, even.
 * @property {number} height         Height of the planes in the slot, even.
 * @property {boolean} flip          The frame's own horizontal flip, applied after its rotation.
 * @property {0 | 90 | 180 | 270} rotation  Degrees clockwise.
 * @property {boolean} mirror        One more horizontal flip, chosen by the page.
 * @property {number} displayWidth   Display size after rotation; only its aspect ratio counts.
 * @property {number} displayHeight
 * @property {PlaneLayout[]} planes  Byte offset and stride of each plane.
 */

/** The formats that the receiver converts; a frame in any other format is copied as RGBX. */
const HostFormats = new Set(["NV12", "I420", "I420A", "RGBA", "RGBX", "BGRA", "BGRX"]);
const MaxCodedWidth = 4096;
const MaxCodedHeight = 2160;
const MaxDisplaySize = 4096;
/** The camera's largest picture, wide or tall: a frame that does not fit in a slot is scaled down to it. */
const MaxScaledLength = 1920;
const MaxScaledBreadth = 1080;

/** Long enough for the receiver to complete the file of a long recording. */
const AnswerTimeoutMs = 60000;
const ReadyTimeoutMs = 5000;
/** A slot is not written again for this time after its frame message, so that the receiver can read it. */
const SlotReadMs = 16;

const Orientations = ["landscape", "portrait", "setup"];
const Qualities = ["720p", "1080p"];

/** The answer to a start while a recording is running. */
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
 * A code in the form that people search for: hexadecimal, with its name if that is known.
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
 * The frame message for a picture in a slot.
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
 * The part of a frame to copy: its visible rectangle with its edges moved inward to even numbers, because 2 x 2 pixels
 * share their chroma and the receiver accepts even sizes only. The coded size may be larger; it is not used.
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
 * Whether the receiver shows a frame's colors as the browser does: it takes all YUV bytes for BT.601 limited range, and
 * converts RGB to that.
 * @param {VideoFrame} frame
 * @returns {boolean}
 */
export function hasHostColors(frame) {
    const { matrix, fullRange } = frame.colorSpace;
    return matrix === "rgb" || (!fullRange && (matrix === null || matrix === "smpte170m" || matrix === "bt470bg"));
}

/**
 * The hosts that an open VistelReceiver uses: two of them would write into the same slots. All copies of this module in
 * a page share it.
 * @type {WeakSet<WebView>}
 */
const webviewsInUse = (/** @type {any} */ (globalThis)[Symbol.for("VistelReceiver.webviewsInUse")] ??= new WeakSet());

/**
 * @template {keyof VistelReceiverEvents} Type
 * @typedef {((event: VistelReceiverEvents[Type]) => void) |
 *     {handleEvent: (event: VistelReceiverEvents[Type]) => void} | null} VistelReceiverListener
 */

/**
 * EventTarget, which knows the types of the events.
 * @type {new () => {
 *     addEventListener<Type extends keyof VistelReceiverEvents>(type: Type, listener: VistelReceiverListener<Type>,
 *         options?: boolean | AddEventListenerOptions): void,
 *     removeEventListener<Type extends keyof VistelReceiverEvents>(type: Type, listener: VistelReceiverListener<Type>,
 *         options?: boolean | EventListenerOptions): void,
 *     dispatchEvent(event: Event): boolean,
 * }}
 */
const TypedEventTarget = /** @type {any} */ (EventTarget);

/** @returns {WebView | undefined} */
function findWebview() {
    return /** @type {any} */ (globalThis).chrome?.webview;
}

/**
 * One page's connection to the receiver. There is one at a time; after close() the page may make another one.
 *
 * Events, each a CustomEvent with the named detail:
 * - "slots": null; both slots have arrived and frames can be posted.
 * - "diagnostics": Diagnostics, after every connect().
 * - "usage": boolean, whether a camera application is using the camera. Assume false before the first event.
 * - "frame-error": Error, a frame of feed() that could not be posted.
 * - "media-result": MediaResult, also those that answer no command: a change of quality ends a recording, and a
 *   recording can fail.
 *
 * Quality and media commands are posted in the order of the calls, each after the answer to the one before. A result
 * names only its action; with one pending command at a time, a result that answers no command is not mistaken for the
 * answer to another one.
 */
export class VistelReceiver extends TypedEventTarget {
    /** @type {WebView} */
    #webview;
    /** @type {(Uint8Array<ArrayBuffer> | null)[]} */
    #slots = [null, null];
    /** @type {0 | 1} */
    #nextSlot = 0;
    /** @type {Uint8Array<ArrayBuffer> | null} The slot that a frame is being copied to. */
    #copyTarget = null;
    /**
     * The newest frame, until it is copied.
     * @type {{frame: VideoFrame, options: FrameOptions, resolve: (isPosted: boolean) => void,
     *     reject: (error: unknown) => void} | null}
     */
    #waitingFrame = null;
    /** Whether #postWaitingFrames() runs. */
    #isPosting = false;
    /** Makes it look at the waiting frame again. */
    #wake = () => {};
    /** When the frame message of each slot was posted. */
    #postedMs = [-Infinity, -Infinity];
    /** Removes the listeners. */
    #open = new AbortController();
    /** @type {Promise<void> | null} Set while connect() waits. */
    #connecting = null;
    /** @type {Quality | null} The quality that was posted last. */
    #quality = null;
    /** Whether no frame has been posted since the quality changed. */
    #awaitsNewSize = false;
    /** @type {(() => void) | null} Posts the snapshot that waits for that frame. */
    #postSnapshot = null;
    /** For scaling. */
    #canvas = new OffscreenCanvas(2, 2);
    /** @type {((result: MediaResult) => void) | null} Set while a command is pending. */
    #takeResult = null;
    /** @type {(() => void)[]} What to post after that answer. */
    #waiting = [];
    /** framesPosted when the last start was posted, and when the start of the last recording was. */
    #askedAt = 0;
    #beganAt = 0;
    /** @type {number | null} framesPosted when the command that ended it was posted; null before. */
    #endedAt = 0;

    framesPosted = 0;
    /** Frames dropped: a newer one came before the copy, the slots were missing or replaced, the copy failed. */
    drops = { busy: 0, noSlot: 0, failed: 0 };
    /** Whether a recording is running; one that was started before a reload is not known. */
    recording = false;
    /** Whether a camera application is using the camera. */
    cameraInUse = false;
    /** @type {Diagnostics | null} */
    diagnostics = null;
    /** @type {SlotPicture | null} The last posted picture. */
    lastPicture = null;

    /** Whether this page is shown by the receiver (or by another program that hosts WebView2). */
    static get available() {
        return Boolean(findWebview());
    }

    /** @param {{webview?: WebView, signal?: AbortSignal}} options  The signal closes the connection. */
    constructor({ webview = findWebview(), signal } = {}) {
        super();
        if (!webview) {
            throw new Error("The page is not shown by the receiver");
        }
        if (webviewsInUse.has(webview)) {
            throw new Error("This page has a VistelReceiver already; close() it first");
        }
        signal?.throwIfAborted();
        webviewsInUse.add(webview);
        this.#webview = webview;
        const options = { signal: this.#open.signal };
        webview.addEventListener("sharedbufferreceived", (event) => this.#onSlot(event), options);
        webview.addEventListener("message", (event) => this.#onMessage(event.data), options);
        signal?.addEventListener("abort", () => this.close(), options);
    }

    /**
     * Removes all listeners and gives the slots back. Everything that is pending rejects, and so does every later call
     * that needs an answer; frames are dropped. The receiver's state does not change: a recording goes on.
     */
    close() {
        if (!this.#open.signal.aborted) {
            this.#open.abort(new Error("The VistelReceiver is closed"));
            this.#endTurn();
            this.#dropSlots();
            this.#wake();
            webviewsInUse.delete(this.#webview);
        }
    }

    get framesDropped() {
        return this.drops.busy + this.drops.noSlot + this.drops.failed;
    }

    get connected() {
        return this.#slots.every((slot) => slot !== null);
    }

    /**
     * The number of frames of the running recording or, after its end, of the last one: those posted from its start to
     * its end. A recording that was started before a reload is not counted.
     */
    get framesRecorded() {
        return (this.#endedAt ?? this.framesPosted) - this.#beganAt;
    }

    /** Byte sizes of the slots, 0 for one that has not arrived. */
    get slotSizes() {
        return this.#slots.map((slot) => slot?.byteLength ?? 0);
    }

    /**
     * Requests new slots and the diagnostics; resolves when both slots have arrived. The receiver does not report that
     * it cannot create them, so this rejects after a time limit. A call during another one waits for the same slots.
     * @param {{timeoutMs?: number}} options
     * @returns {Promise<void>}
     */
    connect({ timeoutMs = ReadyTimeoutMs } = {}) {
        this.#connecting ??= this.#limited(timeoutMs, "ready", (/** @type {(value: void) => void} */ succeed) => {
            this.#dropSlots();
            this.addEventListener("slots", () => succeed(), { once: true, signal: this.#open.signal });
            this.#webview.postMessage("ready");
        }).finally(() => {
            this.#connecting = null;
        });
        return this.#connecting;
    }

    /**
     * Copies a frame to the next slot and posts its frame message. Always closes the frame. The two slots are used
     * alternately. A frame waits until the copy before it has ended and until the receiver, which does not acknowledge
     * frames, had the time to read its slot. Only the newest frame waits; older ones are dropped. A frame in another
     * format than the receiver's is converted, and one that is too large is scaled down.
     * @param {VideoFrame} frame
     * @param {FrameOptions} options
     * @returns {Promise<boolean>} Whether the frame was posted.
     */
    postFrame(frame, options = {}) {
        this.#dropWaitingFrame();
        return new Promise((resolve, reject) => {
            this.#waitingFrame = { frame, options, resolve, reject };
            if (this.#isPosting) {
                this.#wake();
            } else {
                this.#postWaitingFrames();
            }
        });
    }

    async #postWaitingFrames() {
        this.#isPosting = true;
        while (this.#waitingFrame) {
            const { frame, options, resolve, reject } = this.#waitingFrame;
            const readMs = this.#postedMs[this.#nextSlot] + SlotReadMs - performance.now();
            if (options.signal?.aborted) {
                this.#dropWaitingFrame();
            } else if (readMs > 0) {
                // The timer may be late while the page is hidden; the next frame comes earlier then.
                await new Promise((wake) => {
                    this.#wake = () => wake(null);
                    setTimeout(wake, readMs);
                });
            } else {
                this.#waitingFrame = null;
                await this.#copyAndPost(frame, options).then(resolve, reject);
            }
        }
        this.#isPosting = false;
    }

    #dropWaitingFrame() {
        if (this.#waitingFrame) {
            this.#waitingFrame.frame.close();
            this.#waitingFrame.resolve(false);
            this.#waitingFrame = null;
            ++this.drops.busy;
        }
    }

    /**
     * @param {VideoFrame} frame
     * @param {FrameOptions} options
     */
    async #copyAndPost(frame, { mirror = false, exactColors = false }) {
        const slot = this.#nextSlot;
        const bytes = this.#slots[slot];
        if (!bytes || !this.connected) {
            frame.close();
            ++this.drops.noSlot;
            return false;
        }
        this.#copyTarget = bytes;
        try {
            let plan = this.#planCopy(frame, bytes.byteLength, exactColors);
            if (!plan) {
                const scaled = this.#scaleDown(frame);
                frame.close();
                frame = scaled;
                plan = this.#planCopy(frame, bytes.byteLength, exactColors);
            }
            if (!plan) {
                throw new RangeError(`A slot of ${bytes.byteLength} bytes has no room for ${frame.displayWidth} x ` +
                    `${frame.displayHeight} pixels`);
            }
            const { format, options } = plan;
            const planes = await frame.copyTo(bytes, options);
            // Older runtimes have neither attribute and deliver upright frames.
            const { flip = false, rotation = 0 } =
                /** @type {VideoFrame & {flip?: boolean, rotation?: SlotPicture["rotation"]}} */ (frame);
            if (this.#slots[slot] !== bytes) {
                ++this.drops.noSlot;
                return false;
            }
            this.lastPicture = {
                slot,
                format,
                width: options.rect.width,
                height: options.rect.height,
                flip,
                rotation,
                mirror,
                displayWidth: frame.displayWidth,
                displayHeight: frame.displayHeight,
                planes,
            };
            this.#webview.postMessage(frameMessage(this.lastPicture));
            this.#postedMs[slot] = performance.now();
            this.#nextSlot = slot === 0 ? 1 : 0;
            ++this.framesPosted;
            this.#awaitsNewSize = false;
            this.#postSnapshot?.();
            this.#postSnapshot = null;
            return true;
        } catch (error) {
            ++this.drops.failed;
            throw error;
        } finally {
            this.#copyTarget = null;
            if (this.#slots[slot] !== bytes) {
                this.#release(bytes);
            }
            frame.close();
        }
    }

    /**
     * Posts the frames of a video track, as postFrame() does, until the track ends, or close() or the signal ends it. A
     * frame that cannot be posted is dropped with the event "frame-error". The options are read for each frame, so that
     * the page may change them.
     * @param {MediaStreamTrack} track
     * @param {FrameOptions} options
     * @returns {Promise<void>}
     */
    async feed(track, options = {}) {
        /** @type {{MediaStreamTrackProcessor?: new (init: {track: MediaStreamTrack}) => {readable: ReadableStream}}} */
        const { MediaStreamTrackProcessor } = /** @type {any} */ (globalThis);
        if (!MediaStreamTrackProcessor) {
            throw new Error("MediaStreamTrackProcessor is unavailable");
        }
        if (track.kind !== "video") {
            throw new TypeError("This is no video track");
        }
        /** @type {ReadableStreamDefaultReader<VideoFrame>} */
        const reader = new MediaStreamTrackProcessor({ track }).readable.getReader();
        const stop = () => {
            reader.cancel();
            this.#wake();
        };
        const signals = options.signal ? [this.#open.signal, options.signal] : [this.#open.signal];
        signals.forEach((signal) => signal.addEventListener("abort", stop));
        if (signals.some((signal) => signal.aborted)) {
            stop();
        }
        /** @type {Promise<unknown> | null} */
        let posting = null;
        try {
            for (let next = await reader.read(); !next.done; next = await reader.read()) {
                posting = this.postFrame(next.value, options).catch((error) => this.#notify("frame-error", error));
            }
            await posting;
        } finally {
            signals.forEach((signal) => signal.removeEventListener("abort", stop));
        }
    }

    /** @param {Orientation} orientation */
    setOrientation(orientation) {
        requireOneOf(Orientations, orientation);
        this.#webview.postMessage(`window:orientation:${orientation}`);
    }

    /**
     * Sets the size of the camera's picture and of snapshots and recordings. Ends a running recording.
     * @param {Quality} quality
     */
    setQuality(quality) {
        requireOneOf(Qualities, quality);
        this.#inTurn(() => {
            this.#awaitsNewSize ||= quality !== this.#quality;
            this.#quality = quality;
            this.#post(`quality:${quality}`);
        });
    }

    /**
     * Resolves to the result with the picture's path; rejects with a MediaError. After a change of quality the snapshot
     * is taken of the first frame of the new size.
     * @returns {Promise<MediaResult>}
     */
    takeSnapshot() {
        return this.#ask("media:snapshot", "snapshot");
    }

    /**
     * Resolves to the result with the path of the file being written; rejects with a MediaError.
     * @returns {Promise<MediaResult>}
     */
    startRecording() {
        return this.#ask("media:record:start", "recording-started");
    }

    /**
     * Resolves to the result with the path of the complete file, empty when no recording was running; rejects with a
     * MediaError.
     * @returns {Promise<MediaResult>}
     */
    stopRecording() {
        return this.#ask("media:record:stop", "recording-stopped");
    }

    /**
     * Adds a line to the receiver's log. Line breaks in the message become spaces.
     * @param {string} message
     */
    reportError(message) {
        this.#webview.postMessage(`error:${message.replace(/\s*[\r\n]\s*/g, " ")}`);
    }

    /**
     * @param {string} command
     * @param {MediaResult["action"]} action
     * @returns {Promise<MediaResult>}
     */
    #ask(command, action) {
        return new Promise((resolve, reject) => this.#inTurn(() => {
            /** @type {((result: MediaResult) => void) | null} */
            let takeResult = null;
            const endTurn = () => {
                if (this.#takeResult === takeResult) {
                    this.#endTurn();
                }
            };
            this.#limited(AnswerTimeoutMs, command, (succeed, fail) => {
                takeResult = (result) => {
                    if (result.action !== action) {
                        return;
                    }
                    if (result.success) {
                        succeed(result);
                    } else {
                        fail(new MediaError(result));
                    }
                    endTurn();
                };
                this.#takeResult = takeResult;
                if (command === "media:snapshot" && this.#awaitsNewSize) {
                    this.#postSnapshot = () => this.#post(command);
                } else {
                    this.#post(command);
                }
            }).then(resolve, reject).finally(endTurn);
        }));
    }

    /**
     * A promise that rejects after the time limit and when the connection is closed.
     * @template T
     * @param {number} timeoutMs
     * @param {string} command  What is not answered then.
     * @param {(succeed: (value: T) => void, fail: (error: Error) => void) => void} begin
     * @returns {Promise<T>}
     */
    #limited(timeoutMs, command, begin) {
        return new Promise((resolve, reject) => {
            const { signal } = this.#open;
            signal.throwIfAborted();
            /** @param {(value: any) => void} finish */
            const settle = (finish) => (/** @type {any} */ value) => {
                clearTimeout(timer);
                signal.removeEventListener("abort", onClose);
                finish(value);
            };
            const fail = settle(reject);
            const onClose = () => fail(signal.reason);
            const timer = setTimeout(() => fail(command === "media:snapshot" && this.#postSnapshot
                ? new Error(`${command}: no frame was posted after the change of quality`) : noAnswer(command)),
            timeoutMs);
            signal.addEventListener("abort", onClose);
            begin(settle(resolve), fail);
        });
    }

    /**
     * Counts the frames of a recording: the receiver handles messages in order, so it has those posted between its
     * start and its end. A quality ends it as a stop does, even the one in force.
     * @param {string} command
     */
    #post(command) {
        if (command === "media:record:start") {
            this.#askedAt = this.framesPosted;
        } else if (command !== "media:snapshot") {
            this.#endedAt ??= this.framesPosted;
        }
        if (!this.#open.signal.aborted) {
            this.#webview.postMessage(command);
        }
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
        this.#postSnapshot = null;
        while (!this.#takeResult && this.#waiting.length > 0) {
            this.#waiting.shift()?.();
        }
    }

    /**
     * Null if the receiver has no room for the frame.
     * @param {VideoFrame} frame
     * @param {number} slotSize
     * @param {boolean} exactColors
     */
    #planCopy(frame, slotSize, exactColors) {
        const { visibleRect, format } = frame;
        if (!visibleRect) {
            throw new TypeError("The frame is closed");
        }
        const rect = copyRectangle(visibleRect);
        const unchanged = format !== null && HostFormats.has(format) && (!exactColors || hasHostColors(frame));
        /** @type {VideoFrameCopyToOptions & {rect: typeof rect}} */
        const options = unchanged ? { rect } : { rect, format: "RGBX" };
        const fits = rect.width >= 2 && rect.width <= MaxCodedWidth && rect.height >= 2 &&
            rect.height <= MaxCodedHeight && frame.displayWidth <= MaxDisplaySize &&
            frame.displayHeight <= MaxDisplaySize && frame.allocationSize(options) <= slotSize;
        return fits ? { format: unchanged ? format : "RGBX", options } : null;
    }

    /**
     * The upright picture of a frame in the largest size that the camera can show.
     * @param {VideoFrame} frame
     */
    #scaleDown(frame) {
        const { displayWidth, displayHeight, timestamp } = frame;
        const isWide = displayWidth >= displayHeight;
        const scale = Math.min(1, (isWide ? MaxScaledLength : MaxScaledBreadth) / displayWidth,
            (isWide ? MaxScaledBreadth : MaxScaledLength) / displayHeight);
        const even = (/** @type {number} */ length) => Math.max(2, 2 * Math.round(length * scale / 2));
        this.#canvas.width = even(displayWidth);
        this.#canvas.height = even(displayHeight);
        this.#canvas.getContext("2d", { alpha: false })
            ?.drawImage(frame, 0, 0, this.#canvas.width, this.#canvas.height);
        return new VideoFrame(this.#canvas, { timestamp });
    }

    /** @param {WebViewEvents["sharedbufferreceived"]} event */
    #onSlot(event) {
        const slot = event.additionalData?.slot;
        if (slot !== 0 && slot !== 1) {
            return;
        }
        this.#dropSlot(slot);
        this.#slots[slot] = new Uint8Array(event.getBuffer());
        if (this.connected) {
            this.#notify("slots", null);
        }
    }

    #dropSlots() {
        this.#dropSlot(0);
        this.#dropSlot(1);
    }

    /** @param {0 | 1} slot */
    #dropSlot(slot) {
        const bytes = this.#slots[slot];
        this.#slots[slot] = null;
        this.#postedMs[slot] = -Infinity;
        if (bytes && bytes !== this.#copyTarget) { // The end of the copy releases it.
            this.#release(bytes);
        }
    }

    /** @param {Uint8Array<ArrayBuffer>} bytes */
    #release(bytes) {
        this.#webview.releaseBuffer?.(bytes.buffer);
    }

    /** @param {HostMessage} message */
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
            break; // A newer receiver may post other messages.
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
     * @template {keyof VistelReceiverEvents} Type
     * @param {Type} type
     * @param {VistelReceiverEvents[Type]["detail"]} detail
     */
    #notify(type, detail) {
        this.dispatchEvent(new CustomEvent(type, { detail }));
    }
}

/** @param {string} text */
function noAnswer(text) {
    return new Error(`${text}: the receiver did not answer; its log is %TEMP%\\vistel-receiver.log`);
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
