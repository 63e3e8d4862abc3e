// Converts the frame in a slot into the camera's picture, as the receiver does: fitted, centered on black, rotated,
// mirrored, NV12. The formulas are those of the receiver, so that the pictures are equal byte for byte. Pure.

/** @typedef {import("./message_rules.mjs").Frame} Frame */
/** @typedef {import("./message_rules.mjs").Plane} Plane */

/**
 * NV12, BT.601 limited range: width * height bytes of Y, then a pair U, V for each 2 x 2 pixels.
 * @typedef {{bytes: Uint8Array, width: number, height: number}} Picture
 */

const BlackY = 16;
const BlackUV = 128;

/**
 * @param {number} width
 * @param {number} height
 * @returns {Picture}
 */
function blackPicture(width, height) {
    const bytes = new Uint8Array(width * height * 3 / 2).fill(BlackUV).fill(BlackY, 0, width * height);
    return { bytes, width, height };
}

/**
 * The camera's picture of a frame that readFrame() has returned.
 * @param {Uint8Array} slot
 * @param {Frame} frame
 * @param {number} width   Of the camera's picture.
 * @param {number} height
 */
export function convertFrame(slot, frame, width, height) {
    const picture = blackPicture(width, height);
    const area = fitArea(frame, width, height);
    const positions = sourcePositions(frame, area);
    if (frame.format === "NV12" || frame.format.startsWith("I420")) {
        convertPlanes(slot, frame, positions, area, picture);
    } else {
        convertPixels(slot, frame, positions, area, picture);
    }
    return picture;
}

/** @param {number} value */
const roundDownToEven = (value) => Math.floor(value / 2) * 2;

/**
 * The largest area of the display's aspect ratio, centered, with even edges.
 * @typedef {{x: number, y: number, width: number, height: number}} Area
 * @param {Frame} frame
 * @param {number} width
 * @param {number} height
 * @returns {Area}
 */
function fitArea({ displayWidth, displayHeight }, width, height) {
    const barsAtSides = width * displayHeight > height * displayWidth;
    const fitted = barsAtSides ? { width: Math.floor(height * displayWidth / displayHeight), height }
        : { width, height: Math.floor(width * displayHeight / displayWidth) };
    const areaWidth = Math.max(roundDownToEven(fitted.width), 2);
    const areaHeight = Math.max(roundDownToEven(fitted.height), 2);
    return {
        x: roundDownToEven((width - areaWidth) / 2),
        y: roundDownToEven((height - areaHeight) / 2),
        width: areaWidth,
        height: areaHeight,
    };
}

/**
 * The source column or row of each column and of each row of the area. Transposed, when the rotation is 90 or 270, a
 * column of the area takes a source row and a row takes a source column.
 * @typedef {{across: Uint32Array, down: Uint32Array, transposed: boolean}} Positions
 * @param {Frame} frame
 * @param {Area} area
 * @returns {Positions}
 */
function sourcePositions({ width, height, rotation, mirrored }, area) {
    const transposed = rotation === 90 || rotation === 270;
    const acrossIsReversed = mirrored !== (rotation === 90 || rotation === 180);
    const downIsReversed = rotation === 180 || rotation === 270;
    return {
        across: nearest(transposed ? height : width, area.width, acrossIsReversed),
        down: nearest(transposed ? width : height, area.height, downIsReversed),
        transposed,
    };
}

/**
 * @param {number} sourceSize
 * @param {number} size
 * @param {boolean} isReversed
 */
function nearest(sourceSize, size, isReversed) {
    return Uint32Array.from({ length: size }, (_, index) => {
        const position = Math.floor(index * sourceSize / size);
        return isReversed ? sourceSize - 1 - position : position;
    });
}

/**
 * The byte offsets in a plane that belong to the columns and to the rows of the area; a sample is at the sum of two.
 * @param {Positions} positions
 * @param {number} stride
 * @param {number} sampleBytes
 * @param {1 | 2} pixelsPerSample  2: of a subsampled plane, for every second column and row.
 */
