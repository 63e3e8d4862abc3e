// A hidden X display, and pictures of what is on a display.
import { end, run, start, within } from './processes.mjs';

const UsualSize = { width: 2560, height: 1600 };
const StartLimitMs = 20000;

// Starts an X server without a screen: { name, size, stop() }. It ends with this process in any case.
export async function startDisplay(size = UsualSize) {
    const child = start('setpriv', [
        '--pdeathsig', 'TERM', 'Xvfb', '-displayfd', '3', '-screen', '0', `${size.width}x${size.height}x24`,
        '-nolisten', 'tcp', '-noreset',
    ], { stdio: ['ignore', 'ignore', 'ignore', 'pipe'] });
    const stop = () => end(child);
    try {
        const name = await within(StartLimitMs, 'start of Xvfb', new Promise((resolve, reject) => {
            let text = '';
            child.stdio[3].setEncoding('utf8').on('data', (chunk) => {
                text += chunk;
                if (text.endsWith('\n')) {
                    resolve(`:${text.trim()}`);
                }
            });
            child.exited.then((code) => reject(new Error(`Xvfb ended with ${code}`)), reject);
        }));
        return { name, size, stop };
    } catch (error) {
        await stop();
        throw error;
    }
}

// Writes a picture of a part of the display, cut to what lies on it; of everything when nothing does.
export async function takePicture(display, { left, top, width, height }, file) {
    const right = Math.min(left + width, display.size?.width ?? Infinity);
    const bottom = Math.min(top + height, display.size?.height ?? Infinity);
    const [x, y] = [Math.max(left, 0), Math.max(top, 0)];
    const part = right > x && bottom > y ? ['-video_size', `${right - x}x${bottom - y}`] : [];
    await run('ffmpeg', [
        '-loglevel', 'error', '-nostdin', '-y', '-f', 'x11grab', '-draw_mouse', '0', ...part,
        '-i', part.length ? `${display.name}+${x},${y}` : display.name, '-frames:v', '1', '-update', '1', file,
    ]);
}
