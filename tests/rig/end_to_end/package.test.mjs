// What people install: the installer puts the program there and runs it, a newer one takes its place, and the
// uninstaller leaves nothing but what is the user's.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { existsSync } from 'node:fs';
import { lstat, mkdir, mkdtemp, readdir, readFile, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { text as readText } from 'node:stream/consumers';
import { after, before, test } from 'node:test';

import { SourceFolder } from '../prefix.mjs';
import { end, run as runProgram, until, within } from '../processes.mjs';
import { BuildFolder, startReceiver } from '../receiver_run.mjs';
import { FrameFile } from './frame_file.mjs';
import { Gui, PortableExecutable } from './portable_executable.mjs';
import { goodMessage, Ok, startOnSlotPage } from './slot_page_run.mjs';
import { frameNumber, hasColorBars } from './test_card.mjs';

const LimitMs = 120000;
const Program = 'vistel-receiver.exe';
const Probe = 'camera_probe.exe';
const Refused = 3; // the installer's exit code
const FrameFileSize = 6220864;
const StartCommand = 'C:\\windows\\system32\\start.exe'; // what a double click does
const Uninstaller = 'uninstall.exe';
const CameraKey = 'Software\\Classes\\CLSID\\{C132191D-7DC1-4EB6-8914-B912B15C22B0}\\InprocServer32';
const CaptureDevicesKey = 'Software\\Classes\\CLSID\\{860BB310-5D01-11D0-BD3B-00A0C911CE86}';
const UninstallKey = 'Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\VistelReceiver';

// Waits until the test card's frames reach the camera and move.
async function waitForMovingCard(frameFile) {
    const waitForNumber = (isWanted) => until(LimitMs, 'frames of the test card', async () => {
        if (!frameFile.exists) {
            return undefined;
        }
        const frame = await frameFile.newestFrame();
        const number = frame.width > 0 && hasColorBars(frame) ? frameNumber(frame) : undefined;
        return isWanted(number) && number;
    });
    const first = await waitForNumber((number) => number > 0);
    await waitForNumber((number) => number > first);
}

// Packs what is built; the path of the file.
async function pack(folder, generator, settings = {}) {
    await runProgram('cpack', [
        '--config', join(BuildFolder, 'CPackConfig.cmake'), '-G', generator, '-B', folder,
        ...Object.entries({ CPACK_PACKAGE_FILE_NAME: 'package', ...settings }).flatMap(([name, value]) =>
            ['-D', `${name}=${value}`]),
    ], { limitMs: LimitMs });
    return join(folder, `package.${generator === 'ZIP' ? 'zip' : 'exe'}`);
}

async function filesIn(folder) {
    const entries = await readdir(folder, { recursive: true, withFileTypes: true });
    return entries.filter((entry) => entry.isFile())
        .map((entry) => join(entry.parentPath ?? entry.path, entry.name).slice(folder.length + 1)).sort();
}

// The installers of two versions.
let temporary;
let older;
let newer;
before(async () => {
    temporary = await mkdtemp(join(tmpdir(), 'package-'));
    const obsolete = join(temporary, 'obsolete');
    await mkdir(obsolete);
    await writeFile(join(obsolete, 'obsolete.txt'), 'of the older version');
    older = await pack(join(temporary, 'older'), 'NSIS', { CPACK_INSTALLED_DIRECTORIES: `${obsolete};.` });
    newer = await pack(join(temporary, 'newer'), 'NSIS', { CPACK_PACKAGE_VERSION: '9.8.7' });
});
after(() => rm(temporary, { recursive: true, force: true }));

// Runs an installer silently to its end; its exit code.
async function install(run, installer, options = '') {
    const program = await run.prefix.addFile(installer, 'C:\\Setup.exe');
    const { exited } = await run.driver.startProgram(program, `/S${options}`);
    return within(LimitMs, 'end of the installer', exited);
}

// { code, text }: what a program ends with and writes to its standard output.
async function output(run, program, programArguments) {
    const { stdout, exited } = run.prefix.start(program, programArguments, run.display.name);
    // The last output may come after the end.
    const [code, text] = await within(LimitMs, `end of ${program}`, Promise.all([exited, readText(stdout)]));
    return { code, text };
}

// Runs an installer silently that refuses; what it writes.
async function refusalOf(run, installer, ...options) {
    const { code, text } = await output(run, await run.prefix.addFile(installer, 'C:\\Setup.exe'), ['/S', ...options]);
    assert.equal(code, Refused);
    return text;
}

async function kill(run, name) {
    for (const id of await run.prefix.processIds(name)) {
        process.kill(id, 'SIGKILL');
    }
}

async function query(run, key) {
    return (await output(run, 'reg.exe', ['query', key])).text;
}

// The program's entry in the list of installed ones; empty when there is none.
async function entryIn(run, root) {
    const text = await query(run, `${root}\\${UninstallKey}`);
    return Object.fromEntries([...text.matchAll(/^\s+(\w+)\s+REG_\w+\s+(.*?)\s*$/gm)].map(([, ...pair]) => pair));
}

async function registeredCameraIn(run, root) {
    const text = await query(run, `${root}\\${CameraKey}`);
    return /REG_SZ\s+(.*?)\s*$/m.exec(text.replace(/^.*ThreadingModel.*$/m, ''))?.[1];
}

// Runs the uninstaller as Windows does. It goes on from a copy of itself, which it has started when it ends.
async function uninstall(run, root) {
    const { QuietUninstallString } = await entryIn(run, root);
    const [, uninstaller, option] = /^"(.*)" (\S+)$/.exec(QuietUninstallString);
    await within(LimitMs, 'end of the uninstaller', (await run.driver.startProgram(uninstaller, option)).exited);
    await until(LimitMs, 'removal', async () => !(await entryIn(run, root)).DisplayName);
    await until(LimitMs, 'end of the copy', async () => (await run.prefix.processIds('Un_A.exe')).length === 0);
}

test('installs, runs, is updated, and leaves nothing after uninstalling', async (t) => {
    const zip = await pack(join(temporary, 'zip'), 'ZIP');
    await runProgram('cmake', ['-E', 'tar', 'xf', zip], { cwd: temporary });
    const unpacked = join(temporary, 'package');
    const packedFiles = await filesIn(unpacked);
    // The header in it is a CMake package.
    await runProgram('cmake', ['-S', join(SourceFolder, 'tests/examples/camera/consumer'), '-B', join(temporary, 'camera'),
        '-G', 'Ninja', `-DCMAKE_TOOLCHAIN_FILE=${join(SourceFolder, 'cmake/mingw-w64-x86_64.cmake')}`,
        `-DVistelFrameReader_DIR=${join(unpacked, 'examples/camera')}`], { limitMs: LimitMs });
    await runProgram('cmake', ['--build', join(temporary, 'camera')], { limitMs: LimitMs });

    let folder;
    let links;
    const entry = (run) => entryIn(run, 'HKCU');
    const registeredCamera = (run) => registeredCameraIn(run, 'HKCU');
    const slotPage = await startOnSlotPage(t, {
        prepare: async (run) => {
            assert.equal(await install(run, older), 0);
            const { InstallLocation } = await entry(run);
            folder = run.prefix.unixPath(InstallLocation);
            const menu = InstallLocation.replace(/\\Local\\.*/, '\\Roaming\\Microsoft\\Windows\\Start Menu\\Programs');
            links = ['Vistel Receiver', 'Vistel test picture'].map((name) => `${menu}\\${name}.lnk`);
            return `${InstallLocation}\\${Program}`;
        },
    });
    const { run } = slotPage;
    assert.ok(run.receiverPath.endsWith(`\\AppData\\Local\\Programs\\Vistel Receiver\\${Program}`), run.receiverPath);
    assert.deepEqual(await filesIn(folder), [...packedFiles, 'obsolete.txt', Uninstaller].sort());
    for (const file of packedFiles) {
        assert.ok((await readFile(join(folder, file))).equals(await readFile(join(unpacked, file))), file);
    }
    for (const file of [older, join(folder, Uninstaller)]) { // NSIS's own part of them has no relocations.
        new PortableExecutable(await readFile(file)).assertHardened(Gui);
    }
    const [receiverLink, testPictureLink] = links;
    assert.ok((await readFile(run.prefix.unixPath(receiverLink))).includes(Buffer.from(Program, 'utf16le')));
    assert.equal((await entry(run)).DisplayName, 'Vistel Receiver');

    assert.equal(await registeredCamera(run), undefined, 'it is registered only on request');

    // It runs from there.
    await slotPage.connect();
    assert.deepEqual(await slotPage.post(goodMessage()), { [Ok]: 1 });
    assert.equal(slotPage.frameFile.header().sequence, 2);

    // Nothing is changed while a program that cannot be closed runs.
    const probe = await run.driver.startProgram(run.receiverPath.replace(Program, Probe), '--seconds 600');
    assert.match(await refusalOf(run, newer), /^camera_probe\.exe is running/);
    assert.deepEqual(await filesIn(folder), [...packedFiles, 'obsolete.txt', Uninstaller].sort());
    assert.equal(run.exitCode, undefined);
    await kill(run, Probe);
    await within(LimitMs, 'end of the probe', probe.exited);

    // A newer one closes it as a user would, replaces it and leaves alone what is not its own.
    await writeFile(join(folder, 'notes.txt'), 'the user\'s');
    assert.equal(await install(run, newer, ' /CAMERA'), 0);
    assert.equal(await run.waitForExit(), 0);
    assert.ok((await registeredCamera(run)).endsWith('\\Vistel Receiver\\sample_camera.dll'));
    assert.deepEqual(await filesIn(folder), [...packedFiles, 'notes.txt', Uninstaller].sort());
    assert.equal((await entry(run)).DisplayVersion, '9.8.7');

    // While an application has the camera loaded, nothing is changed, and its name is written.
    const application = run.prefix.start(
        await run.prefix.addFile(join(BuildFolder, 'tests/camera_application.exe'), 'C:\\rig\\camera_application.exe'),
        [await registeredCamera(run)], run.display.name);
    t.after(() => end(application));
    await within(LimitMs, 'camera application', once(application.stdout, 'data'));
    assert.match(await refusalOf(run, newer), /use the sample camera: camera_application\.exe\s+Close/);
    assert.deepEqual(await filesIn(folder), [...packedFiles, 'notes.txt', Uninstaller].sort());
    application.stdin.end();
    await within(LimitMs, 'end of the camera application', application.exited);

    // The shortcut to the test picture starts the program again.
    await run.driver.startProgram(StartCommand, `"${testPictureLink}"`);
    await waitForMovingCard(slotPage.frameFile);
    assert.ok((await run.logLines()).some((line) => /Receiver URL: file:\/\/\/C:\/.*\/Vistel%20Receiver\//.test(line)));

    // So does the uninstaller.
    await uninstall(run, 'HKCU');
    await until(LimitMs, 'end of the receiver', async () => (await run.prefix.processIds(Program)).length === 0);
    assert.deepEqual(await readdir(folder), ['notes.txt']);
    assert.equal(await registeredCamera(run), undefined);
    assert.deepEqual(links.filter((link) => existsSync(run.prefix.unixPath(link))), []);
    assert.ok(!existsSync(join(run.out, 'ProgramData/Vistel')));
    assert.ok(!existsSync(join(run.out, 'LocalAppData/Vistel')));
    assert.deepEqual(await run.logLines(), []);
});

// Where each kind of installation puts things.
const Scopes = {
    user: {
        option: '', root: 'HKCU', folder: /\\AppData\\Local\\Programs\\Vistel Receiver$/,
        menu: (profile) => `${profile}\\AppData\\Roaming\\Microsoft\\Windows\\Start Menu\\Programs`,
    },
    machine: {
        option: ' /AllUsers', root: 'HKLM', folder: /^C:\\Program Files\\Vistel Receiver$/,
        menu: () => 'C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs',
    },
};

for (const [name, scope] of Object.entries(Scopes)) {
    test(`installs, replaces, repairs and removes silently for the ${name}, also while the program runs`, async (t) => {
        const run = await startReceiver({ args: ['--embedded'] });
        t.after(() => run.stop());
        const otherRoot = scope.root === 'HKCU' ? 'HKLM' : 'HKCU';
        const data = join(run.out, 'ProgramData/Vistel');
        const otherReceiver = run.receiverPath;
        await mkdir(join(run.out, 'Videos/Vistel'), { recursive: true });
        await writeFile(join(run.out, 'Videos/Vistel/recording.mp4'), 'the user\'s');
        if (name === 'machine') {
            await assertRefusedInUse(run, older, data);
            assert.deepEqual(await entryIn(run, 'HKLM'), {});
        }
        await run.closeWindow(); // The installed ones come later.

        let above; // the folder that the first installation may create above its own
        for (const isRunning of [false, true]) {
            if (isRunning) {
                await mkdir(above, { recursive: true });
            }
            let program;
            const startIfWanted = async () => {
                if (isRunning) {
                    program = await run.driver.startProgram(run.receiverPath, '--embedded');
                }
            };
            const expectClosed = async () => {
                if (isRunning) {
                    assert.equal(await within(LimitMs, 'end of the program', program.exited), 0);
                }
            };
            // What the receiver of another account may have left.
            await mkdir(data, { recursive: true });
            await writeFile(join(data, 'frame-buffer.bin'), 'another account\'s');

            assert.equal(await install(run, older, scope.option), 0);
            const { InstallLocation, DisplayVersion } = await entryIn(run, scope.root);
            assert.match(InstallLocation, scope.folder);
            assert.deepEqual(await entryIn(run, otherRoot), {});
            const folder = run.prefix.unixPath(InstallLocation);
            above = dirname(folder);
            const profile = InstallLocation.split('\\').slice(0, 3).join('\\');
            const link = run.prefix.unixPath(`${scope.menu(profile)}\\Vistel Receiver.lnk`);
            assert.ok(existsSync(link), link);
            if (name === 'machine') {
                await assertSharedData(data);
            }

            const profileFile = join(run.out, 'LocalAppData/Vistel/WebView2/Cookies');
            await mkdir(dirname(profileFile), { recursive: true });
            await writeFile(profileFile, 'of a page');
            run.receiverPath = `${InstallLocation}\\${Program}`;
            if (name === 'machine' && !isRunning) {
                const other = await run.driver.startProgram(otherReceiver, '--embedded');
                await assertRefusedInUse(run, newer, data, folder);
                assert.equal((await entryIn(run, 'HKLM')).DisplayVersion, DisplayVersion);
                await kill(run, Program);
                await within(LimitMs, 'end of the other receiver', other.exited);
            }
            await startIfWanted();
            assert.equal(await install(run, newer, `${scope.option} /CAMERA`), 0);
            await expectClosed();
            assert.notEqual((await entryIn(run, scope.root)).DisplayVersion, DisplayVersion);
            assert.ok(!existsSync(join(folder, 'obsolete.txt')));
            assert.ok(existsSync(profileFile), 'an update keeps the profile');
            assert.equal(await registeredCameraIn(run, scope.root), `${InstallLocation}\\sample_camera.dll`);
            assert.equal(await registeredCameraIn(run, otherRoot), undefined);

            await rm(join(folder, 'README.txt'));
            await startIfWanted();
            assert.equal(await install(run, newer, scope.option), 0);
            await expectClosed();
            assert.ok(existsSync(join(folder, 'README.txt')));
            assert.ok(await registeredCameraIn(run, scope.root), 'it stays registered');

            await startIfWanted();
            await uninstall(run, scope.root);
            await expectClosed();
            assert.deepEqual([folder, link, data, join(run.out, 'LocalAppData/Vistel')].filter(existsSync), []);
            assert.equal(existsSync(above), isRunning || name === 'machine', 'it stays if it was there before');
            assert.equal(await registeredCameraIn(run, scope.root), undefined);
            assert.match(await query(run, `HKCU\\${CaptureDevicesKey}`), /Unable to find/);
            assert.deepEqual(await run.logLines(), []);
            assert.deepEqual(await readdir(join(run.out, 'Videos/Vistel')), ['recording.mp4']);
        }
    });
}

// While a receiver from another folder writes the frame file, an installation for all users changes nothing.
async function assertRefusedInUse(run, installer, ...folders) {
    const frameFile = join(folders[0], 'frame-buffer.bin');
    await until(LimitMs, 'frame file in use', async () =>
        existsSync(frameFile) && (await readFile(frameFile)).subarray(0, 4).equals(Buffer.from('VSTL')));
    const state = async () => {
        const paths = [];
        for (const folder of folders) {
            paths.push(folder, ...(await filesIn(folder)).map((file) => join(folder, file)));
        }
        return Promise.all(paths.map(async (path) => {
            const { mode, ino } = await lstat(path);
            return { path, mode, ino };
        }));
    };
    const before = await state();
    assert.match(await refusalOf(run, installer, '/AllUsers'), /frame-buffer\.bin is in use/);
    assert.deepEqual(await state(), before);
}

// Of rights Wine keeps little more than that these accounts are named and not everyone.
async function assertSharedData(data) {
    for (const name of ['', 'frame-buffer.bin', 'video-quality.txt']) {
        assert.equal((await lstat(join(data, name))).mode & 0o7, 0, name || 'the folder');
    }
    const bytes = await readFile(join(data, 'frame-buffer.bin'));
    assert.ok(bytes.length === FrameFileSize && bytes.every((byte) => byte === 0), 'a frame file without a frame');
    assert.equal(await readFile(join(data, 'video-quality.txt'), 'utf8'), '720p');
}

// What the rights mean on Windows.
test('the rights of the shared data let users write two files and replace nothing', async () => {
    const script = await readFile(join(SourceFolder, 'packaging/data_folder.nsh'), 'utf8');
    const All = 0x1f01ff;
    const ReadAndWrite = 0x12019f; // what the receiver opens the frame file with
    const Read = 0x120089;
    // To delete, to change rights, and, for a folder, to add something, to delete what is in it and to make it a link.
    const [Delete, ChangeRights, Add, DeleteChild, ChangeFolder] = [0x10000, 0xc0000, 0x6, 0x40, 0x110];
    const rights = (name) => {
        const [, flags, entries] = new RegExp(`!define ${name} "O:BAD:(\\w+)(.*)"`).exec(script);
        assert.ok(flags.startsWith('P'), 'the folder above must not add rights');
        const allowed = {};
        for (const [, type, inheritance, mask, account] of entries.matchAll(/\((\w);(\w*);(\w+);;;(\w+)\)/g)) {
            assert.equal(type, 'A');
            allowed[account] = { mask: mask === 'FA' ? All : Number(mask), inheritance };
        }
        return allowed;
    };
    const folder = rights('FOLDER_RIGHTS');
    assert.deepEqual(Object.keys(folder), ['SY', 'BA', 'AU']);
    assert.equal(folder.AU.mask & (Delete | ChangeRights | Add | DeleteChild | ChangeFolder), 0);
    assert.equal(folder.AU.mask & Read, Read);
    const file = rights('FILE_RIGHTS');
    assert.deepEqual(Object.keys(file), ['SY', 'BA', 'IU', 'AU']);
    assert.equal(file.IU.mask, ReadAndWrite);
    assert.equal(file.AU.mask, Read);
    assert.equal((file.IU.mask | file.AU.mask) & (Delete | ChangeRights), 0);
});

test('two files of the ZIP show the test picture and what the camera shows', async (t) => {
    const temporary = await mkdtemp(join(tmpdir(), 'package-'));
    t.after(() => rm(temporary, { recursive: true, force: true }));
    const zip = await pack(temporary, 'ZIP');
    const folder = 'C:\\Downloads'; // Without a space: Wine's start command does not quote a program's path.
    const run = await startReceiver({
        prepare: async ({ prefix }) => {
            const unixFolder = prefix.unixPath(folder);
            await mkdir(unixFolder, { recursive: true });
            await runProgram('cmake', ['-E', 'tar', 'xf', zip], { cwd: unixFolder });
            return StartCommand;
        },
        commandLine: `"${folder}\\package\\test-picture.cmd"`,
    });
    t.after(() => run.stop());
    await waitForMovingCard(new FrameFile(run.out));

    await run.driver.startProgram(StartCommand, `"${folder}\\package\\watch-camera.cmd"`);
    const page = await run.browser.page();
    await until(LimitMs, 'signal that the camera is in use', async () =>
        await page.evaluate("document.getElementById('usage').textContent") === 'Camera in use');
});
