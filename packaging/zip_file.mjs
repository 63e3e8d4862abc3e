// Writes a ZIP whose bytes depend on its files alone: no owners, no rights, one time for all.
import { deflateRawSync } from 'node:zlib';

const Table = Uint32Array.from({ length: 256 }, (_, byte) => {
    let value = byte;
    for (let bit = 0; bit < 8; ++bit) {
        value = value & 1 ? (value >>> 1) ^ 0xedb88320 : value >>> 1;
    }
    return value;
});

function crc32(bytes) {
    let crc = 0xffffffff;
    for (const byte of bytes) {
        crc = Table[(crc ^ byte) & 0xff] ^ (crc >>> 8);
    }
    return (crc ^ 0xffffffff) >>> 0;
}

// Date and time as in MS-DOS: two seconds are the smallest step, and years begin in 1980.
function dosTime(date) {
    const time = date.getUTCHours() << 11 | date.getUTCMinutes() << 5 | date.getUTCSeconds() >> 1;
    return ((date.getUTCFullYear() - 1980) << 9 | (date.getUTCMonth() + 1) << 5 | date.getUTCDate()) * 0x10000 + time;
}

function record(signature, ...fields) {
    const bytes = Buffer.alloc(4 + fields.reduce((size, [width]) => size + width, 0));
    let offset = bytes.writeUInt32LE(signature);
    for (const [width, value] of fields) {
        offset = bytes.writeUIntLE(value, offset, width);
    }
    return bytes;
}

// `files`: { name: bytes }, names with slashes. The ZIP's bytes.
export function zipFile(files, date) {
    const parts = [];
    const directory = [];
    let offset = 0;
    for (const name of Object.keys(files).sort()) {
        const nameBytes = Buffer.from(name);
        const packed = deflateRawSync(files[name], { level: 9 });
        // Version 2.0, a name in UTF-8, deflated.
        const common = [[2, 20], [2, 0x800], [2, 8], [4, dosTime(date)], [4, crc32(files[name])], [4, packed.length],
            [4, files[name].length], [2, nameBytes.length], [2, 0]];
        const header = record(0x04034b50, ...common);
        directory.push(record(0x02014b50, [2, 20], ...common, [2, 0], [2, 0], [2, 0], [4, 0], [4, offset]), nameBytes);
        parts.push(header, nameBytes, packed);
        offset += header.length + nameBytes.length + packed.length;
    }
    const list = Buffer.concat(directory);
    const count = directory.length / 2;
    return Buffer.concat([...parts, list, record(0x06054b50, [2, 0], [2, 0], [2, count], [2, count], [4, list.length],
                                                 [4, offset], [2, 0])]);
}
