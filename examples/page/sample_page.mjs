// The sample page: sends a test picture through WebRTC to the receiver, and shows every message from the receiver.
// Query: size=720p|1080p, fps=1..60, pattern=card|bars, colors=fast|exact. For runs without a user, in seconds after
// the first frame: snapshot=AFTER takes a snapshot, record=AFTER:SECONDS makes a recording of that length. simulator
// starts the receiver simulator, for a browser without a receiver.

import { openLoopback } from "./loopback.mjs";
import { PatternNames } from "./test_card.mjs";
import { TestCardTrack } from "./test_card_track.mjs";
import { errorText, MediaError, VistelReceiver } from "./vistel_receiver.mjs";

/**
 * @typedef {import("./vistel_receiver.mjs").MediaResult} MediaResult
 * @typedef {import("./vistel_receiver.mjs").Orientation} Orientation
 * @typedef {import("./vistel_receiver.mjs").Quality} Quality
 * @typedef {"wait" | "good" | "bad" | ""} Mood
 */

const Sizes = { "720p": [1280, 720], "1080p": [1920, 1080] };
/** The receiver appends the last two. */
const QueryNames = [
    "size", "fps", "pattern", "colors", "snapshot", "record", "simulator", "installationId", "clientVersion",
];
/** The receiver may be busy while it starts. */
const ConnectTimeoutMs = 60000;
const RefreshMs = 250;
const RateWindowMs = 2000;
const MaxEvents = 50;

/** An element of index.html. @param {string} id */
const element = (id) => /** @type {HTMLElement} */ (document.getElementById(id));
/** @param {string} id */
const buttonElement = (id) => /** @type {HTMLButtonElement} */ (element(id));
/** The buttons of a group. @param {string} id */
const buttonElements = (id) => /** @type {HTMLButtonElement[]} */ ([...element(id).children]);

/**
 * Sets the text, if it has changed, and its mood.
 * @param {HTMLElement} target
 * @param {string} text
 * @param {Mood} mood
 */
function setText(target, text, mood = "") {
    if (target.textContent !== text) {
        target.textContent = text;
    }
    target.classList.remove("wait", "good", "bad");
    if (mood) {
        target.classList.add(mood);
    }
}

/**
 * @param {string} text
 * @param {Mood} mood
 */
function addEvent(text, mood = "") {
    const item = document.createElement("li");
    const time = document.createElement("time");
    time.textContent = new Date().toTimeString().slice(0, 8);
    item.append(time, text);
    if (mood) {
        item.classList.add(mood);
    }
    element("event-list").prepend(item);
    while (element("event-list").children.length > MaxEvents) {
        element("event-list").lastChild?.remove();
    }
}

/**
 * @param {string} id  Of a group of buttons.
 * @param {string} value
 */
function pressOnly(id, value) {
    for (const button of buttonElements(id)) {
        button.setAttribute("aria-pressed", String(button.dataset.value === value));
    }
}

/**
 * Reads a query parameter; adds an event if its value is not allowed.
 * @template {string} Value
 * @param {URLSearchParams} query
 * @param {string} name
 * @param {Value[]} allowed
 * @param {Value} fallback
 */
function choice(query, name, allowed, fallback) {
    const value = query.get(name) ?? fallback;
    const known = allowed.find((one) => one === value);
    if (known === undefined) {
        addEvent(`${name}=${value} is none of ${allowed.join(", ")}`, "bad");
    }
    return known ?? fallback;
}

/**
 * Reads a query parameter of `count` numbers of seconds with colons between them; null when it is missing.
 * @param {URLSearchParams} query
 * @param {string} name
 * @param {number} count
 */
function seconds(query, name, count) {
    const value = query.get(name);
    if (value === null) {
        return null;
    }
    const parts = value.split(":");
    if (parts.length !== count || !parts.every((part) => /^\d+(\.\d+)?$/.test(part))) {
        addEvent(`${name}=${value} is not ${count === 1 ? "a number of seconds" : "AFTER:SECONDS"}`, "bad");
        return null;
    }
    return parts.map(Number);
}

