// Reads the shared frame file as a camera does, from outside and while it is being written.
import { closeSync, existsSync, openSync, readSync, statSync, writeSync } from 'node:fs';
import { join } from 'node:path';

import { until } from '../processes.mjs';

export const FrameFileBytes = 6220864;

const HeaderBytes = 64;
const BufferBytes = 3110400;
const SequenceOffset = 24;
const ReadLimitMs = 30000;

export class FrameFile {
    // `sandbox` is the sandbox directory of the receiver.
    constructor(sandbox) {
        this.path = join(sandbox, 'ProgramData/Vistel/frame-buffer.bin');
    }

    get exists() {
        return existsSync(this.path);
    }

    get size() {
        return statSync(this.path).size;
    }

    // The header as it is at this moment; a writer may be at work.
    header() {
        const bytes = this.#read(0, HeaderBytes);
        return {
            magic: bytes.toString('latin1', 0, 4),
            version: bytes.readUInt32LE(4),
            width: bytes.readUInt32LE(8),
            height: bytes.readUInt32LE(12),
            stride: bytes.readUInt32LE(16),
            frameSize: bytes.readUInt32LE(20),
            sequence: Number(bytes.readBigUInt64LE(SequenceOffset)),
            activeBuffer: bytes.readUInt32LE(32),
            timestamp: Number(bytes.readBigUInt64LE(40)),
        };
    }

    // The newest complete frame: its header and, as `picture`, its bytes.
    newestFrame() {
        return until(ReadLimitMs, 'complete frame in the frame file', () => {
            const header = this.header();
            const picture = this.buffer(header.activeBuffer, header.frameSize);
            return header.sequence % 2 === 0 && this.header().sequence === header.sequence && { ...header, picture };
        });
    }

    // The first bytes of buffer 0 or 1.
    buffer(index, size) {
        return this.#read(HeaderBytes + index * BufferBytes, size);
    }

    // Waits until this many frames have been published since the file was new.
    async waitForFrames(count, limitMs) {
        const published = () => (this.exists ? this.header().sequence / 2 : 0);
        await until(limitMs, () => `frame ${count} after ${published()} frames`, () => published() >= count);
    }

    // What a writer leaves that was killed between its two steps.
    setSequence(value) {
        const bytes = Buffer.alloc(8);
        bytes.writeBigUInt64LE(BigInt(value));
        const file = openSync(this.path, 'r+');
        try {
            writeSync(file, bytes, 0, bytes.length, SequenceOffset);
        } finally {
            closeSync(file);
        }
    }

    #read(offset, size) {
        const bytes = Buffer.alloc(size);
        const file = openSync(this.path, 'r');
        try {
            // A file that is cut short reads as zeros.
            for (let done = 0, count = 1; count > 0 && done < size; done += count) {
                count = readSync(file, bytes, done, size - done, offset + done);
            }
        } finally {
            closeSync(file);
        }
        return bytes;
    }
}
