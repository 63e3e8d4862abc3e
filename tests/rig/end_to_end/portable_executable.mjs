// What Windows reads of a program's file: the headers and the resources.
import assert from 'node:assert/strict';

export const Gui = 2; // subsystems
export const Console = 3;
export const ResourceType = { Icon: 14, Version: 16, Manifest: 24 }; // Icon: a group of icons of several sizes
// The program may be loaded at any address of 64 bits, and no data is executed.
const Hardened = { highEntropy: 0x20, dynamicBase: 0x40, noExecution: 0x100 };
const Directory = { Resources: 2, Relocations: 5 };

export class PortableExecutable {
    #bytes;
    #optional; // where the optional header begins
    #sections;

    constructor(bytes) {
        this.#bytes = bytes;
        const header = bytes.readUInt32LE(0x3c);
        assert.equal(bytes.toString('latin1', header, header + 4), 'PE\0\0');
        this.timeStamp = bytes.readUInt32LE(header + 8);
        this.#optional = header + 24;
        assert.equal(bytes.readUInt16LE(this.#optional), 0x20b, 'the header of a 64-bit program');
        this.subsystemVersion = [48, 50].map((offset) => bytes.readUInt16LE(this.#optional + offset)).join('.');
        this.subsystem = bytes.readUInt16LE(this.#optional + 68);
        this.characteristics = bytes.readUInt16LE(this.#optional + 70);
        const firstSection = this.#optional + bytes.readUInt16LE(header + 20);
        this.#sections = Array.from({ length: bytes.readUInt16LE(header + 6) }, (_, i) => {
            const field = (at) => bytes.readUInt32LE(firstSection + 40 * i + at);
            return { size: field(8), address: field(12), offset: field(20) };
        });
    }

    #directory(index) {
        const [address, size] = [0, 4].map((at) => this.#bytes.readUInt32LE(this.#optional + 112 + 8 * index + at));
        return { address, size };
    }

    #fileOffset(address) {
        const section = this.#sections.find((each) => address >= each.address && address < each.address + each.size);
        return address - section.address + section.offset;
    }

    // Fails unless the program is of this subsystem, for Windows Vista or later, and hardened.
    assertHardened(subsystem) {
        assert.equal(this.subsystem, subsystem);
        assert.equal(this.subsystemVersion, '6.0');
        for (const [name, bit] of Object.entries(Hardened)) {
            assert.ok(this.characteristics & bit, `${name} is missing`);
        }
    }

    // Without relocations the program cannot be loaded at another address, whatever its header says.
    get hasRelocations() {
        return this.#directory(Directory.Relocations).size > 0;
    }

    // The resource's bytes in its first language; undefined when there is none.
    resource(type, id) {
        const root = this.#fileOffset(this.#directory(Directory.Resources).address);
        let offset = 0;
        for (const wanted of [type, id, undefined]) {
            const named = this.#bytes.readUInt16LE(root + offset + 12);
            const count = named + this.#bytes.readUInt16LE(root + offset + 14);
            const entries = Array.from({ length: count }, (_, i) => root + offset + 16 + 8 * i);
            const entry = entries.find((at) => wanted === undefined || this.#bytes.readUInt32LE(at) === wanted);
            if (entry === undefined) {
                return undefined;
            }
            offset = this.#bytes.readUInt32LE(entry + 4) & 0x7fffffff; // The upper bit: another table.
        }
        const [address, size] = [0, 4].map((at) => this.#bytes.readUInt32LE(root + offset + at));
        const start = this.#fileOffset(address);
        return this.#bytes.subarray(start, start + size);
    }

    // The file version of the version resource, "1.2.3.0" for example.
    fileVersion() {
        const version = this.resource(ResourceType.Version, 1);
        const fixed = version.indexOf(Buffer.from([0xbd, 0x04, 0xef, 0xfe]));
        return [10, 8, 14, 12].map((at) => version.readUInt16LE(fixed + at)).join('.');
    }
}
