// Draws the moving test picture. All frames differ, and mirroring or rotation is easy to see.

/** All coordinates are for this size; drawing is scaled to the canvas. */
const LayoutWidth = 1280;
const LayoutHeight = 720;
const BarColors = ["#ffffff", "#f2e205", "#19d3e0", "#1fc95b", "#d93bd0", "#e23b3b", "#2f55e0", "#101319"];
const GraySteps = 16;
const CounterBits = 16;
const RingRadius = 330;

/** still: drawn once for each size; moving: drawn over it in every frame. */
const Patterns = {
    card: { still: drawCard, moving: drawCardMotion },
    bars: { still: drawBars, moving: drawBarsMotion },
};
/** @typedef {keyof typeof Patterns} PatternName */
export const PatternNames = /** @type {PatternName[]} */ (Object.keys(Patterns));
/** @typedef {OffscreenCanvasRenderingContext2D} Context */

export class TestCard {
    canvas = new OffscreenCanvas(LayoutWidth, LayoutHeight);
    #context = opaqueContext(this.canvas);
    #still = new OffscreenCanvas(LayoutWidth, LayoutHeight);
    #pattern;
    #fps;
    #frameNumber = 0;
    #caption = "";

    /**
     * @param {PatternName} patternName
     * @param {number} fps
     */
    constructor(patternName, fps) {
        this.#pattern = Patterns[patternName];
        this.#fps = fps;
    }

