// Counts the frames of a recording of the sample page by the number that its test card carries.
import { frameNumber } from '../end_to_end/test_card.mjs';

const NumberCount = 2 ** 16; // the card's counter begins again after so many

export class FrameTally {
    #recorded = 0;
    #missing = 0;
    #repeated = 0;
    #last;

    // A picture of the recording, in order: { picture, width, height } in NV12. One without a number, such as the
    // camera's card, is not counted.
    add(frame) {
        this.addNumber(frameNumber(frame));
    }

    addNumber(number) {
        if (number === undefined) {
            return;
        }
        ++this.#recorded;
        if (this.#last !== undefined) {
            const step = (number - this.#last + NumberCount) % NumberCount;
            // A step back is a page that began again.
            if (step === 0) {
                ++this.#repeated;
            } else if (step < NumberCount / 2) {
                this.#missing += step - 1;
            }
        }
        this.#last = number;
    }

    // What the page has drawn between the first and the last recorded frame and the recording does not hold is missing.
    report() {
        return { framesRecorded: this.#recorded, framesMissing: this.#missing, framesRepeated: this.#repeated };
    }
}