/** @param {number} forSeconds */
const delay = (forSeconds) => new Promise((resolve) => setTimeout(resolve, forSeconds * 1000));

/** @param {number} ms */
function minutesText(ms) {
    const two = (/** @type {number} */ value) => String(value).padStart(2, "0");
    return `${two(Math.floor(ms / 60000))}:${two(Math.floor(ms / 1000) % 60)}`;
}

/** @param {unknown} reason  What was thrown. */
function messageOf(reason) {
    return reason instanceof Error ? reason.message : String(reason);
}

function readOptions() {
    const query = new URLSearchParams(location.search);
    [...query.keys()].filter((name) => !QueryNames.includes(name))
        .forEach((name) => addEvent(`${name} is none of ${QueryNames.join(", ")}`, "bad"));
    const rates = Array.from({ length: 60 }, (_, index) => String(index + 1));
    return {
        size: choice(query, "size", /** @type {Quality[]} */ (Object.keys(Sizes)), "720p"),
        exactColors: choice(query, "colors", ["fast", "exact"], "fast") === "exact",
        pattern: choice(query, "pattern", PatternNames, "card"),
        fps: Number(choice(query, "fps", rates, "30")),
        snapshot: seconds(query, "snapshot", 1),
        record: seconds(query, "record", 2),
    };
}

class SamplePage {
    #receiver = new VistelReceiver();
    #card;
    #options;
    #feedOptions;
    #capturesFromQuery = true;
    #failed = false;
    /** @type {{path: string, startMs: number} | null} The running recording. */
    #recording = null;
    /** @type {[number, number][]} Times and counts of the last refreshes, for the frame rate. */
    #counts = [];

    /** @param {ReturnType<typeof readOptions>} options */
    constructor(options) {
        this.#options = options;
        this.#feedOptions = { mirror: false, exactColors: options.exactColors };
        this.#card = new TestCardTrack(options.pattern, options.fps, (error) => this.fail(error));
        this.#listenToReceiver();
        this.#listenToButtons();
        addEventListener("error", (event) => this.fail(event.error ?? event.message));
        addEventListener("unhandledrejection", (event) => this.fail(event.reason));
        setInterval(() => this.#refresh(), RefreshMs);
    }

    async run() {
        this.#notice("Connecting", "Waiting for the receiver's frame slots.");
        setText(element("state"), "Waiting for slots", "wait");
        await this.#receiver.connect({ timeoutMs: ConnectTimeoutMs });
        this.#setSize(this.#options.size);

        setText(element("state"), "Connecting", "wait");
        const source = this.#card.start();
        // Makes the encoder reduce the quality before the resolution.
        source.contentHint = "detail";
        const track = await openLoopback(source, (state) => this.#onConnection(state));
        /** @type {HTMLVideoElement} */ (element("video")).srcObject = new MediaStream([track]);
        await this.#receiver.feed(track, this.#feedOptions);
        throw new Error("The video track has ended");
    }

    #captureFromQuery() {
        const { snapshot, record } = this.#options;
        if (snapshot) {
            this.#capture(this.#snapshotAfter(snapshot[0]));
        }
        if (record) {
            this.#capture(this.#recordAfter(record[0], record[1]));
        }
    }

    /** @param {number} waitSeconds */
    async #snapshotAfter(waitSeconds) {
        await delay(waitSeconds);
        await this.#receiver.takeSnapshot();
    }