function sampleOffsets({ across, down, transposed }, stride, sampleBytes, pixelsPerSample) {
    const offsets = (/** @type {Uint32Array} */ positions, /** @type {number} */ step) =>
        positions.filter((_, index) => index % pixelsPerSample === 0)
            .map((position) => Math.floor(position / pixelsPerSample) * step);
    return {
        columns: offsets(across, transposed ? stride : sampleBytes),
        rows: offsets(down, transposed ? sampleBytes : stride),
    };
}

/**
 * @param {Uint8Array} slot
 * @param {Frame} frame
 * @param {Positions} positions
 * @param {Area} area
 * @param {Picture} picture
 */
function convertPlanes(slot, { format, planes }, positions, area, { bytes, width, height }) {
    const convertPlane = (/** @type {Plane} */ { offset, stride }, /** @type {number} */ sampleBytes,
        /** @type {1 | 2} */ pixelsPerSample, /** @type {number} */ to) => {
        const { columns, rows } = sampleOffsets(positions, stride, sampleBytes, pixelsPerSample);
        for (let i = 0; i < rows.length; ++i) {
            copySamples(slot, offset + rows[i], columns, bytes, to + i * width, pixelsPerSample);
        }
    };
    const [y, u] = planes;
    const isNv12 = format === "NV12";
    const v = isNv12 ? { offset: u.offset + 1, stride: u.stride } : planes[2];
    const toUV = width * height + area.y / 2 * width + area.x;
    convertPlane(y, 1, 1, area.y * width + area.x);
    convertPlane(u, isNv12 ? 2 : 1, 2, toUV);
    convertPlane(v, isNv12 ? 2 : 1, 2, toUV + 1);
}

/**
 * @param {Uint8Array} from
 * @param {number} start
 * @param {Uint32Array} offsets
 * @param {Uint8Array} to
 * @param {number} toStart
 * @param {number} step
 */
function copySamples(from, start, offsets, to, toStart, step) {
    const last = offsets.length - 1;
    if (step === 1 && offsets[last] - offsets[0] === last) { // Unscaled: the offsets follow each other.
        to.set(from.subarray(start + offsets[0], start + offsets[last] + 1), toStart);
        return;
    }
    for (let i = 0; i < offsets.length; ++i) {
        to[toStart + i * step] = from[start + offsets[i]];
    }
}

/**
 * RGB in 8-bit fixed point; U and V are those of the upper left of 2 x 2 pixels.
 * @param {Uint8Array} slot
 * @param {Frame} frame
 * @param {Positions} positions
 * @param {Area} area
 * @param {Picture} picture
 */
function convertPixels(slot, { format, planes: [{ offset, stride }] }, positions, area, { bytes, width, height }) {
    const redByte = format.startsWith("RGB") ? 0 : 2;
    const { columns, rows } = sampleOffsets(positions, stride, 4, 1);
    for (let i = 0; i < rows.length; ++i) {
        const row = area.y + i;
        convertRowToY(slot, offset + rows[i], columns, redByte, bytes, row * width + area.x);
        if (i % 2 === 0) {
            convertRowToUV(slot, offset + rows[i], columns, redByte, bytes, (height + row / 2) * width + area.x);
        }
    }
}

/**
 * @param {Uint8Array} from
 * @param {number} start
 * @param {Uint32Array} offsets
 * @param {number} redByte
 * @param {Uint8Array} to
 * @param {number} toStart
 */
function convertRowToY(from, start, offsets, redByte, to, toStart) {
    for (let i = 0; i < offsets.length; ++i) {
        const at = start + offsets[i];
        to[toStart + i] = (66 * from[at + redByte] + 129 * from[at + 1] + 25 * from[at + 2 - redByte] + 128 >> 8) + 16;
    }
}

/**
 * @param {Uint8Array} from
 * @param {number} start
 * @param {Uint32Array} offsets
 * @param {number} redByte
 * @param {Uint8Array} to
 * @param {number} toStart
 */
function convertRowToUV(from, start, offsets, redByte, to, toStart) {
    for (let i = 0; i < offsets.length; i += 2) {
        const at = start + offsets[i];
        const red = from[at + redByte];
        const green = from[at + 1];
        const blue = from[at + 2 - redByte];
        to[toStart + i] = (-38 * red - 74 * green + 112 * blue + 128 >> 8) + 128;
        to[toStart + i + 1] = (112 * red - 94 * green - 18 * blue + 128 >> 8) + 128;
    }
}
