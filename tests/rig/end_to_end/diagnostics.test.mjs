// The report on the system that a page gets for its "ready": the true version, and whether the camera is registered.
import assert from 'node:assert/strict';
import { text as readText } from 'node:stream/consumers';
import { test } from 'node:test';

import { within } from '../processes.mjs';
import { diagnostics } from './page_messages.mjs';
import { startOnSlotPage } from './slot_page_run.mjs';

const ProgramLimitMs = 60000;
const CameraKey = 'HKLM\\SOFTWARE\\Classes\\CLSID\\{A42D576C-2AD1-4D63-94B0-31E96BDCA54F}';

// What the system itself calls its version, as in "10.0.22631".
async function systemVersion({ prefix, display }) {
    const program = prefix.start('cmd.exe', ['/c', 'ver'], display.name);
    const text = await within(ProgramLimitMs, 'version of the system', readText(program.stdout));
    return /\d+\.\d+\.\d+/.exec(text)[0];
}

// Runs the system's own registry editor: whether it succeeded.
async function editRegistry({ driver }, ...words) {
    const { exited } = await driver.startProgram('C:\\windows\\system32\\reg.exe', words.join(' '));
    return await within(ProgramLimitMs, `reg ${words[0]}`, exited) === 0;
}

test('the page receives whether the camera is registered for 64-bit programs, determined each time', async (t) => {
    const slotPage = await startOnSlotPage(t);
    const { run } = slotPage;
    const version = await systemVersion(run);
    const osSupported = Number(version.split('.')[2]) >= 22000;
    const checkReport = async (virtualCameraRegistered) => {
        await slotPage.connect();
        assert.deepEqual(await slotPage.takeReceived(), [diagnostics(version, { osSupported, virtualCameraRegistered })]);
    };
    const register = async (key, view) => {
        assert.ok(await editRegistry(run, 'add', key, '/ve /d C:\\nowhere\\camera.dll /f', view));
        assert.ok(await editRegistry(run, 'query', key, view));
    };
    const server = `${CameraKey}\\InprocServer32`;
    await checkReport(false);

    await register(server, '/reg:32');
    assert.ok(!await editRegistry(run, 'query', server, '/reg:64'));
    await checkReport(false);

    await register(CameraKey, '/reg:64');
    await checkReport(false);
    await register(server, '/reg:64');
    await checkReport(true);

    await slotPage.reload();
    assert.ok(await editRegistry(run, 'delete', server, '/f /reg:64'));
    await checkReport(false);
    assert.equal(await run.closeWindow(), 0);
});

test('on Windows 7 the page receives that the system is not supported', async (t) => {
    const slotPage = await startOnSlotPage(t, { registry: { 'Software\\Wine': { Version: 'win7' } } });
    const { run } = slotPage;
    const version = await systemVersion(run);
    assert.match(version, /^6\.1\./);
    await slotPage.connect();
    assert.deepEqual(await slotPage.takeReceived(), [
        diagnostics(version, { osSupported: false, virtualCameraRegistered: false }),
    ]);
    assert.equal(await run.closeWindow(), 0);
});
