// One recording on its way through ffmpeg: NV12 frames in, H.264 in an MP4 file out, every time kept to 100 ns.
import { run, start } from '../processes.mjs';
import { frameStart, streamStart } from './matroska.mjs';

// HRESULTs as unsigned numbers.
export const Ok = 0;
export const Fail = 0x80004005;
export const DiskFull = 0x80070070;

const MaxWaitingFrames = 16; // that ffmpeg has not taken yet; then the sender has to wait
const TicksPerSecond = 10000000;
const DecodeLimitMs = 120000;

// What ffprobe says of a file, `entries` being those of its -show_entries.
export async function probe(file, entries) {
    return JSON.parse(await run('ffprobe', [
        '-loglevel', 'error', '-of', 'json', '-show_entries', entries, `file:${file}`,
    ], { limitMs: DecodeLimitMs }));
}

// Decodes every picture of a file, at its time, and stops at the first error; `output` holds ffmpeg's output
// arguments.
export function decode(file, output) {
    return run('ffmpeg', [
        '-loglevel', 'error', '-xerror', '-copyts', '-i', `file:${file}`, '-fps_mode', 'passthrough',
        '-enc_time_base', `1:${TicksPerSecond}`, ...output,
    ], { limitMs: DecodeLimitMs });
}

export class Mp4Encoder {
    #child;
    #ended; // promise of the code
    #errors = '';
    #bytesPerFrame;
    #waiting = [];

    // `frameRate` is a text such as "30/1"; `fileLimitBytes`: the disk is full at that size of the file.
    constructor({ path, width, height, frameRate, bitRate, fileLimitBytes }) {
        this.#bytesPerFrame = (width * height * 3) / 2;
        const [rateNumerator, rateDenominator] = frameRate.split('/').map(Number);
        const limit = ['sh', '-c', 'trap "" XFSZ; exec prlimit --fsize="$@"', 'sh', String(fileLimitBytes)];
        const [command, ...words] = [
            ...(fileLimitBytes === undefined ? [] : limit), 'ffmpeg', '-nostdin', '-loglevel', 'error', '-y',
            '-copyts', '-f', 'matroska', '-i', 'pipe:0',
            '-c:v', 'libx264', '-preset', 'ultrafast', '-b:v', bitRate, '-maxrate', bitRate, '-bufsize', 2 * bitRate,
            '-bf', 0, '-g', 60, '-pix_fmt', 'yuv420p',
            // Else a frame that lasts 100 ns gets no bits.
            '-x264-params', `force-cfr=1:fps=${frameRate}`,
            '-fps_mode', 'passthrough', '-enc_time_base', `1:${TicksPerSecond}`,
            // Counts for the last frame only; the encoder forgets how long that is to last.
            '-bsf:v', `setts=duration=${Math.floor((TicksPerSecond * rateDenominator) / rateNumerator)}`,
            '-video_track_timescale', TicksPerSecond, '-movie_timescale', TicksPerSecond, '-f', 'mp4', `file:${path}`,
        ].map(String);
        this.#child = start(command, words, { stdio: ['pipe', 'ignore', 'pipe'] });
        this.#child.stdin.on('error', () => {}); // The exit code shows why.
        this.#child.stderr.setEncoding('utf8').on('data', (text) => {
            this.#errors += text;
        });
        const closed = new Promise((resolve) => this.#child.once('close', resolve));
        this.#ended = this.#child.exited.then(async (code) => {
            await closed; // for all of stderr
            return code === 0 && this.#errors === '' ? Ok : this.#failure();
        }, (error) => {
            this.#errors = error.message;
            return Fail;
        });
        this.#child.stdin.write(streamStart({ width, height }));
    }

    // What ffmpeg complained about.
    get errors() {
        return this.#errors;
    }

    // Resolves to a failure's code, or when the next frame may come. A failure may be that of an earlier frame.
    async write(time, duration, frame) {
        const stdin = this.#child.stdin;
        stdin.write(frameStart({ time, duration, bytes: this.#bytesPerFrame }));
        this.#waiting.push(new Promise((resolve) => stdin.write(frame, (error) => resolve(!error))));
        if (this.#waiting.length < MaxWaitingFrames || await this.#waiting.shift()) {
            return Ok;
        }
        return await this.#ended || Fail;
    }

    // Resolves to the code when the file is complete.
    finish() {
        this.#child.stdin.end();
        return this.#ended;
    }

    kill() {
        this.#child.kill('SIGKILL');
    }

    // Leaves the file as it is.
    async abandon() {
        this.kill();
        await this.#ended;
    }

    #failure() {
        return /No space left on device|File too large/.test(this.#errors) ? DiskFull : Fail;
    }
}
