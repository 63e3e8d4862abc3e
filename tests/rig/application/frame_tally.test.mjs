// How frames of a recording are counted.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { FrameTally } from './frame_tally.mjs';

function tally(...numbers) {
    const counts = new FrameTally();
    numbers.forEach((number) => counts.addNumber(number));
    return counts.report();
}

test('frames are distinguished by their numbers', () => {
    assert.deepEqual(tally(), { framesRecorded: 0, framesMissing: 0, framesRepeated: 0 });
    assert.deepEqual(tally(7, 8, 9), { framesRecorded: 3, framesMissing: 0, framesRepeated: 0 });
    assert.deepEqual(tally(7, 8, 8, 11), { framesRecorded: 4, framesMissing: 2, framesRepeated: 1 });
});

test('pictures without a number are left out', () => {
    assert.deepEqual(tally(undefined, 7, undefined, 8), { framesRecorded: 2, framesMissing: 0, framesRepeated: 0 });
    const counts = new FrameTally();
    const gray = Buffer.alloc(1280 * 720 * 3 / 2, 128);
    counts.add({ picture: gray, width: 1280, height: 720 });
    assert.equal(counts.report().framesRecorded, 0);
    gray.fill(16, 0, 1280 * 720); // black squares: number 0
    counts.add({ picture: gray, width: 1280, height: 720 });
    assert.equal(counts.report().framesRecorded, 1);
});

test('the counter begins again, and so may the page', () => {
    assert.deepEqual(tally(65535, 0, 2), { framesRecorded: 3, framesMissing: 1, framesRepeated: 0 });
    assert.deepEqual(tally(500, 3, 4), { framesRecorded: 3, framesMissing: 0, framesRepeated: 0 });
});
