// The sink writer's DLL and the encoder server together, seen through the test host: what a recorder may rely on.
import assert from 'node:assert/strict';
import { existsSync, mkdtempSync, readFileSync, rmSync, statSync, writeFileSync } from 'node:fs';
import { readdir, readFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { test } from 'node:test';

import { HostProcess } from '../browser/host_process.mjs';
import { until } from '../processes.mjs';
import { startEncoderServer } from './encoder_server.mjs';
import { decode, DiskFull, probe } from './mp4_encoder.mjs';

const Ok = '00000000';
const NotImplemented = '80004001';
const Failed = '80004005';
const AccessDenied = '80070005';
const PathNotFound = '80070003';
const InUse = '80070020';
const InvalidArgument = '80070057';
const ConnectionRefused = '8007274d';
const InvalidRequest = 'c00d36b2';
const InvalidStreamNumber = 'c00d36b3';
const InvalidMediaType = 'c00d36b4';
const InvalidTimestamp = 'c00d36c0';
const NoSampleTimestamp = 'c00d36c8';
const NotFound = 'c00d36d5';
const AttributeNotFound = 'c00d36e6';
const Shutdown = 'c00d3e85';
const NoSamplesProcessed = 'c00d4a44';

const LimitMs = 60000;
const [Width, Height] = [320, 240];
const FrameBytes = (Width * Height * 3) / 2;
const Frame100ns = 333333;

const Output = {
    majorType: 'vids', subtype: 'H264', averageBitRate: 1000000, interlaceMode: 2, frameSize: `${Width}:${Height}`,
    frameRate: '30:1', pixelAspectRatio: '1:1',
};
const { averageBitRate: _, ...Input } = { ...Output, subtype: 'NV12' };

// A value of undefined leaves the attribute out.
function typeText(type) {
    return Object.entries(type).filter(([, value]) => value !== undefined).map((pair) => pair.join('=')).join(' ');
}

// Starts server and host. What a test changes or reads: { server, host, file }, the file as Linux knows it.
async function start(t, { faults, ...options } = {}) {
    const folder = mkdtempSync(join(tmpdir(), 'recorder-test-'));
    const server = await startEncoderServer(options);
    const host = new HostProcess(server, { faults });
    t.after(async () => {
        await host.end();
        await server.stop();
        rmSync(folder, { recursive: true });
    });
    return { server, host, folder, file: join(folder, 'a b é.mp4') };
}

const windowsPath = (path) => `Z:${path.replaceAll('/', '\\')}`;

async function call(host, command, expected = Ok) {
    assert.equal(await host.call(command), expected, command);
}

async function prepare({ host, file }, output = Output, input = Input) {
    await call(host, `create ${windowsPath(file)}`);
    await call(host, `add-stream ${typeText(output)}`);
    await call(host, `set-input 0 ${typeText(input)}`);
}

async function begin(recording) {
    await prepare(recording);
    await call(recording.host, 'begin');
}

function write(host, time, { duration = Frame100ns, bytes = FrameBytes, luma = 128, expected = Ok } = {}) {
    return call(host, `write ${time} ${duration} ${bytes} ${luma}`, expected);
}

async function frameTimes(file) {
    return (await probe(file, 'packet=pts')).packets.map(({ pts }) => pts);
}

// The brightness of every picture, in the order of showing.
async function decodedLuma(file) {
    const raw = `${file}.raw`;
    await decode(file, ['-vf', 'format=yuv420p,scale=2:2', '-f', 'rawvideo', raw]);
    const bytes = readFileSync(raw);
    return Array.from({ length: bytes.length / 6 }, (__, index) => bytes[index * 6]);
}

// Programs that have the file among their arguments.
async function encodersOf(file) {
    const ids = (await readdir('/proc')).filter((name) => /^\d+$/.test(name));
    const commands = await Promise.all(ids.map((id) => readFile(`/proc/${id}/cmdline`, 'utf8').catch(() => '')));
    return commands.filter((command) => command.includes(`file:${file}`));
}

test('every frame arrives at its time, however irregular the times are', async (t) => {
    const recording = await start(t);
    const { server, host, file } = recording;
    await begin(recording);
    const samples = Array.from({ length: 90 }, (__, index) => ({
        time: 1230000 + index * Frame100ns + (index * 7919) % 90000 + (index > 40 ? 10000000 : 0),
        luma: 40 + (index * 53) % 170,
    }));
    samples[61].time = samples[60].time + 1;
    for (const { time, luma } of samples) {
        await write(host, time, { luma });
    }
    await call(host, 'finalize');

    const { streams, packets } = await probe(file, 'stream:packet');
    assert.equal(streams.length, 1);
    const [stream] = streams;
    assert.deepEqual([stream.codec_name, stream.width, stream.height, stream.time_base, stream.has_b_frames],
                     ['h264', Width, Height, '1/10000000', 0]);
    assert.deepEqual(packets.map(({ pts }) => pts), samples.map(({ time }) => time));
    assert.equal(stream.start_pts + stream.duration_ts, samples.at(-1).time + Frame100ns);
    const decoded = await decodedLuma(file);
    assert.equal(decoded.length, samples.length);
    decoded.forEach((luma, index) => assert.ok(Math.abs(luma - samples[index].luma) <= 3, `picture ${index}`));

    assert.deepEqual(server.recordings, [{
        path: server.recordings[0].path, output: Output, input: Input, state: 'finalized', result: 0,
        samples: samples.map(({ time }) => ({ time, duration: Frame100ns })),
    }]);
    assert.equal(statSync(server.recordings[0].path).ino, statSync(file).ino);
});

test('one frame makes a recording, with or without a duration', async (t) => {
    const recording = await start(t, { reports: true });
    const { server, host, file } = recording;
    for (const duration of [Frame100ns, 'none']) {
        await begin(recording);
        await write(host, 5, { duration });
        await call(host, 'finalize');
        await call(host, 'release');
        assert.deepEqual(await frameTimes(file), [5]);
        assert.deepEqual(JSON.parse(readFileSync(`${file}.json`)), server.recordings.at(-1));
    }
    assert.deepEqual(server.recordings.map(({ samples }) => samples[0].duration), [Frame100ns, null]);
});

const OtherAttribute = '{644B4E48-1E02-4516-B0EB-C01CA9D49AC6}';

test('the stream has to be progressive H.264 with an even size, a rate and a bit rate', async (t) => {
    const { host, file } = await start(t);
    await call(host, `create ${windowsPath(file)}`);
    const { pixelAspectRatio, ...needed } = Output;
    for (const name of Object.keys(needed)) {
        await call(host, `add-stream ${typeText({ ...Output, [name]: undefined })}`, AttributeNotFound);
    }
    for (const wrong of [
        { majorType: 'auds' }, { subtype: 'NV12' }, { subtype: 'HEVC' }, { interlaceMode: 7 }, { averageBitRate: 0 },
        { frameSize: '0:240' }, { frameSize: '320:0' }, { frameSize: '321:240' }, { frameSize: '320:241' },
        { frameRate: '0:1' }, { frameRate: '30:0' },
    ]) {
        await call(host, `add-stream ${typeText({ ...Output, ...wrong })}`, InvalidMediaType);
    }
    await call(host, `set-input 0 ${typeText(Input)}`, InvalidStreamNumber);
    await call(host, `add-stream ${typeText({ ...needed, [OtherAttribute]: 320 })}`);
    await call(host, `add-stream ${typeText(Output)}`, NotImplemented);
});

test('the frames have to be progressive NV12 of the size and rate of the stream', async (t) => {
    const recording = await start(t);
    const { host, server } = recording;
    await call(host, `create ${windowsPath(recording.file)}`);
    await call(host, `add-stream ${typeText(Output)}`);
    const { pixelAspectRatio, ...needed } = Input;
    for (const name of Object.keys(needed)) {
        await call(host, `set-input 0 ${typeText({ ...Input, [name]: undefined })}`, AttributeNotFound);
    }
    for (const wrong of [
        { majorType: 'auds' }, { subtype: 'I420' }, { interlaceMode: 3 }, { frameSize: '240:320' },
        { frameRate: '60:2' },
    ]) {
        await call(host, `set-input 0 ${typeText({ ...Input, ...wrong })}`, InvalidMediaType);
    }
    await call(host, `set-input 1 ${typeText(Input)}`, InvalidStreamNumber);
    await call(host, 'begin', InvalidRequest);
    const input = { ...needed, [OtherAttribute]: 320 };
    await call(host, `set-input 0 ${typeText(input)}`);
    await call(host, 'begin');
    assert.deepEqual(server.recordings[0].input, input);
});

test('calls in the wrong order are refused and change nothing', async (t) => {
    const recording = await start(t);
    const { host, file } = recording;
    await call(host, `create ${windowsPath(file)}`);
    await call(host, 'begin', InvalidRequest);
    await prepare(recording);
    await write(host, 0, { expected: InvalidRequest });
    await call(host, 'finalize', InvalidRequest);
    await call(host, 'begin');
    await call(host, 'begin', InvalidRequest);
    await call(host, `add-stream ${typeText(Output)}`, InvalidRequest);
    await call(host, `set-input 0 ${typeText(Input)}`, InvalidRequest);
    await call(host, 'stream-tick', NotImplemented);
    await write(host, 7);
    await call(host, 'finalize');
    await write(host, 8, { expected: InvalidRequest });
    await call(host, 'finalize', InvalidRequest);
    assert.deepEqual(await frameTimes(file), [7]);
});

test('nothing is written while Media Foundation is shut down', async (t) => {
    const { server, host, file } = await start(t);
    await call(host, 'shutdown');
    await call(host, `create ${windowsPath(file)}`, Shutdown);
    await call(host, 'startup');
    await begin({ host, file });
    await write(host, 0);
    await call(host, 'startup');
    await call(host, 'shutdown');
    await write(host, Frame100ns); // It was started twice.
    await call(host, 'shutdown');
    await write(host, 2 * Frame100ns, { expected: Shutdown });
    await call(host, 'finalize', Shutdown);
    await call(host, 'release');
    await until(LimitMs, 'end of the recording', async () => server.recordings[0].state === 'abandoned');
});

test('samples need the size of a frame and a later time than the one before', async (t) => {
    const recording = await start(t);
    const { host, server, file } = recording;
    await begin(recording);
    await write(host, 'none', { expected: NoSampleTimestamp });
    await write(host, -1, { expected: InvalidTimestamp });
    await write(host, 10, { bytes: FrameBytes - 3, expected: InvalidArgument });
    await write(host, 10, { bytes: FrameBytes + 3, expected: InvalidArgument });
    await write(host, 10);
    await write(host, 10, { expected: InvalidTimestamp });
    await write(host, 9, { expected: InvalidTimestamp });
    await write(host, 11);
    await call(host, 'finalize');
    assert.deepEqual(server.recordings[0].samples.map(({ time }) => time), [10, 11]);
    assert.deepEqual(await frameTimes(file), [10, 11]);
});

test('the file is there from the beginning, emptied, and no other process may write to it', async (t) => {
    const { host, file, folder } = await start(t);
    writeFileSync(file, 'what was there before');
    await call(host, `create ${windowsPath(file)}`);
    assert.equal(statSync(file).size, 0);
    await call(host, `open-for-writing ${windowsPath(file)}`, InUse);
    await call(host, 'release');
    await call(host, `open-for-writing ${windowsPath(file)}`);
    await call(host, `create ${windowsPath(join(folder, 'none/a.mp4'))}`, PathNotFound);
    await call(host, `create ${windowsPath(join(file, 'a.mp4'))}`, PathNotFound);
    await call(host, `create ${windowsPath(join(folder, 'a.txt'))}`, NotFound);
    assert.ok(!existsSync(join(folder, 'a.txt')));
});

test('a recording without a frame fails', async (t) => {
    const recording = await start(t);
    await begin(recording);
    await call(recording.host, 'finalize', NoSamplesProcessed);
    await call(recording.host, 'release');
    await until(LimitMs, 'end of the recording', () => recording.server.recordings[0].state === 'abandoned');
});

for (const [how, leave] of Object.entries({
    'is released': (host) => call(host, 'release'),
    'goes down with its program': (host) => host.end(),
})) {
    test(`a writer that ${how} without finalizing leaves no encoder running`, async (t) => {
        const recording = await start(t);
        const { server, host } = recording;
        await begin(recording);
        await write(host, 0);
        assert.equal((await encodersOf(server.recordings[0].path)).length, 1);
        await leave(host);
        await until(LimitMs, 'end of the recording', () => server.recordings[0].state === 'abandoned');
        assert.deepEqual(await encodersOf(server.recordings[0].path), []);
    });
}

test('the end of the server ends its encoders and the recording', async (t) => {
    const recording = await start(t);
    const { server, host } = recording;
    await begin(recording);
    await write(host, 0);
    await server.stop();
    assert.equal(server.recordings[0].state, 'abandoned');
    assert.deepEqual(await encodersOf(server.recordings[0].path), []);
    assert.match(await host.call(`write 1 1 ${FrameBytes} 0`), /^80072/); // the socket's
    await call(host, 'release');
    await prepare(recording);
    await call(host, 'begin', ConnectionRefused);
});

test('the end of the server waits for a file that is being completed', async (t) => {
    const recording = await start(t);
    const { server, host, file } = recording;
    await begin(recording);
    const times = Array.from({ length: 60 }, (__, index) => index * Frame100ns);
    for (const time of times) {
        await write(host, time);
    }
    host.send('finalize');
    await until(LimitMs, 'finalizing', () => server.recordings[0].state !== 'open');
    await server.stop();
    assert.equal(server.recordings[0].state, 'finalized');
    assert.equal(await host.line('finalize'), `finalize ${Ok}`);
    assert.deepEqual(await frameTimes(file), times);
});

test('a full disk ends the recording with its own code', async (t) => {
    const recording = await start(t, { fileLimitBytes: 3000 });
    const { server, host } = recording;
    await begin(recording);
    let result = Ok;
    for (let index = 0; result === Ok; ++index) {
        assert.ok(index < 100000, 'the disk is never full');
        result = await host.call(`write ${index * Frame100ns} ${Frame100ns} ${FrameBytes} ${index % 200}`);
    }
    assert.equal(parseInt(result, 16), DiskFull);
    assert.equal(parseInt(await host.call('finalize'), 16), DiskFull);
    assert.equal(server.recordings[0].result, DiskFull);
    assert.equal(server.recordings[0].state, 'finalized');
});

test('a full disk is noticed at the end when the encoder held all frames back', async (t) => {
    const recording = await start(t, { fileLimitBytes: 100 });
    await begin(recording);
    await write(recording.host, 0);
    assert.equal(parseInt(await recording.host.call('finalize'), 16), DiskFull);
});

test('each call can be made to fail', async (t) => {
    const recording = await start(t, {
        faults: `MFCreateSinkWriterFromURL:0=${AccessDenied},AddStream:0,SetInputMediaType:0=${InvalidMediaType},` +
            `BeginWriting:0=${AccessDenied},WriteSample:1=${AccessDenied},Finalize:0=${AccessDenied}`,
    });
    const { host, file } = recording;
    await call(host, `create ${windowsPath(file)}`, AccessDenied);
    assert.ok(!existsSync(file));
    await call(host, `create ${windowsPath(file)}`);
    await call(host, `add-stream ${typeText(Output)}`, Failed);
    await call(host, `add-stream ${typeText(Output)}`);
    await call(host, `set-input 0 ${typeText(Input)}`, InvalidMediaType);
    await call(host, `set-input 0 ${typeText(Input)}`);
    await call(host, 'begin', AccessDenied);
    await call(host, 'begin');
    await write(host, 0);
    await write(host, 1, { expected: AccessDenied });
    await write(host, 2);
    await call(host, 'finalize', AccessDenied);
    await call(host, 'finalize');
    assert.deepEqual(await frameTimes(file), [0, 2]);
});
