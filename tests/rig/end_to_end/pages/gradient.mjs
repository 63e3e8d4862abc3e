// A smooth picture that moves far from step to step, so that no encoder makes one look like the next; the same for page
// and test.

// Fills the beginning of a Uint8Array with one NV12 picture.
export function fillGradient(bytes, width, height, step) {
    const chroma = width * height;
    for (let y = 0; y < height; ++y) {
        for (let x = 0; x < width; ++x) {
            bytes[y * width + x] = 126 + 90 * Math.sin((x + 30 * step) / 90) * Math.cos((y - 20 * step) / 70);
        }
    }
    for (let y = 0; y < height / 2; ++y) {
        for (let x = 0; x < width; x += 2) {
            bytes[chroma + y * width + x] = 128 + 60 * Math.sin((y + 15 * step) / 60);
            bytes[chroma + y * width + x + 1] = 128 + 60 * Math.cos((x - 25 * step) / 80);
        }
    }
}
