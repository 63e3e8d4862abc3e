// The panel in the corner of the page: what the camera shows, what was counted, and what was wrong.

/** @typedef {import("./frame_conversion.mjs").Picture} Picture */

/**
 * @typedef {object} Status
 * @property {{frames: number, refused: number, races: number}} counts
 * @property {{width: number, height: number}} size  Of the camera's picture.
 * @property {string} layout
 * @property {{frames: number} | null} recording
 * @property {() => Picture | null} takePicture
 */

/**
 * @typedef {object} Controls
 * @property {(active: boolean) => void} setCameraInUse
 * @property {(full: boolean) => void} setDiskFull
 */

const MaxLines = 30;

const Style = `
details {
    position: fixed; right: 8px; bottom: 8px; z-index: 2147483647; box-sizing: border-box; width: 336px; padding: 8px;
    border-radius: 8px; background: #10131af0; color: #e8ebf0; font: 12px/1.4 system-ui, sans-serif;
}
details:not([open]) { width: auto; }
summary { cursor: pointer; font-weight: 600; }
canvas { display: block; width: 100%; margin: 8px 0; background: #000; aspect-ratio: 16 / 9; }
p { margin: 4px 0; }
label { margin-right: 12px; }
ol { max-height: 140px; margin: 6px 0 0; padding: 0; overflow: auto; list-style: none; overflow-wrap: anywhere; }
li { padding: 2px 0; border-top: 1px solid #ffffff20; }
li.bad { color: #ff9a8d; }
`;

const Content = `
<details open>
  <summary>Receiver simulator</summary>
  <canvas></canvas>
  <p id="counts"></p>
  <p id="state"></p>
  <label><input type="checkbox" id="usage"> Camera in use</label>
  <label><input type="checkbox" id="disk"> Disk full</label>
  <ol></ol>
</details>
`;

export class Panel {
    #root;
    #canvas;
    #lines;
    /** What is shown with the next animation frame. @type {Status | null} */
    #next = null;
    /** The number of the frame whose picture is shown. */
    #drawnFrame = 0;
    /** When it was drawn, and how long that took. */
    #drawnMs = 0;
    #drawingMs = 0;
    /** The newest line, and how often it came. @type {{text: string, count: number} | null} */
    #newest = null;

    /** @param {Controls} controls */
    constructor(controls) {
        const host = document.createElement("receiver-simulator");
        this.#root = host.attachShadow({ mode: "open" });
        const sheet = new CSSStyleSheet();
        sheet.replaceSync(Style);
        this.#root.adoptedStyleSheets = [sheet];
        this.#root.innerHTML = Content;
        this.#canvas = /** @type {HTMLCanvasElement} */ (this.#root.querySelector("canvas"));
        this.#lines = /** @type {HTMLOListElement} */ (this.#root.querySelector("ol"));
        this.#onToggle("usage", controls.setCameraInUse);
        this.#onToggle("disk", controls.setDiskFull);
        document.documentElement.append(host);
    }

    /** @param {Status} status */
    show(status) {
        if (!this.#next) {
            requestAnimationFrame(() => this.#showNext());
        }
        this.#next = status;
    }

    /**
     * Adds a line at the top. A repeated one is counted; false then.
     * @param {string} text
     * @param {boolean} isBad
     */
    addLine(text, isBad) {
        if (this.#newest?.text === text) {
            ++this.#newest.count;
            this.#lines.children[0].textContent = `${text} (${this.#newest.count} times)`;
            return false;
        }
        this.#newest = { text, count: 1 };
        const item = document.createElement("li");
        item.textContent = text;
        item.classList.toggle("bad", isBad);
        this.#lines.prepend(item);
        if (this.#lines.children.length > MaxLines) {
            this.#lines.lastElementChild?.remove();
        }
        return true;
    }

    /**
     * @param {string} id
     * @param {(checked: boolean) => void} onToggle
     */
    #onToggle(id, onToggle) {
        const box = /** @type {HTMLInputElement} */ (this.#root.getElementById(id));
        box.addEventListener("change", () => onToggle(box.checked));
    }

    #showNext() {
        const status = this.#next;
        this.#next = null;
        if (!status) {
            return;
        }
        const { counts, size, layout, recording } = status;
        this.#setText("counts", `Frames ${counts.frames}, refused ${counts.refused}, races ${counts.races}`);
        this.#setText("state", `Camera ${size.width} x ${size.height}, window ${layout}` +
            (recording ? `, recording ${recording.frames} frames` : ""));
        if (counts.frames !== this.#drawnFrame) {
            this.#drawNewest(status);
        }
    }

    /**
     * Leaves most of the thread's time to the page.
     * @param {Status} status
     */
    #drawNewest(status) {
        const startMs = performance.now();
        if (startMs - this.#drawnMs < 3 * this.#drawingMs) {
            this.show(status);
            return;
        }
        const picture = status.takePicture();
        if (picture) {
            this.#draw(picture);
        }
        this.#drawnFrame = status.counts.frames;
        this.#drawnMs = performance.now();
        this.#drawingMs = this.#drawnMs - startMs;
    }

    /** @param {Picture} picture */
    #draw({ bytes, width, height }) {
        if (!("VideoFrame" in globalThis)) {
            this.#setText("state", "The picture is shown only on https and on 127.0.0.1");
            return;
        }
        const frame = new VideoFrame(bytes, {
            format: "NV12",
            codedWidth: width,
            codedHeight: height,
            timestamp: 0,
            colorSpace: { matrix: "smpte170m", primaries: "smpte170m", transfer: "smpte170m", fullRange: false },
        });
        this.#canvas.width = width;
        this.#canvas.height = height;
        this.#canvas.getContext("2d", { alpha: false })?.drawImage(frame, 0, 0);
        frame.close();
    }

    /**
     * @param {string} id
     * @param {string} text
     */
    #setText(id, text) {
        const element = this.#root.getElementById(id);
        if (element && element.textContent !== text) {
            element.textContent = text;
        }
    }
}