    /**
     * @param {number} waitSeconds
     * @param {number} lengthSeconds
     */
    async #recordAfter(waitSeconds, lengthSeconds) {
        await delay(waitSeconds);
        await this.#receiver.startRecording();
        await delay(lengthSeconds);
        await this.#receiver.stopRecording();
    }

    /** @param {Quality} size */
    #setSize(size) {
        this.#receiver.setQuality(size);
        const [width, height] = Sizes[size];
        this.#card.resize(width, height);
        pressOnly("quality", size);
        addEvent(`Asked for ${size}`);
    }

    /** @param {RTCPeerConnectionState} state */
    #onConnection(state) {
        addEvent(`WebRTC ${state}`);
        if (!this.#failed && state === "connected") {
            setText(element("state"), "WebRTC connected", "good");
            element("notice").hidden = true;
        } else if (state === "failed") {
            this.fail(new Error("The WebRTC connection failed"));
        }
    }

    #listenToReceiver() {
        const receiver = this.#receiver;
        receiver.addEventListener("frame-error", ({ detail: error }) => {
            if (receiver.drops.failed === 1) { // The others usually have the same reason.
                addEvent(error.message, "bad");
                receiver.reportError(error.message);
            }
        });
        receiver.addEventListener("slots", () => addEvent("Both frame slots arrived"));
        receiver.addEventListener("diagnostics", ({ detail }) => {
            setText(element("app-version"), detail.appVersion);
            setText(element("windows"), `${detail.windowsVersion} ${detail.architecture}`);
            setText(element("supported"), detail.osSupported ? "yes" : "no", detail.osSupported ? "good" : "bad");
            setText(element("webview2"), detail.webView2Ready ? "ready" : "not ready",
                detail.webView2Ready ? "good" : "bad");
            setText(element("camera"), detail.virtualCameraRegistered ? "registered" : "not registered",
                detail.virtualCameraRegistered ? "good" : "bad");
            addEvent("Diagnostics arrived");
        });
        receiver.addEventListener("usage", ({ detail: active }) => {
            setText(element("usage"), active ? "Camera in use" : "Camera idle", active ? "good" : "");
            addEvent(active ? "A camera application started" : "The camera applications stopped");
        });
        receiver.addEventListener("media-result", ({ detail }) => {
            const outcome = this.#outcome(detail);
            addEvent(`${detail.action}: ${outcome}`, detail.success ? "" : "bad");
            if (detail.action === "snapshot") {
                setText(element("snapshot-result"), outcome, detail.success ? "" : "bad");
            } else {
                this.#followRecording(detail, outcome);
            }
        });
    }

    /** @param {MediaResult} result */
    #outcome({ success, error, path }) {
        if (success) {
            return path || "nothing was being recorded";
        }
        return errorText(error) + (path ? `, ${path}` : "");
    }

    /**
     * @param {MediaResult} result
     * @param {string} outcome  Its text.
     */
    #followRecording({ action, success, path }, outcome) {
        const progress = this.#recording ? `${this.#recordingProgress(this.#recording)}, ` : "";
        if (action !== "recording-started") {
            this.#recording = null;
        } else if (success) {
            this.#recording = { path, startMs: performance.now() };
        }
        if (!this.#recording) {
            setText(element("recording-result"), progress + outcome, success ? "" : "bad");
        }
        this.#showRecording();
    }

    /** @param {{startMs: number}} recording */
    #recordingProgress({ startMs }) {
        const length = minutesText(performance.now() - startMs);
        return `${length}, ${this.#receiver.framesRecorded} frames`;
    }

    #listenToButtons() {
        for (const button of buttonElements("quality")) {
            button.addEventListener("click", () => this.#setSize(/** @type {Quality} */ (button.dataset.value)));
        }
        for (const button of buttonElements("orientation")) {
            button.addEventListener("click", () => {
                const orientation = /** @type {Orientation} */ (button.dataset.value);
                this.#receiver.setOrientation(orientation);
                pressOnly("orientation", orientation);
            });
        }
        pressOnly("orientation", "setup");
        element("mirror").addEventListener("click", () => {
            const mirror = !this.#feedOptions.mirror;
            this.#feedOptions.mirror = mirror;
            element("mirror").setAttribute("aria-pressed", String(mirror));
            element("picture").classList.toggle("mirrored", mirror);
        });
        this.#onClick(buttonElement("snapshot"), () => this.#capture(this.#receiver.takeSnapshot()));
        this.#onClick(buttonElement("record"), () => this.#capture(this.#receiver.recording
            ? this.#receiver.stopRecording() : this.#receiver.startRecording()));
        this.#onClick(buttonElement("reconnect"), () => this.#receiver.connect());
        this.#onClick(buttonElement("log"), () => {
            this.#receiver.reportError("A line that the sample page was asked for");
            addEvent("Asked for a line in the receiver's log");
        });
    }

    /**
     * Disables the button until its work is done.
     * @param {HTMLButtonElement} button
     * @param {() => unknown} work
     */
    #onClick(button, work) {
        button.addEventListener("click", async () => {
            button.disabled = true;
            try {
                await work();
            } finally {
                button.disabled = false;
            }
        });
    }

    /**
     * A failed capture does not stop the page.
     * @param {Promise<unknown>} work
     */
    async #capture(work) {
        try {
            await work;
        } catch (error) {
            if (!(error instanceof MediaError)) { // Its result is already shown.
                addEvent(messageOf(error), "bad");
            }
        }
    }

    #showRecording() {
        const running = this.#receiver.recording;
        const recording = this.#recording;
        element("record").textContent = running ? "Stop" : "Record";
        element("record").classList.toggle("running", running);
        element("recording-label").classList.toggle("running", running);
        if (recording) {
            setText(element("recording-result"), `${this.#recordingProgress(recording)}, ${recording.path}`);
        }
    }

    #refresh() {
        const receiver = this.#receiver;
        const now = performance.now();
        this.#counts.push([now, receiver.framesPosted]);
        while (now - this.#counts[0][0] > RateWindowMs) {
            this.#counts.shift();
        }
        const [then, count] = this.#counts[0];
        const rate = now > then ? (receiver.framesPosted - count) * 1000 / (now - then) : 0;
        if (receiver.framesPosted > 0 && this.#capturesFromQuery) {
            this.#capturesFromQuery = false;
            this.#captureFromQuery();
        }
        setText(element("posted"), String(receiver.framesPosted));
        setText(element("rate"), rate.toFixed(1));
        setText(element("dropped"), String(receiver.framesDropped));
        this.#showRecording();

        const last = receiver.lastPicture;
        if (last) {
            const rotated = (last.rotation ? ` rotated ${last.rotation}` : "") +
                (last.flip !== last.mirror ? " mirrored" : "");
            setText(element("last-frame"), `${last.format} ${last.width}x${last.height}${rotated}`);
        }
        receiver.slotSizes.forEach((size, slot) => {
            const tile = element(`slot-${slot}`);
            tile.classList.toggle("filled", size > 0);
            const use = last?.slot === slot ? "newest" : `${(size / 1e6).toFixed(1)} MB`;
            setText(/** @type {HTMLElement} */ (tile.lastElementChild), size ? use : "waiting");
        });
    }

    /**
     * @param {string} title
     * @param {string} text
     * @param {Mood} mood
     */
    #notice(title, text, mood = "") {
        setText(element("notice-title"), title);
        setText(element("notice-text"), text);
        element("notice").className = mood;
        element("notice").hidden = false;
    }

    /** @param {unknown} reason */
    fail(reason) {
        const message = messageOf(reason);
        this.#failed = true;
        setText(element("state"), "Error", "bad");
        this.#notice("The page has failed", message, "bad");
        addEvent(message, "bad");
        this.#receiver.reportError(message);
    }
}

function start() {
    if (VistelReceiver.available) {
        const page = new SamplePage(readOptions());
        page.run().catch((error) => page.fail(error));
        return;
    }
    setText(element("command"), `vistel-receiver.exe --url=${location.href}`);
    for (const button of document.querySelectorAll("button")) {
        button.disabled = true;
    }
}

if (new URLSearchParams(location.search).has("simulator")) {
    import("./receiver_simulator.mjs").then(start);
} else {
    start();
}
