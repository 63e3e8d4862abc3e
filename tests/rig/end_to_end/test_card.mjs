// Recognises the sample page's test card in a picture: { picture, width, height }, its bytes in NV12.

// The test card's own measures, drawn for a picture of this width.
const CardWidth = 1280;
const Counter = { left: 448, top: 590, square: 24, bits: 16 };
const ColorBars = { left: 340, top: 486, width: 75, height: 52 };
const BarRows = { top: 8, bottom: 708 }; // where nothing but the moving bar is yellow
const LeastBarSamples = 3; // of chroma; the bar may be leaving the picture

// The mean [Y, U, V] of the middle of a square or bar; places and sizes are those on the test card.
function colorOf({ picture, width, height }, left, top, squareWidth, squareHeight) {
    const scale = width / CardWidth;
    const sums = [0, 0, 0];
    let count = 0;
    for (let y = Math.ceil((top + squareHeight / 3) * scale); y < (top + squareHeight * 2 / 3) * scale; ++y) {
        for (let x = Math.ceil((left + squareWidth / 3) * scale); x < (left + squareWidth * 2 / 3) * scale; ++x) {
            const pair = width * height + (y >> 1) * width + (x & ~1);
            [picture[y * width + x], picture[pair], picture[pair + 1]].forEach((value, i) => {
                sums[i] += value;
            });
            ++count;
        }
    }
    return sums.map((sum) => sum / count);
}

const isGrey = ([, u, v]) => Math.abs(u - 128) < 16 && Math.abs(v - 128) < 16;
const isWhite = (color) => color[0] > 180 && isGrey(color);
const isBlack = (color) => color[0] < 70 && isGrey(color);

// The number that the card shows as white and black squares; undefined when they are neither.
export function frameNumber(frame) {
    let number = 0;
    for (let bit = 0; bit < Counter.bits; ++bit) {
        const { left, top, square } = Counter;
        const color = colorOf(frame, left + bit * square, top, square, square);
        if (!isWhite(color) && !isBlack(color)) {
            return undefined;
        }
        number = number * 2 + (isWhite(color) ? 1 : 0);
    }
    return number;
}

const isYellow = (u) => u < 105;

// How far the top of the moving bar is from its bottom, in pixels on the test card: more than a few in a picture that
// is made of two frames. Undefined while the bar is not wholly in the picture.
export function barOffset({ picture, width, height }) {
    const scale = width / CardWidth;
    const [top, bottom] = Object.values(BarRows).map((row) => {
        const chroma = picture.subarray(width * height + (Math.floor(row * scale) >> 1) * width).subarray(0, width);
        const columns = Array.from({ length: width / 2 }, (_, i) => 2 * i).filter((x) => isYellow(chroma[x]));
        const isWhole = columns.length >= LeastBarSamples && columns[0] > 0 && columns.at(-1) < width - 2;
        return isWhole ? columns.reduce((sum, x) => sum + x, 0) / columns.length / scale : undefined;
    });
    return top === undefined || bottom === undefined ? undefined : Math.abs(top - bottom);
}

// What is sure about white, yellow, cyan, green, magenta, red, blue and black in any YUV.
const BarChecks = [
    isWhite, ([y, u, v]) => y > 150 && u < 80 && v > 120, ([, u, v]) => u > 130 && v < 90,
    ([, u, v]) => u < 115 && v < 90, ([, u, v]) => u > 150 && v > 150, ([, u, v]) => u < 125 && v > 170,
    ([, u, v]) => u > 160 && v < 125, isBlack,
];

export function hasColorBars(frame) {
    const { left, top, width, height } = ColorBars;
    return BarChecks.every((isRight, bar) => isRight(colorOf(frame, left + bar * width, top, width, height)));
}
