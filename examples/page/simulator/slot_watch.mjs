// Notices that a page changes a slot after it has posted the slot's frame message and before a receiver could have read
// the slot.

import { SlotBytes } from "./message_rules.mjs";

/** The time that a receiver gets to read a slot. */
export const ReadMs = 10;
/** A check that comes later than this, on a busy thread or in a hidden page, decides nothing. */
const MaxCheckMs = 15;

export class SlotWatch {
    #onRace;
    #posted = new Uint32Array(SlotBytes / 4);
    /** The words of the posted frame. @type {{words: Uint32Array, start: number, end: number, ms: number} | null} */
    #watched = null;
    #timer = 0;

    /** @param {() => void} onRace */
    constructor(onRace) {
        this.#onRace = onRace;
    }

    /**
     * A frame was posted that lies in these bytes of the slot.
     * @param {Uint8Array} slot
     * @param {{start: number, end: number}[]} extents
     */
    begin(slot, extents) {
        this.#check();
        const words = new Uint32Array(slot.buffer);
        const start = Math.floor(Math.min(...extents.map((extent) => extent.start)) / 4);
        const end = Math.ceil(Math.max(...extents.map((extent) => extent.end)) / 4);
        this.#posted.set(words.subarray(start, end), start);
        this.#watched = { words, start, end, ms: performance.now() };
        this.#timer = setTimeout(() => this.#check(), ReadMs);
    }

    #check() {
        clearTimeout(this.#timer);
        const watched = this.#watched;
        this.#watched = null;
        if (watched && performance.now() - watched.ms <= MaxCheckMs && this.#hasChanged(watched)) {
            this.#onRace();
        }
    }

    /** @param {{words: Uint32Array, start: number, end: number}} watched */
    #hasChanged({ words, start, end }) {
        if (words.length === 0) { // The page has given the buffer back.
            return false;
        }
        for (let i = start; i < end; ++i) {
            if (words[i] !== this.#posted[i]) {
                return true;
            }
        }
        return false;
    }
}
