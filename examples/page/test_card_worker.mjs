// Draws the test card in a worker at the chosen rate, and writes each frame to a stream. The browser slows down timers
// of a hidden page and stops its animation frames; those of a worker go on.
// Messages: { patternName, fps, width, height, writable } to start, { width, height } at any later time.

import { TestCard } from "./test_card.mjs";

/** After a late timer, the missed frames of this time are drawn at once; older ones are left out. */
const MaxLateMs = 100;
/** The number of frames that may wait for the stream; while they do, no more are written. */
const MaxWriting = 3;

/** @type {TestCard} */
let card;

onmessage = ({ data: { patternName, fps, width, height, writable } }) => {
    card ??= new TestCard(patternName, fps);
    card.resize(width, height);
    if (writable) {
        writeFrames(writable, 1000 / fps);
    }
};

/**
 * @param {WritableStream<VideoFrame>} writable  Closes the frames.
 * @param {number} periodMs
 */
function writeFrames(writable, periodMs) {
    const writer = writable.getWriter();
    let dueMs = performance.now();
    let writing = 0;
    const onTimer = () => {
        card.draw();
        if (writing < MaxWriting) {
            ++writing;
            const timestamp = Math.round(performance.now() * 1000);
            writer.write(new VideoFrame(card.canvas, { timestamp })).then(() => --writing, () => clearTimeout(timer));
        }
        dueMs = Math.max(dueMs + periodMs, performance.now() - MaxLateMs);
        timer = setTimeout(onTimer, dueMs - performance.now());
    };
    let timer = setTimeout(onTimer);
}
