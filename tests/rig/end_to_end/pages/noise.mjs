// Bytes that differ from their neighbors at every place; the same for page and test.

// Fills a Uint32Array; the seed is a whole number above 0.
export function fillNoise(words, seed) {
    let state = seed;
    for (let i = 0; i < words.length; ++i) {
        state ^= state << 13;
        state ^= state >>> 17;
        state ^= state << 5;
        words[i] = state;
    }
}
