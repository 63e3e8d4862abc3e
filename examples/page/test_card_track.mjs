// The test card as a video track, drawn by a worker (test_card_worker.mjs), so that it also moves while the page is
// hidden.

/** @typedef {MediaStreamTrack & {writable: WritableStream<VideoFrame>}} GeneratedTrack */

export class TestCardTrack {
    #start;
    #size = { width: 1280, height: 720 };
    /** @type {Worker | null} */
    #worker = null;
    #onError;

    /**
     * @param {import("./test_card.mjs").PatternName} patternName
     * @param {number} fps
     * @param {(error: Error) => void} onError  Receives a failure of the worker.
     */
    constructor(patternName, fps, onError) {
        this.#start = { patternName, fps };
        this.#onError = onError;
    }

    /**
     * Sets the size of the picture, before start() or at any later time.
     * @param {number} width
     * @param {number} height
     */
    resize(width, height) {
        this.#size = { width, height };
        this.#worker?.postMessage(this.#size);
    }

    /** @returns {MediaStreamTrack} */
    start() {
        /** @type {{MediaStreamTrackGenerator?: new (init: {kind: "video"}) => GeneratedTrack}} */
        const { MediaStreamTrackGenerator } = /** @type {any} */ (globalThis);
        if (!MediaStreamTrackGenerator) {
            throw new Error("MediaStreamTrackGenerator is unavailable");
        }
        this.#worker = startWorker();
        this.#worker.addEventListener("error", (event) => {
            event.preventDefault(); // It would be reported as the page's error, too.
            this.#onError(new Error(event.message ?? "The test card's worker did not start"));
        });
        const track = new MediaStreamTrackGenerator({ kind: "video" });
        const { writable } = track;
        this.#worker.postMessage({ ...this.#start, ...this.#size, writable }, [writable]);
        return track;
    }
}

/** The page in one file has the worker's script inside: browsers load no other script for a file:// page. */
function startWorker() {
    const inside = document.getElementById("test-card-worker");
    return inside ? new Worker(URL.createObjectURL(new Blob([inside.textContent])))
        : new Worker("test_card_worker.mjs", { type: "module" });
}