    /**
     * Sets the size of the picture, before the first draw() or at any later time.
     * @param {number} width
     * @param {number} height
     */
    resize(width, height) {
        for (const canvas of [this.canvas, this.#still]) {
            canvas.width = width;
            canvas.height = height;
        }
        const context = opaqueContext(this.#still);
        context.scale(width / LayoutWidth, height / LayoutHeight);
        this.#pattern.still(context);
        this.#context.setTransform(width / LayoutWidth, 0, 0, height / LayoutHeight, 0, 0);
        this.#caption = `${width} x ${height}  |  ${this.#fps} fps  |  WebRTC loopback`;
    }

    /** Draws the next frame. */
    draw() {
        this.#context.drawImage(this.#still, 0, 0, LayoutWidth, LayoutHeight);
        this.#pattern.moving(this.#context, this.#frameNumber, this.#caption);
        ++this.#frameNumber;
    }
}

/** @param {OffscreenCanvas} canvas */
function opaqueContext(canvas) {
    return /** @type {Context} */ (canvas.getContext("2d", { alpha: false }));
}

/** @param {Context} context */
function drawCard(context) {
    const background = context.createLinearGradient(0, 0, LayoutWidth, LayoutHeight);
    background.addColorStop(0, "#0e2346");
    background.addColorStop(0.55, "#1c5a78");
    background.addColorStop(1, "#3da88a");
    context.fillStyle = background;
    context.fillRect(0, 0, LayoutWidth, LayoutHeight);

    context.strokeStyle = "#ffffff1c";
    context.lineWidth = 2;
    context.beginPath();
    for (let x = 80; x < LayoutWidth; x += 80) {
        context.moveTo(x, 0);
        context.lineTo(x, LayoutHeight);
    }
    for (let y = 40; y < LayoutHeight; y += 80) {
        context.moveTo(0, y);
        context.lineTo(LayoutWidth, y);
    }
    context.stroke();

    // This circle shows whether the aspect ratio is kept.
    context.strokeStyle = "#ffffff80";
    context.lineWidth = 4;
    context.beginPath();
    context.arc(LayoutWidth / 2, LayoutHeight / 2, RingRadius, 0, 2 * Math.PI);
    context.stroke();

    drawCorner(context, 0, 0, "TL", "#e5484d");
    drawCorner(context, 1, 0, "TR", "#f7cc55");
    drawCorner(context, 0, 1, "BL", "#4c8dff");
    drawCorner(context, 1, 1, "BR", "#40d17d");
}

/**
 * An angle bracket and its name.
 * @param {Context} context
 * @param {0 | 1} right
 * @param {0 | 1} bottom
 * @param {string} name
 * @param {string} color
 */
function drawCorner(context, right, bottom, name, color) {
    const inset = 28;
    const size = 96;
    const x = right ? LayoutWidth - inset : inset;
    const y = bottom ? LayoutHeight - inset : inset;
    const dx = right ? -1 : 1;
    const dy = bottom ? -1 : 1;
    context.strokeStyle = color;
    context.lineWidth = 14;
    context.beginPath();
    context.moveTo(x + dx * size, y);
    context.lineTo(x, y);
    context.lineTo(x, y + dy * size);
    context.stroke();
    context.fillStyle = color;
    context.font = "700 40px system-ui, sans-serif";
    context.textAlign = "center";
    context.textBaseline = "middle";
    context.fillText(name, x + dx * 58, y + dy * 52);
}

/**
 * @param {Context} context
 * @param {number} frameNumber
 * @param {string} caption
 */
function drawCardMotion(context, frameNumber, caption) {
    // A bar of full height that moves with every frame: a torn picture shows as a break in it.
    const barWidth = 40;
    context.fillStyle = "#f7cc55d0";
    context.fillRect(frameNumber * 10 % (LayoutWidth + barWidth) - barWidth, 0, barWidth, LayoutHeight);

    context.lineWidth = 14;
    context.lineCap = "round";
    context.strokeStyle = "#f7cc55";
    const angle = frameNumber * Math.PI / 45 - Math.PI / 2;
    context.beginPath();
    context.arc(LayoutWidth / 2, LayoutHeight / 2, RingRadius, angle - 0.5, angle);
    context.stroke();
    context.lineCap = "butt";

    context.textAlign = "center";
    context.textBaseline = "alphabetic";
    context.fillStyle = "#ffffff";
    context.font = "700 128px system-ui, sans-serif";
    context.fillText("Vistel", LayoutWidth / 2, 248);
    context.font = "400 30px system-ui, sans-serif";
    context.fillText(caption, LayoutWidth / 2, 306);
    context.font = "600 76px ui-monospace, monospace";
    context.fillText(clockText(new Date()), LayoutWidth / 2, 402);
    context.font = "400 34px ui-monospace, monospace";
    context.fillText(`frame ${String(frameNumber).padStart(6, "0")}`, LayoutWidth / 2, 454);

    drawColors(context);
    drawCounter(context, frameNumber, LayoutWidth / 2 - CounterBits * 12, 590);
}

/** @param {Context} context */
function drawColors(context) {
    const left = 340;
    const width = 600;
    BarColors.forEach((color, index) => {
        context.fillStyle = color;
        context.fillRect(left + index * width / BarColors.length, 486, width / BarColors.length, 52);
    });
    for (let step = 0; step < GraySteps; ++step) {
        const level = Math.round(step * 255 / (GraySteps - 1));
        context.fillStyle = `rgb(${level}, ${level}, ${level})`;
        context.fillRect(left + step * width / GraySteps, 538, width / GraySteps, 28);
    }
}

/** @param {Date} time */
function clockText(time) {
    const two = (/** @type {number} */ value) => String(value).padStart(2, "0");
    return `${two(time.getHours())}:${two(time.getMinutes())}:${two(time.getSeconds())}.` +
        String(time.getMilliseconds()).padStart(3, "0");
}

/**
 * The frame number for programs: squares of 24 pixels, the highest bit on the left, white is 1.
 * @param {Context} context
 * @param {number} frameNumber
 * @param {number} left
 * @param {number} top
 */
function drawCounter(context, frameNumber, left, top) {
    context.fillStyle = "#101319";
    context.fillRect(left - 4, top - 4, CounterBits * 24 + 8, 32);
    context.fillStyle = "#ffffff";
    for (let bit = 0; bit < CounterBits; ++bit) {
        if (frameNumber >> (CounterBits - 1 - bit) & 1) {
            context.fillRect(left + bit * 24, top, 24, 24);
        }
    }
}

/** @param {Context} context */
function drawBars(context) {
    const width = LayoutWidth / BarColors.length;
    BarColors.forEach((color, index) => {
        context.fillStyle = color;
        context.fillRect(index * width, 0, width, LayoutHeight);
    });
}

/**
 * @param {Context} context
 * @param {number} frameNumber
 */
function drawBarsMotion(context, frameNumber) {
    const size = 120;
    context.fillStyle = "#808080";
    context.fillRect(frameNumber * 10 % (LayoutWidth + size) - size, (LayoutHeight - size) / 2, size, size);
    drawCounter(context, frameNumber, 48, LayoutHeight - 72);
}
