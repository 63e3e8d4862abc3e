// What stands in the files of snapshots and recordings, as other people's programs read it.
import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import * as fs from 'node:fs/promises';
import { join } from 'node:path';

import { run as runProgram } from '../processes.mjs';
import { decode, probe } from '../recorder/mp4_encoder.mjs';

const ProgramLimitMs = 120000;
const FrameDuration = 333333; // in units of 100 ns

// The file in the sandbox directory for a path that the receiver reported; `folder` is "Pictures" or "Videos".
export function captureFile(run, folder, path) {
    const [, name] = /^C:\\users\\[^\\]+\\(.+)$/.exec(path) ?? [];
    assert.match(name ?? path, new RegExp(
        `^${folder}\\\\Vistel\\\\Vistel-20\\d\\d[01]\\d[0-3]\\d-[0-2]\\d[0-5]\\d[0-5]\\d-\\d{3}\\.` +
        `${{ Pictures: 'jpg', Videos: 'mp4' }[folder]}$`));
    return join(run.out, name.replaceAll('\\', '/'));
}

// The names of the files there; none when there is no folder.
export function captureNames(run, folder) {
    const path = join(run.out, folder, 'Vistel');
    return existsSync(path) ? fs.readdir(path) : [];
}

// { codec, width, height, frameTimes, start, duration }; times in units of 100 ns.
export async function probeVideo(file) {
    const { streams, packets } = await probe(
        file, 'stream=codec_name,width,height,time_base,start_pts,duration_ts:packet=pts');
    assert.equal(streams.length, 1);
    const [stream] = streams;
    assert.equal(stream.time_base, '1/10000000');
    return {
        codec: stream.codec_name, width: stream.width, height: stream.height,
        frameTimes: packets.map(({ pts }) => pts), start: stream.start_pts, duration: stream.duration_ts,
    };
}

// The file of a recording, after checking that it is complete and holds what the encoder received; `path` is as the
// receiver reported it.
export async function recordingFile(run, path, recording, width, height) {
    const file = captureFile(run, 'Videos', path);
    assert.equal(recording.state, 'finalized');
    const times = recording.samples.map(({ time }) => time);
    assert.deepEqual(await probeVideo(file), {
        codec: 'h264', width, height, frameTimes: times, start: times[0],
        duration: times.at(-1) - times[0] + FrameDuration,
    });
    times.reduce((before, time) => {
        assert.ok(time > before);
        return time;
    }, -1);
    assert.ok(recording.samples.every(({ duration }) => duration === FrameDuration));
    return file;
}

// All pictures of a video, or the one of a JPEG file, in NV12 and scaled to this size.
export async function decodeVideo(file, width, height) {
    const raw = `${file}.nv12`;
    await decode(file, ['-vf', `scale=${width}:${height}:flags=area`, '-pix_fmt', 'nv12', '-f', 'rawvideo', raw]);
    const bytes = await fs.readFile(raw);
    await fs.rm(raw);
    const size = width * height * 3 / 2;
    assert.equal(bytes.length % size, 0);
    return Array.from({ length: bytes.length / size }, (_, i) => bytes.subarray(i * size, (i + 1) * size));
}

// { width, height, pixels }: red, green, blue.
export async function decodeJpeg(file) {
    const pixmap = `${file}.ppm`;
    await runProgram('djpeg', ['-strict', '-ppm', '-outfile', pixmap, file], { limitMs: ProgramLimitMs });
    const bytes = await fs.readFile(pixmap);
    await fs.rm(pixmap);
    const [header, width, height] = /^P6\n(\d+) (\d+)\n255\n/.exec(bytes.toString('latin1', 0, 40));
    const pixels = bytes.subarray(header.length);
    assert.equal(pixels.length, width * height * 3);
    return { width: Number(width), height: Number(height), pixels };
}

// Peak signal-to-noise ratio in dB of two pictures of the same size.
export function similarity(actual, expected) {
    assert.equal(actual.length, expected.length);
    let squares = 0;
    for (let i = 0; i < actual.length; ++i) {
        squares += (actual[i] - expected[i]) ** 2;
    }
    return 10 * Math.log10(255 ** 2 * actual.length / squares);
}
