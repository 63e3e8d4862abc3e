// The rules for what a page posts: which command a text is, and what is wrong with a frame message. Pure.

/** Bytes of a slot: a picture of 1920 x 1080 with four bytes per pixel. */
export const SlotBytes = 1920 * 1080 * 4;

/** The receiver's result codes. */
export const Code = {
    Ok: 0,
    /** Success with nothing to do. */
    False: 1,
    InvalidArgument: 0x80070057,
    DiskFull: 0x80070070,
    AlreadyExists: 0x800700B7,
    InvalidMediaType: 0xC00D36B4,
    NotAvailable: 0xC00D36D6,
    NoSamples: 0xC00D4A44,
};

/**
 * The result of a message. The reason is empty if there is nothing to say about it.
 * @typedef {{code: number, reason: string}} Verdict
 */

/** @typedef {{offset: number, stride: number}} Plane  In bytes. */

/**
 * A frame message that breaks no rule.
 * @typedef {object} Frame
 * @property {string} format
 * @property {number} width
 * @property {number} height
 * @property {boolean} mirrored
 * @property {number} rotation
 * @property {number} displayWidth
 * @property {number} displayHeight
 * @property {Plane[]} planes
 */

/** @typedef {{pixelsPerSample: number, bytesPerSample: number}} PlaneShape  In each direction; 2: subsampled. */

const Samples = { pixelsPerSample: 1, bytesPerSample: 1 };
const HalfSamples = { pixelsPerSample: 2, bytesPerSample: 1 };
const HalfPairs = { pixelsPerSample: 2, bytesPerSample: 2 };
const Pixels = { pixelsPerSample: 1, bytesPerSample: 4 };

/** The planes that are read, in their order. @type {Map<string, PlaneShape[]>} */
const Formats = new Map([
    ["NV12", [Samples, HalfPairs]],
    ["I420", [Samples, HalfSamples, HalfSamples]],
    ["I420A", [Samples, HalfSamples, HalfSamples]],
    ["RGBA", [Pixels]],
    ["RGBX", [Pixels]],
    ["BGRA", [Pixels]],
    ["BGRX", [Pixels]],
]);

const MaxWidth = 4096;
const MaxHeight = 2160;
const MaxDisplaySize = 4096;
const MaxNumber = 2n ** 64n - 1n;
const Rotations = [0, 90, 180, 270];
const FieldNames = [
    "format", "width", "height", "flip", "rotation", "mirror", "display width", "display height", "planes",
];

/** Commands; those that end with a colon take what follows as their argument. */
const Commands = /** @type {const} */ ([
    "ready", "window:orientation:", "media:snapshot", "media:record:start", "media:record:stop", "quality:", "frame:",
]);

/**
 * The command that a text is, and what follows its colon; null for any other text.
 * @param {string} text
 */
export function recognizeCommand(text) {
    const command = Commands.find((each) => (each.endsWith(":") ? text.startsWith(each) : text === each));
    return command ? { command, argument: text.slice(command.length) } : null;
}

/** A message that breaks a rule. */
class Refusal extends Error {
    /**
     * @param {string} reason
     * @param {number} code
     */
    constructor(reason, code = Code.InvalidArgument) {
        super(reason);
        this.code = code;
    }
}

/**
 * The slot that a frame message names, and its fields; null if it names none or has nothing else.
 * @param {string} argument  What follows "frame:".
 */
export function takeSlot(argument) {
    const isSlot = argument.length > 2 && (argument.startsWith("0:") || argument.startsWith("1:"));
    return isSlot ? { slot: /** @type {0 | 1} */ (Number(argument[0])), fields: argument.slice(2) } : null;
}

/**
 * Reads the fields of a frame message and checks all rules.
 * @param {string} fields  What follows the slot.
 * @returns {{frame: Frame} | {refusal: Verdict}}
 */
export function readFrame(fields) {
    try {
        const frame = readFields(fields.split(":"));
        checkFormat(frame);
        checkExtents(frame);
        return { frame };
    } catch (error) {
        if (!(error instanceof Refusal)) {
            throw error;
        }
        return { refusal: { code: error.code, reason: error.message } };
    }
}

/**
 * @param {string[]} fields
 * @returns {Frame}
 */
