// Wine prefixes. A template is made once; each run gets a clone of it, which costs a twentieth of a second, in a run
// folder of its own that is removed at the end. Where a run was killed, the next one clears up after it.
import { createHash } from 'node:crypto';
import { existsSync, readFileSync, statSync } from 'node:fs';
import * as fs from 'node:fs/promises';
import { basename, dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';

import { end, lock, run, start } from './processes.mjs';
import { temporaryRoot, TemporaryRoots } from './temporary_root.mjs';

export const SourceFolder = resolve(dirname(fileURLToPath(import.meta.url)), '../..');
const RigFolder = join(SourceFolder, 'build/rig');

// Root may write everything.
const RootsRights = '-dac_override,-dac_read_search';
const WithoutRootsRights = ['setpriv', `--inh-caps=${RootsRights}`, `--bounding-set=${RootsRights}`];

const BootLimitMs = 180000;
const EndLimitMs = 20000;
// Debian's package fonts-wine puts them where its Wine does not look; the caption's buttons are made of one of them.
const WineFonts = '/usr/share/wine/fonts';

// Where WebView2's loader looks for the runtime of a user, and where the rig puts its own. The version says what the
// stand-in offers.
const RuntimeKey = 'Software\\Microsoft\\EdgeUpdate\\ClientState\\{F3017226-FE2A-4295-8BDF-00C3A9A7E4C5}';
const RuntimeFolder = 'C:\\EdgeRT\\150.0.0.0';

// Registry values of every prefix, by key under HKEY_CURRENT_USER.
function templateRegistry(user) {
    const temporary = `C:\\users\\${user}\\Temp`;
    return {
        Environment: { TEMP: temporary, TMP: temporary },
        'Software\\Wine\\WineDbg': { ShowCrashDialog: 0 }, // No user is there to close it.
    };
}

// A prefix for one run.
//   sandbox         the Linux directory whose ProgramData, LocalAppData, Temp, Pictures and Videos the programs
//                   see; without one, a directory of this run
//   runtimeLibrary  the client DLL of the WebView2 runtime; none: the prefix has no runtime
//   recorderLibrary the DLL in the place of Wine's own sink writer, which is unfinished
//   registry        further values: { key under HKEY_CURRENT_USER: { name: text or number } }
//   managed         whether a window manager is there to draw captions; else Wine draws them
export async function createPrefix({ sandbox, runtimeLibrary, recorderLibrary, registry = {}, managed = false } = {}) {
    await fs.mkdir(RigFolder, { recursive: true });
    const rigLock = lock(join(RigFolder, 'lock'), { wait: true });
    let prefix;
    try {
        const template = await prepareTemplate();
        await removeAbandonedRuns();
        prefix = await Prefix.create(template);
    } finally {
        rigLock.release();
    }
    try {
        await prefix.setUp({ sandbox, runtimeLibrary, recorderLibrary, registry, managed });
    } catch (error) {
        await prefix.remove();
        throw error;
    }
    return prefix;
}

class Prefix {
    #lock;

    constructor(runFolder, runLock) {
        this.runFolder = runFolder;
        this.#lock = runLock;
        this.path = join(runFolder, 'prefix');
        this.driveC = join(this.path, 'drive_c');
        this.temporary = join(temporaryRoot(), temporaryName(runFolder));
        this.browserFolder = join(this.temporary, 'browsers');
        this.sharedMemory = join(this.temporary, 'slots');
    }

    static async create(template) {
        const runFolder = await fs.mkdtemp(join(RigFolder, 'run-'));
        const prefix = new Prefix(runFolder, lock(join(runFolder, 'lock'), { wait: true }));
        try {
            await fs.mkdir(join(runFolder, 'home'));
            await fs.mkdir(join(runFolder, 'runtime'), { mode: 0o700 });
            await fs.mkdir(prefix.temporary, { mode: 0o700 });
            await fs.mkdir(prefix.browserFolder);
            await fs.mkdir(prefix.sharedMemory);
            await prefix.#clone(template);
            return prefix;
        } catch (error) {
            await prefix.remove();
            throw error;
        }
    }

    async #clone(template) {
        await fs.mkdir(this.driveC, { recursive: true });
        const parts = (await fs.readdir(join(template, 'drive_c'))).map((name) => join(template, 'drive_c', name));
        const written = parts.filter((part) => ['users', 'ProgramData'].includes(basename(part)));
        const shared = parts.filter((part) => !written.includes(part));
        try {
            await run('cp', ['-al', ...shared, this.driveC]);
        } catch {
            // A file system without hard links.
            await run('cp', ['-a', '--reflink=auto', ...shared, this.driveC], { limitMs: BootLimitMs });
        }
        // Not the file "wineserver": it names the template's own server.
        const settings = (await fs.readdir(template)).filter((name) => !['drive_c', 'wineserver'].includes(name));
        await run('cp', ['-a', ...settings.map((name) => join(template, name)), this.path]);
        await run('cp', ['-a', ...written, this.driveC]);
    }

    async setUp({ sandbox = join(this.runFolder, 'sandbox'), runtimeLibrary, recorderLibrary, registry, managed }) {
        this.sandbox = resolve(sandbox);
        const profile = join(this.driveC, 'users', await userName(this.path));
        for (const entry of await fs.readdir(profile, { withFileTypes: true })) {
            if (entry.isSymbolicLink()) { // Wine's way out into the home folder of the person at the machine.
                await replace(join(profile, entry.name), (path) => fs.mkdir(path));
            }
        }
        const places = {
            ProgramData: join(this.driveC, 'ProgramData'),
            LocalAppData: join(profile, 'AppData/Local'),
            Temp: join(profile, 'Temp'),
            Pictures: join(profile, 'Pictures'),
            Videos: join(profile, 'Videos'),
        };
        await fs.mkdir(this.sandbox, { recursive: true });
        for (const [name, place] of Object.entries(places)) {
            if (!existsSync(join(this.sandbox, name))) { // A test may have put a file there.
                await fs.mkdir(join(this.sandbox, name));
            }
            await replace(place, (path) => fs.symlink(join(this.sandbox, name), path));
        }
        const values = { 'Software\\Wine\\X11 Driver': { Managed: managed ? 'Y' : 'N' }, ...registry };
        if (runtimeLibrary) {
            values[RuntimeKey] = { EBWebView: RuntimeFolder };
            await this.addFile(runtimeLibrary, `${RuntimeFolder}\\EBWebView\\x64\\${basename(runtimeLibrary)}`);
        }
        if (recorderLibrary) {
            values['Software\\Wine\\DllOverrides'] = { mfreadwrite: 'native,builtin' };
            await this.addFile(recorderLibrary, `C:\\windows\\system32\\${basename(recorderLibrary)}`);
        }
        await addToRegistry(this.path, values);
    }

    // Puts a file into the prefix under a Windows path on drive C.
    async addFile(source, windowsPath) {
        const target = this.unixPath(windowsPath);
        await fs.mkdir(dirname(target), { recursive: true });
        await fs.rm(target, { force: true }); // What is there belongs to the template as well.
        await fs.copyFile(source, target);
        return windowsPath;
    }

    unixPath(windowsPath) {
        return join(this.driveC, windowsPath.replace(/^C:\\/, '').replaceAll('\\', '/'));
    }

    // What a program in this prefix needs around it.
    environment(displayName) {
        const environment = wineEnvironment(this.runFolder, this.path);
        if (displayName) {
            environment.DISPLAY = displayName;
        }
        return environment;
    }

    // Starts a Windows program; its stdin and stdout are pipes, and so may be its stderr. `keepsToModes`: neither the
    // program nor those that it starts can write what the mode of a file or folder forbids, even for root.
    start(windowsPath, programArguments, displayName, {
        environment = {}, stderr = 'ignore', keepsToModes = false,
    } = {}) {
        const dropsRights = keepsToModes && process.getuid() === 0;
        const [program, ...rest] = [...(dropsRights ? WithoutRootsRights : []), wineLoader(), windowsPath];
        return start(program, [...rest, ...programArguments], {
            stdio: ['pipe', 'pipe', stderr], cwd: this.runFolder,
            env: { ...this.environment(displayName), ...environment },
        });
    }

    // The Linux ids of the processes of this prefix whose program is called `name`.
    async processIds(name) {
        const ids = [];
        for (const id of (await fs.readdir('/proc')).filter((entry) => /^\d+$/.test(entry))) {
            try {
                const program = (await fs.readFile(`/proc/${id}/cmdline`, 'utf8')).split('\0')[0].replace(/"/g, '');
                const environment = (await fs.readFile(`/proc/${id}/environ`, 'utf8')).split('\0');
                if (program.split(/[\\/]/).pop().split(' ')[0] === name &&
                    environment.includes(`WINEPREFIX=${this.path}`)) {
                    ids.push(Number(id));
                }
            } catch {
                // Ended in the meantime, or another user's.
            }
        }
        return ids;
    }

    // Ends every program in the prefix and removes the run folder.
    async remove() {
        await removeRun(this.runFolder);
        this.#lock.release();
    }
}

// The environment of Wine's own programs. Wine 10 fails with a TMPDIR; WINE... variables of the person's own would lead
// elsewhere.
function wineEnvironment(folder, prefixPath) {
    const inherited = Object.entries(process.env)
        .filter(([name]) => !/^(WINE.*|TMPDIR|DISPLAY|WAYLAND_DISPLAY|LD_PRELOAD)$/.test(name));
    return {
        ...Object.fromEntries(inherited),
        HOME: join(folder, 'home'),
        XDG_RUNTIME_DIR: join(folder, 'runtime'),
        WINEPREFIX: prefixPath,
        WINEDEBUG: '-all',
        WINEDLLOVERRIDES: 'winemenubuilder.exe=d;mscoree=d;mshtml=d',
        ...(wineLoader().startsWith('/') ? { WINELOADER: wineLoader() } : {}),
    };
}

// Debian's own start script would only look for the 32-bit half that is not used here.
export function wineLoader() {
    const direct = '/usr/lib/wine/wine64';
    return existsSync(direct) ? direct : 'wine';
}

// The folder of the template, which is made when it is not there yet: for this version of Wine, for this user. Called
// with the lock held.
async function prepareTemplate() {
    const version = (await run('wine', ['--version'], { env: { ...process.env, WINEDEBUG: '-all' } })).trim();
    const recipe = JSON.stringify([version, process.getuid(), templateRegistry(''), WineFonts]);
    const name = `template-${createHash('sha256').update(recipe).digest('hex').slice(0, 8)}`;
    const template = join(RigFolder, name);
    if (existsSync(template)) {
        return join(template, 'prefix');
    }
    process.stderr.write('Preparing a Wine prefix (once)\n');
    const making = `${template}.making`;
    await stopWine(making);
    await fs.rm(making, { recursive: true, force: true });
    const path = join(making, 'prefix');
    await fs.mkdir(join(making, 'home'), { recursive: true });
    await fs.mkdir(join(making, 'runtime'), { mode: 0o700 });
    await run(wineLoader(), ['wineboot.exe', '-i'], {
        limitMs: BootLimitMs, stdio: 'ignore', env: wineEnvironment(making, path),
    });
    await stopWine(making);
    await addToRegistry(path, templateRegistry(await userName(path)));
    for (const font of (await fs.readdir(WineFonts)).filter((name) => name.endsWith('.ttf'))) {
        await fs.copyFile(join(WineFonts, font), join(path, 'drive_c/windows/Fonts', font));
    }
    for (const old of (await fs.readdir(RigFolder)).filter((entry) => /^template-\w+$/.test(entry))) {
        await fs.rm(join(RigFolder, old), { recursive: true });
    }
    await fs.rename(making, template);
    return join(template, 'prefix');
}

// Runs whose process is gone, killed before it could clear up. Called with the lock held.
async function removeAbandonedRuns() {
    for (const name of (await fs.readdir(RigFolder)).filter((entry) => entry.startsWith('run-'))) {
        const runFolder = join(RigFolder, name);
        const runLock = lockOf(runFolder);
        if (runLock) {
            await removeRun(runFolder);
            runLock.release();
        }
    }
}

// Null when the run goes on, or when its own process has just removed it.
function lockOf(runFolder) {
    try {
        return lock(join(runFolder, 'lock'), { wait: false });
    } catch (error) {
        if (error.code === 'ENOENT') {
            return null;
        }
        throw error;
    }
}

async function removeRun(runFolder) {
    await stopWine(runFolder);
    const temporary = TemporaryRoots.map((root) => join(root, temporaryName(runFolder)));
    for (const folder of [...temporary, runFolder]) {
        await fs.rm(folder, { recursive: true, force: true, maxRetries: 10, retryDelay: 100 });
    }
}

// Ends the server of a prefix and with it every program there, and removes the server's folder.
async function stopWine(folder) {
    const path = join(folder, 'prefix');
    let serverFolder;
    try {
        // Debian notes here where the server has its socket.
        serverFolder = readFileSync(join(path, 'wineserver'), 'utf8').trim();
    } catch {
        return; // No server has ever run.
    }
    const env = wineEnvironment(folder, path);
    for (const option of ['-k', '-w']) {
        const server = start('wineserver', [option], { stdio: 'ignore', env });
        const timer = setTimeout(() => end(server), EndLimitMs);
        await server.exited;
        clearTimeout(timer);
    }
    if (/^wine-\w+$/.test(serverFolder)) {
        await fs.rm(join('/tmp', serverFolder), { recursive: true, force: true });
    }
}

const temporaryName = (runFolder) => `vistel-${basename(runFolder)}`;

// The name under which Wine knows the user.
async function userName(path) {
    const names = await fs.readdir(join(path, 'drive_c/users'));
    return names.find((name) => name !== 'Public');
}

// Writes values into the registry file of a prefix whose server is not running; a later section of a key adds to it.
async function addToRegistry(path, keys) {
    const quote = (text) => `"${text.replace(/[\\"]/g, '\\$&')}"`;
    const now = Math.floor(statSync(path).mtimeMs / 1000);
    const sections = Object.entries(keys).map(([key, values]) => {
        const lines = Object.entries(values).map(([name, value]) => {
            const number = typeof value === 'number';
            return `${quote(name)}=${number ? `dword:${value.toString(16).padStart(8, '0')}` : quote(value)}`;
        });
        return `\n[${key.replaceAll('\\', '\\\\')}] ${now}\n${lines.join('\n')}\n`;
    });
    await fs.appendFile(join(path, 'user.reg'), sections.join(''));
}

async function replace(path, make) {
    await fs.rm(path, { recursive: true, force: true });
    await make(path);
}
