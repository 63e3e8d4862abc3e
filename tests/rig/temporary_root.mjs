// Where temporary files of runs go that are written often: slots, profiles of browsers.
import { accessSync, constants, statfsSync } from 'node:fs';

// Both are short: browsers put sockets among their files, and the path of a socket is short.
const Memory = '/dev/shm';
const Disk = '/tmp';
export const TemporaryRoots = [Memory, Disk];

const EnoughBytes = 2 ** 31;

// Memory, where it may be written and is not small, as in some containers; else the disk.
export function temporaryRoot() {
    try {
        accessSync(Memory, constants.W_OK);
        const { bavail, bsize } = statfsSync(Memory);
        return bavail * bsize >= EnoughBytes ? Memory : Disk;
    } catch {
        return Disk;
    }
}

// Whether a browser may keep in memory what its processes share.
export const hasSharedMemory = () => temporaryRoot() === Memory;
