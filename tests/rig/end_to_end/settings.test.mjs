// What the receiver reads and leaves in the product's own folder: who is installed here, and which quality was chosen.
import assert from 'node:assert/strict';
import { mkdir, mkdtemp, readdir, readFile, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { test } from 'node:test';

import { startReceiver } from '../receiver_run.mjs';
import { InvalidArgument, Ok, serveSlotPage, startOnSlotPage } from './slot_page_run.mjs';

const InstallationId = '01234567-89ab-CDEF-cdef-0123456789AB';

// What a line of the file gives of an identifier.
const identifiers = {
    [InstallationId]: InstallationId,
    [`${InstallationId}\r\nmore`]: InstallationId,
    [`{${InstallationId}}`]: undefined,
    [` ${InstallationId}`]: undefined,
    [`\r\n${InstallationId}`]: undefined,
};

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