function readFields(fields) {
    if (fields.length !== FieldNames.length) {
        throw new Refusal(`The message has ${fields.length} fields after the slot instead of ${FieldNames.length}: ` +
            FieldNames.join(", "));
    }
    const [format, width, height, flip, rotation, mirror, displayWidth, displayHeight, planes] = fields;
    return {
        format,
        width: readEvenSize("width", width, MaxWidth),
        height: readEvenSize("height", height, MaxHeight),
        mirrored: readFlag("flip", flip) !== readFlag("mirror", mirror),
        rotation: readRotation(rotation),
        displayWidth: readSize("display width", displayWidth, MaxDisplaySize),
        displayHeight: readSize("display height", displayHeight, MaxDisplaySize),
        planes: readPlanes(planes),
    };
}

/**
 * @param {string} name
 * @param {string} text
 */
function readNumber(name, text) {
    if (!/^[0-9]+$/.test(text)) {
        throw new Refusal(`${name} "${shorten(text)}" is no plain decimal number`);
    }
    if (BigInt(text) > MaxNumber) {
        throw new Refusal(`${name} ${shorten(text)} is too large`);
    }
    return Number(text);
}

/**
 * @param {string} name
 * @param {string} text
 * @param {number} max
 */
function readSize(name, text, max) {
    const size = readNumber(name, text);
    if (size < 1 || size > max) {
        throw new Refusal(`${name} ${shorten(text)} is not between 1 and ${max}`);
    }
    return size;
}

/**
 * @param {string} name
 * @param {string} text
 * @param {number} max
 */
function readEvenSize(name, text, max) {
    const size = readSize(name, text, max);
    if (size % 2 !== 0) {
        throw new Refusal(`${name} ${size} is odd: pass copyTo() a rect with even edges`);
    }
    return size;
}

/**
 * @param {string} name
 * @param {string} text
 */
function readFlag(name, text) {
    if (text !== "0" && text !== "1") {
        throw new Refusal(`${name} "${shorten(text)}" is neither 0 nor 1`);
    }
    return text === "1";
}

/** @param {string} text */
function readRotation(text) {
    const rotation = readNumber("rotation", text);
    if (!Rotations.includes(rotation)) {
        throw new Refusal(`rotation ${shorten(text)} is none of ${Rotations.join(", ")}`);
    }
    return rotation;
}

/**
 * @param {string} text
 * @returns {Plane[]}
 */
function readPlanes(text) {
    const list = text.endsWith(";") ? text.slice(0, -1) : text; // One semicolon may follow the last plane.
    return list.split(";").map((item, index) => {
        const name = `plane ${index}`;
        const numbers = item.split(",");
        if (numbers.length !== 2) {
            throw new Refusal(`${name} "${shorten(item)}" is not an offset, a comma and a stride`);
        }
        const offset = readNumber(`${name}: offset`, numbers[0]);
        const stride = readNumber(`${name}: stride`, numbers[1]);
        if (offset >= SlotBytes) {
            throw new Refusal(`${name}: offset ${offset} is not inside the slot of ${SlotBytes} bytes`);
        }
        if (stride === 0) {
            throw new Refusal(`${name}: stride is 0`);
        }
        return { offset, stride };
    });
}

/** @param {Frame} frame */
function checkFormat({ format, planes }) {
    const needed = Formats.get(format)?.length;
    if (!needed) {
        throw new Refusal(`format "${shorten(format)}" is none of ${[...Formats.keys()].join(", ")}`,
            Code.InvalidMediaType);
    }
    if (planes.length < needed) {
        throw new Refusal(`${format} has ${needed} planes; the message has ${planes.length}`, Code.InvalidMediaType);
    }
}

/** @param {Frame} frame */
function checkExtents(frame) {
    planeExtents(frame).forEach(({ end }, index) => {
        if (end > SlotBytes) {
            throw new Refusal(`plane ${index} ends ${end - SlotBytes} bytes after the slot of ${SlotBytes} bytes`);
        }
    });
}

/**
 * The part of the slot that each plane covers, from its first byte to after its last one.
 * @param {Frame} frame  Its format is known and has its planes.
 */
export function planeExtents({ format, width, height, planes }) {
    return (Formats.get(format) ?? []).map(({ pixelsPerSample, bytesPerSample }, index) => {
        const { offset, stride } = planes[index];
        const rowBytes = width / pixelsPerSample * bytesPerSample;
        return { start: offset, end: offset + (height / pixelsPerSample - 1) * stride + rowBytes };
    });
}

/** @param {string} text */
function shorten(text) {
    return text.length > 40 ? `${text.slice(0, 40)}...` : text;
}
