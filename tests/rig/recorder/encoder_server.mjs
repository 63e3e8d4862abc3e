// The encoder half of the sink writer's stand-in: listens for the DLL, makes the files that it asks for and remembers
// what it was given. What is said on a connection stands in sink_writer.h.
import { once } from 'node:events';
import { writeFileSync } from 'node:fs';
import { createServer } from 'node:net';

import { decodeLine } from '../browser/host_lines.mjs';
import { Mp4Encoder, Ok, probe } from './mp4_encoder.mjs';

const TimesBytes = 16;
const End = -1;
const None = -1;

// Options:
//   fileLimitBytes   the disk is full when a recording has this size
//   reports          true: beside each file stands its recording, as PATH.json, with the `frameTimes` found in the file
//   log              receives lines of text
export async function startEncoderServer(options = {}) {
    const server = new EncoderServer(options);
    await server.start();
    return server;
}

// Takes lines and numbers of bytes from a connection.
class ByteReader {
    #chunks;
    #rest = Buffer.alloc(0);

    constructor(socket) {
        this.#chunks = socket[Symbol.asyncIterator]();
    }

    async take(size) {
        const parts = [this.#rest];
        let length = this.#rest.length;
        while (length < size) {
            const chunk = await this.#next();
            parts.push(chunk);
            length += chunk.length;
        }
        const bytes = Buffer.concat(parts, length);
        this.#rest = bytes.subarray(size);
        return bytes.subarray(0, size);
    }

    async line() {
        let bytes = this.#rest;
        while (!bytes.includes('\n')) {
            bytes = Buffer.concat([bytes, await this.#next()]);
        }
        const end = bytes.indexOf('\n');
        this.#rest = bytes.subarray(end + 1);
        return bytes.toString('utf8', 0, end);
    }

    async #next() {
        const { value, done } = await this.#chunks.next();
        if (done) {
            throw new Error('the connection has ended');
        }
        return value;
    }
}

// { averageBitRate: 6000000, frameSize: '1280:720', subtype: 'H264', ... }
function parseType(text) {
    return Object.fromEntries(text.split(' ').map((word) => {
        const [, name, value] = /^(.*?)=(.*)$/.exec(word);
        return [name, /^\d+$/.test(value) ? Number(value) : value];
    }));
}

class EncoderServer {
    // What every sink writer that began to write was given:
    //   { path, output, input, samples: [{ time, duration }], state, result }
    // Types are named values, times are in units of 100 ns, a missing duration is null. `state` is "open", then
    // "completing" and "finalized" with the HRESULT in `result`, or "abandoned".
    recordings = [];
    #options;
    #sessions = new Set();
    #listener = createServer((socket) => this.#onConnection(socket));

    constructor(options) {
        this.#options = { ...options };
    }

    async start() {
        this.#listener.listen(0, '127.0.0.1');
        await once(this.#listener, 'listening');
        this.port = this.#listener.address().port;
    }

    // For recordings that begin from now on; undefined: the disk has space.
    set fileLimitBytes(bytes) {
        this.#options.fileLimitBytes = bytes;
    }

    // Ends the encoder of every recording as a crash would.
    killEncoders() {
        this.#sessions.forEach((session) => session.killEncoder());
    }

    // What the DLL must find in its environment.
    environment() {
        return { RIG_RECORDER_PORT: String(this.port) };
    }

    // Waits for files that are being completed and abandons the others.
    async stop() {
        this.#listener.close();
        await Promise.all([...this.#sessions].map((session) => session.stop()));
    }

    #onConnection(socket) {
        const session = new RecordingSession(socket, this.#options, this.recordings);
        this.#sessions.add(session);
        session.ended.finally(() => this.#sessions.delete(session));
    }
}

// One connection.
class RecordingSession {
    ended;
    #socket;
    #options;
    #encoder;
    #recording;

    constructor(socket, options, recordings) {
        this.#socket = socket;
        this.#options = options;
        socket.setNoDelay(true);
        socket.on('error', () => {}); // The reader gets the error as well.
        this.ended = this.#serve(recordings).finally(() => socket.destroySoon()); // once the answer is out
    }

    async stop() {
        if (this.#recording?.state !== 'completing') {
            this.#socket.destroy();
            await this.#encoder?.abandon();
        }
        await this.ended;
    }

    killEncoder() {
        this.#encoder?.kill();
    }

    async #serve(recordings) {
        try {
            const reader = new ByteReader(this.#socket);
            const [, path, output, input] = decodeLine(await reader.line());
            this.#recording = {
                path, output: parseType(output), input: parseType(input), samples: [], state: 'open',
            };
            recordings.push(this.#recording);
            await this.#record(this.#recording, reader);
        } catch (error) {
            this.#options.log?.(`a recording was abandoned: ${error.message}`);
            await this.#encoder?.abandon();
            if (this.#recording) {
                this.#recording.state = 'abandoned';
                this.#report(this.#recording);
            }
        }
    }

    // Returns when the file is complete, or as complete as it can be.
    async #record(recording, reader) {
        const [width, height] = recording.output.frameSize.split(':').map(Number);
        this.#encoder = new Mp4Encoder({
            path: recording.path, width, height, frameRate: recording.output.frameRate.replace(':', '/'),
            bitRate: recording.output.averageBitRate, fileLimitBytes: this.#options.fileLimitBytes,
        });
        this.#answer(Ok);
        for (;;) {
            const times = await reader.take(TimesBytes);
            const [time, duration] = [times.readBigInt64LE(0), times.readBigInt64LE(8)].map(Number);
            if (time === End) {
                break;
            }
            const frame = await reader.take((width * height * 3) / 2);
            const result = await this.#encoder.write(time, duration === None ? null : duration, frame);
            if (result === Ok) {
                recording.samples.push({ time, duration: duration === None ? null : duration });
            }
            this.#answer(result);
        }
        recording.state = 'completing';
        recording.result = await this.#encoder.finish();
        if (recording.result !== Ok) {
            this.#options.log?.(`ffmpeg failed: ${this.#encoder.errors}`);
        } else if (this.#options.reports) {
            const { packets } = await probe(recording.path, 'packet=pts');
            recording.frameTimes = packets.map(({ pts }) => pts);
        }
        recording.state = 'finalized';
        this.#report(recording);
        this.#answer(recording.result);
    }

    #answer(result) {
        const bytes = Buffer.alloc(4);
        bytes.writeUInt32LE(result);
        this.#socket.write(bytes);
    }

    #report(recording) {
        if (this.#options.reports) {
            writeFileSync(`${recording.path}.json`, JSON.stringify(recording));
        }
    }
}
