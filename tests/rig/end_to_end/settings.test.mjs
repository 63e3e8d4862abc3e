// What the receiver reads and leaves in the product's own folder: who is installed here, and which quality was chosen.
import assert from 'node:assert/strict';
import { chmod, mkdir, mkdtemp, readdir, readFile, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { test } from 'node:test';

import { SourceFolder } from '../prefix.mjs';
import { startReceiver } from '../receiver_run.mjs';
import { serveFolder } from '../static_server.mjs';
import { InvalidArgument, Ok, serveSlotPage, startOnSlotPage } from './slot_page_run.mjs';

const AccessDenied = '80070005';
const Failed = '80004005';
const PageModule = 'vistel_receiver.mjs'; // also a page, of text, without a script of its own
const InstallationId = '01234567-89ab-CDEF-cdef-0123456789AB';

// What the file gives of an identifier.
const identifiers = { [`${InstallationId}\r\nmore`]: InstallationId, [`{${InstallationId}}`]: undefined };

for (const [text, id] of Object.entries(identifiers)) {
    test(`an installation file with ${JSON.stringify(text)} gives ${id ?? 'no identifier'}`, async (t) => {
        const out = await mkdtemp(join(tmpdir(), 'installed-receiver-'));
        t.after(() => rm(out, { recursive: true, force: true }));
        await mkdir(join(out, 'ProgramData/Vistel'), { recursive: true });
        await writeFile(join(out, 'ProgramData/Vistel/installation-id.txt'), text);
        const address = await serveSlotPage(t);
        const run = await startReceiver({ out, args: [`--url=${address}`] });
        t.after(() => run.stop());
        const query = `${id ? `installationId=${id}&` : ''}clientVersion=0.1.3`;
        const line = await run.waitForLog('Receiver URL: ');
        assert.equal(line.slice(10), `Receiver URL: ${address}?${query}`);
        await run.waitForLog(/Navigation completed: success=1/);
        const page = await run.browser.page();
        assert.equal(await page.evaluate('location.search'), `?${query}`);
        assert.equal(await run.closeWindow(), 0);
    });
}

test('the quality that was chosen last is saved', async (t) => {
    const slotPage = await startOnSlotPage(t);
    const { run } = slotPage;
    const folder = join(run.out, 'ProgramData/Vistel');
    const saved = () => readFile(join(folder, 'video-quality.txt'), 'latin1');
    assert.deepEqual(await slotPage.post('quality:4k'), { [InvalidArgument]: 1 });
    assert.deepEqual(await readdir(folder).catch(({ code }) => code), 'ENOENT');
    for (const quality of ['1080p', '720p', '1080p', '1080p']) {
        assert.deepEqual(await slotPage.post(`quality:${quality}`), { [Ok]: 1 });
        assert.equal(await saved(), quality);
    }
    assert.deepEqual(await slotPage.post('quality:4k'), { [InvalidArgument]: 1 });
    assert.equal(await saved(), '1080p');
    assert.equal(await run.closeWindow(), 0);
});

// Files and folders of another account, which the receiver may read but not write.
test('what may not be written is reported, and the rest goes on', async (t) => {
    const out = await mkdtemp(join(tmpdir(), 'second-account-'));
    const folder = join(out, 'ProgramData/Vistel');
    const files = ['frame-buffer.bin', 'video-quality.txt'].map((name) => join(folder, name));
    const videos = join(out, 'Videos');
    t.after(async () => {
        await Promise.all([folder, videos].map((path) => chmod(path, 0o755)));
        await rm(out, { recursive: true, force: true });
    });
    await mkdir(folder, { recursive: true });
    await mkdir(videos);
    await chmod(videos, 0o555);
    await Promise.all(files.map((file) => writeFile(file, '720p', { mode: 0o444 })));
    const slotPage = await startOnSlotPage(t, { out, keepsToModes: true });
    assert.deepEqual(await slotPage.post('ready'), { [AccessDenied]: 1 });
    await slotPage.run.waitForLog(`Shared frame buffers posted to script (HRESULT 0x${AccessDenied})`);
    assert.deepEqual(await slotPage.post('quality:1080p'), { [Failed]: 1 });
    assert.deepEqual(await slotPage.mediaCommand('media:record:start'), [{
        type: 'media-result', action: 'recording-started', success: false, path: '', error: Number(`0x${AccessDenied}`),
    }]);
    assert.deepEqual(await slotPage.post('media:snapshot'), { C00D36D6: 1 });
    assert.deepEqual((await slotPage.takeReceived()).map((text) => JSON.parse(text).action), ['snapshot']);
    assert.equal(await slotPage.run.closeWindow(), 0);
    await slotPage.run.stop();
    assert.deepEqual(await Promise.all(files.map((file) => readFile(file, 'latin1'))), ['720p', '720p']);

    await Promise.all(files.map((file) => rm(file)));
    await chmod(folder, 0o555);
    const server = await serveFolder(join(SourceFolder, 'examples/page'));
    t.after(() => server.stop());
    const run = await startReceiver({
        out, keepsToModes: true, args: [`--url=http://127.0.0.1:${server.port}/${PageModule}`],
    });
    t.after(() => run.stop());
    const handled = [];
    run.browser.events.on('handled', ({ text, result }) => handled.push([text, result]));
    const page = await run.browser.page();
    await run.waitForLog(/Navigation completed: success=1/);
    assert.equal(await page.evaluate(`import('./${PageModule}').then(({ VistelReceiver }) =>
        new VistelReceiver().connect().then(() => 'connected', (error) => error.message))`),
                 'ready: the receiver did not answer; its log is %TEMP%\\vistel-receiver.log');
    assert.deepEqual(handled, [['ready', Number(`0x${AccessDenied}`)]]);
    assert.equal(await run.closeWindow(), 0);
    assert.deepEqual(await readdir(folder), []);
});
