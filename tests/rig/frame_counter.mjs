// Counts the frames that reach a shared frame file, by looking at its sequence counter while they flow.
import { openSync, closeSync, readSync } from 'node:fs';

const LookEveryMs = 20;
const SequenceOffset = 24;

export class FrameCounter {
    #path;
    #timer;
    held; // the count in the file at the last look
    total = 0; // new frames seen since the start
    #first; // the first new frame and the last one: { frames, atMs }
    #last;

    constructor(path) {
        this.#path = path;
        this.#timer = setInterval(() => this.#look(), LookEveryMs);
        this.#timer.unref(); // A run that fails does not wait for it.
        this.held = this.#readFrames() ?? 0;
    }

    // Ends the counting: { frames, framesPerSecond } from the first new frame seen to the last one.
    stop() {
        clearInterval(this.#timer);
        this.#look();
        const frames = this.#first ? this.#last.frames - this.#first.frames : 0;
        return { frames, framesPerSecond: frames > 0 ? (1000 * frames) / (this.#last.atMs - this.#first.atMs) : 0 };
    }

    #look() {
        const frames = this.#readFrames();
        if (frames === undefined || frames === this.held) {
            return;
        }
        // What the file held before is no new frame. A count that was reset starts again.
        if (frames > this.held) {
            this.total += frames - this.held;
            this.#last = { frames, atMs: performance.now() };
            this.#first ??= this.#last;
        } else {
            this.#first = undefined;
        }
        this.held = frames;
    }

    // The sequence takes two steps per frame, the first to an odd number.
    #readFrames() {
        const bytes = Buffer.alloc(8);
        let file;
        try {
            file = openSync(this.#path, 'r');
            const length = readSync(file, bytes, 0, bytes.length, SequenceOffset);
            return length === bytes.length ? Number(bytes.readBigUInt64LE() >> 1n) : undefined;
        } catch {
            return undefined; // There is no file yet.
        } finally {
            if (file !== undefined) {
                closeSync(file);
            }
        }
    }
}
