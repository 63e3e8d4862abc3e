// A camera application that is not ours: the Windows ffmpeg of an npm package, which records from the sample camera in
// the Wine prefix of a run. The package is fetched on first use and is no part of the tests.
import { once } from 'node:events';
import { existsSync } from 'node:fs';
import * as fs from 'node:fs/promises';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

import { installNpmPackages } from '../npm_packages.mjs';
import { SourceFolder } from '../prefix.mjs';
import { end, run, start, until, within } from '../processes.mjs';
import { BuildFolder } from '../receiver_run.mjs';
import { FrameTally } from './frame_tally.mjs';

const ManifestFolder = dirname(fileURLToPath(import.meta.url));
const PackageFolder = join(SourceFolder, 'build/application');
const Package = '@ffmpeg-installer/win32-x64';
const Program = join(PackageFolder, 'node_modules', Package, 'ffmpeg.exe');

const StartLimitMs = 120000;
const DecodeLimitMs = 600000;
const ErrorLimit = 2000;

const CameraName = 'Vistel Sample Camera';
const CameraPath = 'C:\\rig\\sample_camera.dll';
const ProgramPath = 'C:\\rig\\ffmpeg.exe';
const RecordingPath = 'C:\\rig\\application.mkv';
const Size = { width: 1280, height: 720 };
const FrameBytes = Size.width * Size.height * 3 / 2;

// Fetches the package unless it is there. An error says that it cannot be had, and why.
export async function fetchApplication() {
    if (existsSync(Program)) {
        return;
    }
    try {
        // --force: the package is for another system than this one.
        await installNpmPackages(ManifestFolder, PackageFolder, ['--force']);
    } catch (error) {
        throw new Error(`the npm package ${Package}, whose ffmpeg.exe is the camera application, cannot be had: ` +
            error.message);
    }
    if (!existsSync(Program)) {
        throw new Error(`the npm package ${Package} holds no ffmpeg.exe`);
    }
}

// Waits until frames flow, registers the sample camera in the prefix of a run and starts recording from it; resolves
// when the first frame is recorded.
export async function startApplication({ prefix, display }, framesFlow) {
    await until(StartLimitMs, 'first frame of the page', framesFlow);
    await prefix.addFile(join(BuildFolder, 'sample_camera/sample_camera.dll'), CameraPath);
    await prefix.addFile(Program, ProgramPath);
    // For the machine: Wine does not look at a user's classes.
    const registration = prefix.start('regsvr32.exe', ['/s', '/n', '/i:machine', CameraPath], display.name);
    registration.stdout.resume();
    const code = await within(StartLimitMs, 'registration of the sample camera', registration.exited);
    if (code !== 0) {
        throw new Error(`the sample camera could not be registered: regsvr32 ended with ${code}`);
    }
    const application = new Application(prefix, display);
    try {
        await within(StartLimitMs, 'first frame in the camera application', application.recording);
        return application;
    } catch (error) {
        await application.stop();
        throw error;
    }
}

class Application {
    #prefix;
    #child;
    #errors = '';
    recording; // resolves once a frame is recorded
    failed; // rejects when the application ends by itself

    constructor(prefix, display) {
        this.#prefix = prefix;
        this.#child = prefix.start(ProgramPath, [
            '-hide_banner', '-loglevel', 'error', '-progress', 'pipe:1', '-f', 'dshow', '-rtbufsize', '200M',
            '-video_size', `${Size.width}x${Size.height}`, '-i', `video=${CameraName}`,
            // Each frame as it comes, in pictures that do not depend on each other and cost little. The time base is
            // finer than a thirtieth of a second: there two frames could get one time, with which the encoder ends.
            '-vsync', 'passthrough', '-enc_time_base', '1:1000', '-c:v', 'mjpeg', '-q:v', '3', '-y', RecordingPath,
        ], display.name, { stderr: 'pipe' });
        this.#child.stdin.on('error', () => {});
        this.#child.stderr.setEncoding('utf8').on('data', (text) => {
            this.#errors = (this.#errors + text).slice(-ErrorLimit);
        });
        this.failed = Promise.all([this.#child.exited, once(this.#child, 'close')]).then(([code]) => {
            throw new Error(`the camera application ended by itself with ${code}: ${this.#errors.trim()}`);
        });
        this.failed.catch(() => {}); // Callers that await it receive the error.
        const firstFrame = new Promise((resolve) => {
            this.#child.stdout.setEncoding('utf8').on('data', (text) => {
                if (/^frame=[1-9]/m.test(text)) {
                    resolve();
                }
            });
        });
        this.recording = Promise.race([firstFrame, this.failed]);
        this.recording.catch(() => {});
    }

    // Kills the application, for it reads no key from a pipe under Wine: what it has written by then is its recording.
    // Copies that to `recording`, writes a picture of its middle to `picture` and resolves to what it shows: see
    // FrameTally.
    async finish(recording, picture) {
        await this.stop();
        await fs.copyFile(this.#prefix.unixPath(RecordingPath), recording);
        const { tally, frames } = await readFrames(recording);
        await run('ffmpeg', ['-v', 'error', '-i', recording, '-vf', `select=eq(n\\,${frames >> 1})`, '-frames:v', '1',
            '-y', picture], { limitMs: DecodeLimitMs });
        return tally.report();
    }

    // Safe to call at any time.
    async stop() {
        await end(this.#child);
    }
}

async function readFrames(recording) {
    const tally = new FrameTally();
    let frames = 0;
    const decoder = start('ffmpeg', [
        '-v', 'error', '-i', recording, '-vf', 'setpts=N/(10*TB)', '-fps_mode', 'passthrough', '-f', 'rawvideo',
        '-pix_fmt', 'nv12', 'pipe:1',
    ], { stdio: ['ignore', 'pipe', 'inherit'] });
    const picture = Buffer.alloc(FrameBytes);
    let filled = 0;
    for await (const chunk of decoder.stdout) {
        for (let offset = 0; offset < chunk.length;) {
            const copied = chunk.copy(picture, filled, offset);
            offset += copied;
            filled += copied;
            if (filled === FrameBytes) {
                tally.add({ picture, ...Size });
                ++frames;
                filled = 0;
            }
        }
    }
    await within(DecodeLimitMs, 'end of the decoder', decoder.exited);
    return { tally, frames };
}
