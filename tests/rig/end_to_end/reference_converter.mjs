// From the bytes of a slot to the picture of the camera, one pixel at a time and as plainly as it can be said. Judges
// the receiver's own conversion, with which it shares nothing.

// `frame` has the members that frameMessage takes, all of them; `slot` holds bytes, as does the NV12 result.
export function convertFrame(slot, frame, canvasWidth, canvasHeight) {
    const canvas = Buffer.alloc(canvasWidth * canvasHeight * 3 / 2);
    const chromaStart = canvasWidth * canvasHeight;
    canvas.fill(16, 0, chromaStart).fill(128, chromaStart);

    const area = fitPicture(frame, canvasWidth, canvasHeight);
    const read = pixelReader(slot, frame);
    const transposed = frame.rotation === 90 || frame.rotation === 270;
    const rotatedWidth = transposed ? frame.codedHeight : frame.codedWidth;
    const rotatedHeight = transposed ? frame.codedWidth : frame.codedHeight;
    const mirrored = frame.flipA !== frame.flipB;
    for (let y = 0; y < area.height; ++y) {
        const down = Math.floor(y * rotatedHeight / area.height);
        for (let x = 0; x < area.width; ++x) {
            const unmirrored = Math.floor(x * rotatedWidth / area.width);
            const right = mirrored ? rotatedWidth - 1 - unmirrored : unmirrored;
            const [column, row] = turnBack(frame, right, down);
            const canvasX = area.left + x;
            const canvasY = area.top + y;
            canvas[canvasY * canvasWidth + canvasX] = read.luma(column, row);
            if (x % 2 === 0 && y % 2 === 0) {
                const pair = chromaStart + canvasY / 2 * canvasWidth + canvasX;
                [canvas[pair], canvas[pair + 1]] = read.chroma(column, row);
            }
        }
    }
    return canvas;
}

function evenBelow(value) {
    return value - value % 2;
}

// The largest even rectangle of the display's shape, in the middle.
function fitPicture({ displayWidth, displayHeight }, canvasWidth, canvasHeight) {
    const barsAtTheSides = canvasWidth * displayHeight > canvasHeight * displayWidth;
    const width = barsAtTheSides ? Math.floor(canvasHeight * displayWidth / displayHeight) : canvasWidth;
    const height = barsAtTheSides ? canvasHeight : Math.floor(canvasWidth * displayHeight / displayWidth);
    const area = { width: Math.max(evenBelow(width), 2), height: Math.max(evenBelow(height), 2) };
    area.left = evenBelow((canvasWidth - area.width) / 2);
    area.top = evenBelow((canvasHeight - area.height) / 2);
    return area;
}

// From a place in the turned picture to one in the slot.
function turnBack({ rotation, codedWidth, codedHeight }, right, down) {
    switch (rotation) {
    case 90:
        return [down, codedHeight - 1 - right];
    case 180:
        return [codedWidth - 1 - right, codedHeight - 1 - down];
    case 270:
        return [codedWidth - 1 - down, right];
    default:
        return [right, down];
    }
}

function pixelReader(slot, { format, planes }) {
    const at = ([offset, stride], row, byte) => slot[offset + row * stride + byte];
    if (format === 'NV12') {
        return {
            luma: (column, row) => at(planes[0], row, column),
            chroma: (column, row) => [0, 1].map((byte) => at(planes[1], row >> 1, evenBelow(column) + byte)),
        };
    }
    if (format.startsWith('I420')) {
        return {
            luma: (column, row) => at(planes[0], row, column),
            chroma: (column, row) => [1, 2].map((plane) => at(planes[plane], row >> 1, column >> 1)),
        };
    }
    const order = format.startsWith('RGB') ? [0, 1, 2] : [2, 1, 0];
    const weigh = (column, row, weights, base) => {
        const sum = order.reduce((all, byte, i) => all + weights[i] * at(planes[0], row, 4 * column + byte), 128);
        return Math.min(Math.max((sum >> 8) + base, 0), 255);
    };
    return {
        luma: (column, row) => weigh(column, row, [66, 129, 25], 16),
        chroma: (column, row) => [
            weigh(column, row, [-38, -74, 112], 128), weigh(column, row, [112, -94, -18], 128),
        ],
    };
}
