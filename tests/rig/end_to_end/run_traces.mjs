// What remains of a run: files and processes.
import { lstat, readdir, readFile } from 'node:fs/promises';
import { existsSync } from 'node:fs';
import { join, relative } from 'node:path';

// Files and folders of the machine, outside the sandbox directory, that are newer than the receiver's own program.
export async function filesOutsideSandbox(run) {
    const program = run.prefix.unixPath('C:\\Program Files\\Vistel\\vistel-receiver.exe');
    const startMs = (await lstat(program)).mtimeMs;
    const found = [];
    for await (const path of walk(run.prefix.driveC)) {
        if ((await lstat(path)).mtimeMs > startMs) {
            found.push(relative(run.prefix.driveC, path));
        }
    }
    return found.filter((path) => path.split('/')[0] !== 'rig'); // where the camera puts its report
}

// Lists what remains of a run that has been stopped.
export async function watchForLeftovers(run) {
    const { runFolder, temporary, path } = run.prefix;
    const server = (await readFile(join(path, 'wineserver'), 'utf8').catch(() => '')).trim();
    const folders = [runFolder, temporary, ...(server ? [join('/tmp', server)] : [])];
    return async () => [...folders.filter((folder) => existsSync(folder)), ...(await processesOf(runFolder))];
}

// Those that know of the run's folder, and the children of this process.
async function processesOf(runFolder) {
    const found = [];
    for (const id of (await readdir('/proc')).filter((name) => /^\d+$/.test(name) && Number(name) !== process.pid)) {
        const read = (name) => readFile(join('/proc', id, name), 'utf8').catch(() => ''); // ended, or another person's
        const [command, environment, status] = await Promise.all(['cmdline', 'environ', 'status'].map(read));
        const isChild = status.includes(`\nPPid:\t${process.pid}\n`);
        if (isChild || command.includes(runFolder) || environment.includes(runFolder)) {
            found.push(`process ${id} ${command.replaceAll('\0', ' ')}`);
        }
    }
    return found;
}

// Everything in a folder, links not followed.
async function* walk(folder) {
    for (const entry of await readdir(folder, { withFileTypes: true })) {
        const path = join(folder, entry.name);
        yield path;
        if (entry.isDirectory()) {
            yield* walk(path);
        }
    }
}
