// What people install: the installer puts the program there and runs it, a newer one takes its place, and the
// uninstaller leaves nothing but what is the user's.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { existsSync } from 'node:fs';
import { mkdir, mkdtemp, readdir, readFile, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { test } from 'node:test';

import { SourceFolder } from '../prefix.mjs';
import { end, run as runProgram, until, within } from '../processes.mjs';
import { BuildFolder, startReceiver } from '../receiver_run.mjs';
import { FrameFile } from './frame_file.mjs';
import { goodMessage, Ok, startOnSlotPage } from './slot_page_run.mjs';
import { frameNumber, hasColorBars } from './test_card.mjs';

const LimitMs = 120000;
const Program = 'vistel-receiver.exe';
const Probe = 'camera_probe.exe';
const Refused = 3; // the installer's exit code
const StartCommand = 'C:\\windows\\system32\\start.exe'; // what a double click does
const Uninstaller = 'uninstall.exe';
const CameraKey = 'HKCU\\Software\\Classes\\CLSID\\{C132191D-7DC1-4EB6-8914-B912B15C22B0}\\InprocServer32';
const UninstallKey = 'HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\VistelReceiver';

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

test('installs, runs, is updated, and leaves nothing after uninstalling', async (t) => {
    const temporary = await mkdtemp(join(tmpdir(), 'package-'));
    t.after(() => rm(temporary, { recursive: true, force: true }));
    const obsolete = join(temporary, 'obsolete');
    await mkdir(obsolete);
    await writeFile(join(obsolete, 'obsolete.txt'), 'of the older version');
    const older = await pack(join(temporary, 'older'), 'NSIS', { CPACK_INSTALLED_DIRECTORIES: `${obsolete};.` });
    const newer = await pack(join(temporary, 'newer'), 'NSIS', { CPACK_PACKAGE_VERSION: '9.8.7' });
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
    const install = async (run, installer, options = '') => {
        const program = await run.prefix.addFile(installer, 'C:\\Setup.exe');
        const { exited } = await run.driver.startProgram(program, `/S${options}`);
        return within(LimitMs, 'end of the installer', exited);
    };
    const query = async (run, key) => {
        const program = run.prefix.start('reg.exe', ['query', key], run.display.name);
        let text = '';
        program.stdout.on('data', (chunk) => {
            text += chunk;
        });
        await within(LimitMs, 'end of the query', program.exited);
        return text;
    };
    const registeredCamera = async (run) =>
        /REG_SZ\s+(.*?)\s*$/m.exec((await query(run, CameraKey)).replace(/^.*ThreadingModel.*$/m, ''))?.[1];
    // The program's entry in the list of installed ones; empty when there is none.
    const entry = async (run) => {
        const text = await query(run, UninstallKey);
        return Object.fromEntries([...text.matchAll(/^\s+(\w+)\s+REG_\w+\s+(.*?)\s*$/gm)].map(([, ...pair]) => pair));
    };

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
    assert.equal(await install(run, newer), Refused);
    assert.deepEqual(await filesIn(folder), [...packedFiles, 'obsolete.txt', Uninstaller].sort());
    assert.equal(run.exitCode, undefined);
    for (const id of await run.prefix.processIds(Probe)) {
        process.kill(id, 'SIGKILL');
    }
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
    const refused = run.prefix.start('C:\\Setup.exe', ['/S'], run.display.name);
    let said = '';
    refused.stdout.on('data', (chunk) => {
        said += chunk;
    });
    assert.equal(await within(LimitMs, 'end of the installer', refused.exited), Refused);
    assert.match(said, /use the sample camera: camera_application\.exe\s+Close/);
    assert.deepEqual(await filesIn(folder), [...packedFiles, 'notes.txt', Uninstaller].sort());
    application.stdin.end();
    await within(LimitMs, 'end of the camera application', application.exited);

    // The shortcut to the test picture starts the program again.
    await run.driver.startProgram(StartCommand, `"${testPictureLink}"`);
    await waitForMovingCard(slotPage.frameFile);
    assert.ok((await run.logLines()).some((line) => /Receiver URL: file:\/\/\/C:\/.*\/Vistel%20Receiver\//.test(line)));

    // So does the uninstaller, which goes on from a copy of itself.
    const { QuietUninstallString } = await entry(run);
    const [, uninstaller, option] = /^"(.*)" (\S+)$/.exec(QuietUninstallString);
    await within(LimitMs, 'end of the uninstaller', (await run.driver.startProgram(uninstaller, option)).exited);
    await until(LimitMs, 'removal', async () => !(await entry(run)).DisplayName);
    await until(LimitMs, 'end of the receiver', async () => (await run.prefix.processIds(Program)).length === 0);
    assert.deepEqual(await readdir(folder), ['notes.txt']);
    assert.equal(await registeredCamera(run), undefined);
    assert.deepEqual(links.filter((link) => existsSync(run.prefix.unixPath(link))), []);
    assert.ok(slotPage.frameFile.exists);
    assert.ok((await run.logLines()).length > 0);
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
