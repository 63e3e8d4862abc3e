// What goes onto a release page, made twice: once as it is, once signed with a certificate made for this test.
import assert from 'node:assert/strict';
import { createHash } from 'node:crypto';
import { mkdtemp, readdir, readFile, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';

import { makeRelease, releaseNotes } from '../../../packaging/release.mjs';
import { run } from '../processes.mjs';
import { BuildFolder } from '../receiver_run.mjs';
import { PortableExecutable } from './portable_executable.mjs';

const LimitMs = 120000;
const Programs = ['camera_probe.exe', 'sample_camera.dll', 'vistel-receiver.exe'];

const sha256 = (bytes) => createHash('sha256').update(bytes).digest('hex');

let folder;
let plain; // the folders of both releases
let signed;
let signedPaths; // what was signed, in this order
let name; // of the ZIP and the installer

before(async () => {
    folder = await mkdtemp(join(tmpdir(), 'release-test-'));
    const [key, certificate, log, script] = ['key.pem', 'certificate.pem', 'log', 'sign.sh']
        .map((file) => join(folder, file));
    await run('openssl', ['req', '-x509', '-newkey', 'rsa:2048', '-nodes', '-keyout', key, '-out', certificate,
        '-days', '2', '-subj', '/CN=Rehearsal', '-addext', 'extendedKeyUsage=codeSigning'], { limitMs: LimitMs });
    await writeFile(script, `set -e
        osslsigncode sign -certs ${certificate} -key ${key} -in "$1" -out "$1.signed" >/dev/null
        mv "$1.signed" "$1"
        echo "$1" >>${log}`);
    [plain, signed] = ['plain', 'signed'].map((kind) => join(folder, kind));
    delete process.env.VISTEL_SIGN;
    process.env.SOURCE_DATE_EPOCH = '1700000000'; // The sources may be here without their history.
    await makeRelease(BuildFolder, plain);
    process.env.VISTEL_SIGN = `sh ${script}`;
    await makeRelease(BuildFolder, signed);
    delete process.env.VISTEL_SIGN;
    signedPaths = (await readFile(log, 'utf8')).trim().split('\n');
    const zip = (await readdir(plain)).find((file) => file.endsWith('.zip'));
    name = zip.slice(0, -'.zip'.length);
    for (const release of [plain, signed]) {
        await run('cmake', ['-E', 'tar', 'xf', zip], { cwd: release, limitMs: LimitMs });
    }
});

after(() => rm(folder, { recursive: true, force: true }));

test('has all files, with right sums, bill of materials and winget manifest', async () => {
    const sums = (await readFile(join(plain, 'SHA256SUMS'), 'utf8')).trim().split('\n').map((line) => line.split('  '));
    const page = (await readdir(plain)).find((file) => /^vistel-receiver-page-.*\.tgz$/.test(file));
    assert.deepEqual(sums.map(([, file]) => file), [
        'release-notes.md', `${name}.cdx.json`, `${name}.exe`, `${name}.zip`, page,
        ...['installer.', 'locale.en-US.', ''].map((part) => `winget/Vistel.Receiver.${part}yaml`),
    ]);
    for (const [sum, file] of sums) {
        assert.equal(sum, sha256(await readFile(join(plain, file))), file);
    }

    const { components, metadata } = JSON.parse(await readFile(join(plain, `${name}.cdx.json`), 'utf8'));
    assert.equal(metadata.timestamp, '2023-11-14T22:13:20.000Z');
    for (const program of Programs) {
        const { hashes } = components.find((component) => component.name === program);
        assert.deepEqual(hashes, [{ alg: 'SHA-256', content: sha256(await readFile(join(plain, name, program))) }]);
    }
    const libraries = components.filter((component) => component.type === 'library');
    assert.ok(libraries.length > 0 && libraries.every(({ version }) => /^\d/.test(version)));

    const manifest = await readFile(join(plain, 'winget/Vistel.Receiver.installer.yaml'), 'utf8');
    const installerSum = sha256(await readFile(join(plain, `${name}.exe`))).toUpperCase();
    assert.deepEqual([...manifest.matchAll(/InstallerSha256: (\w+)/g)].map(([, sum]) => sum),
                     [installerSum, installerSum]);
    const [, version] = /^PackageVersion: (.*)$/m.exec(manifest);
    assert.equal(name, `vistel-receiver-${version}-win64`);
});

test('the release notes are the version\'s part of the change log, or the unreleased one', () => {
    const changes = '# Changes\n\n## Unreleased\n\n- New.\n\n## 1.2.0\n\n- Second.\n- Third.\n\n## 1.1.0\n\n- First.\n';
    assert.equal(releaseNotes(changes, '1.2.0'), '- Second.\n- Third.');
    assert.equal(releaseNotes(changes, '1.3.0'), '- New.');
});

test('says plainly whether it is signed', async () => {
    assert.match(await readFile(join(plain, 'release-notes.md'), 'utf8'), /not signed/);
    assert.doesNotMatch(await readFile(join(signed, 'release-notes.md'), 'utf8'), /not signed/);
});

test('the programs, the uninstaller and the installer are signed', async () => {
    const files = signedPaths.map((path) => path.split('/').pop());
    assert.deepEqual(files.slice(0, 3), Programs);
    assert.equal(files.length, 5); // NSIS gives the uninstaller a name of its own.
    assert.equal(files[4], `${name}.exe`);
    for (const file of [join(signed, `${name}.exe`), ...Programs.map((program) => join(signed, name, program))]) {
        const output = await run('sh', ['-c', 'osslsigncode verify -in "$0" 2>&1 || true', file], { limitMs: LimitMs });
        const digest = (which) => new RegExp(`${which} message digest\\s*: (\\w+)`).exec(output)[1];
        assert.equal(digest('Current'), digest('Calculated'), file);
        new PortableExecutable(await readFile(file)); // still one
    }
});

// So the second release, made elsewhere, has the same bytes.
test('apart from the signatures both releases are equal', async () => {
    for (const program of Programs) {
        const bare = join(folder, program);
        await run('osslsigncode', ['remove-signature', '-in', join(signed, name, program), '-out', bare],
                  { limitMs: LimitMs });
        assert.ok((await readFile(bare)).equals(await readFile(join(plain, name, program))), program);
    }
    const others = (await readdir(join(plain, name), { recursive: true, withFileTypes: true }))
        .filter((entry) => entry.isFile() && !Programs.includes(entry.name))
        .map((entry) => join(entry.parentPath ?? entry.path, entry.name).slice(plain.length + 1));
    const page = (await readdir(plain)).find((file) => file.endsWith('.tgz'));
    for (const file of [...others, page, 'winget/Vistel.Receiver.yaml']) {
        assert.ok((await readFile(join(plain, file))).equals(await readFile(join(signed, file))), file);
    }
});
