// Makes everything that goes onto a release page:
//   node release.mjs BUILD_FOLDER OUT    OUT is emptied first
// The bytes depend on the sources and the packages of the compiler alone. Variables:
//   VISTEL_SIGN          a shell command that signs the file whose path follows it; without one nothing is signed
//   VISTEL_RELEASE_URL   the address of the folder that people download the files from
//   SOURCE_DATE_EPOCH    the time in the files, in seconds since 1970; that of the last commit by default
import { createHash } from 'node:crypto';
import * as fs from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';

import { SourceFolder } from '../tests/rig/prefix.mjs';
import { run } from '../tests/rig/processes.mjs';
import { makePagePackage } from './page_package.mjs';
import { zipFile } from './zip_file.mjs';

const LimitMs = 300000;
const ExampleUrl = 'https://releases.vistel.example';
// What the compiler and the packer put into the programs, by Debian package.
const LinkedPackages = {
    'g++-mingw-w64-x86-64-posix': 'the compiler\'s runtime: libstdc++, libgcc, libssp',
    'mingw-w64-x86-64-dev': 'the C runtime\'s start code and libwinpthread',
    'nsis-common': 'the program in the installer and the uninstaller',
};

const sha256 = (bytes) => createHash('sha256').update(bytes).digest('hex');

// The section of a version in CHANGELOG.md; the unreleased one as long as the version has none.
export function releaseNotes(changes, version) {
    const sections = changes.split(/^## /m).slice(1);
    const section = [version, 'Unreleased'].map((name) => sections.find((text) => text.startsWith(name))).find(Boolean);
    return section.slice(section.indexOf('\n')).trim();
}

async function filesIn(folder) {
    const entries = await fs.readdir(folder, { recursive: true, withFileTypes: true });
    return entries.filter((entry) => entry.isFile())
        .map((entry) => join(entry.parentPath ?? entry.path, entry.name).slice(folder.length + 1)).sort();
}

async function sourceDate() {
    const seconds = process.env.SOURCE_DATE_EPOCH ??
        await run('git', ['-C', SourceFolder, 'log', '-1', '--format=%ct'], { limitMs: LimitMs });
    return new Date(Number(seconds) * 1000);
}

// The bill of materials in CycloneDX's format.
async function billOfMaterials(version, date, files) {
    const components = await Promise.all(Object.entries(LinkedPackages).map(async ([name, description]) => ({
        type: 'library', name, description,
        version: (await run('dpkg-query', ['--show', '--showformat', '${Version}', name], { limitMs: LimitMs })).trim(),
    })));
    const hashes = (bytes) => [{ alg: 'SHA-256', content: sha256(bytes) }];
    return {
        bomFormat: 'CycloneDX', specVersion: '1.5', version: 1,
        metadata: {
            timestamp: date.toISOString(),
            component: { type: 'application', name: 'vistel-receiver', version, supplier: { name: 'Vistel' } },
        },
        components: [
            ...Object.entries(files).map(([name, bytes]) => ({ type: 'file', name, hashes: hashes(bytes) })),
            ...components,
        ],
    };
}

// The three files of a winget manifest, by name.
function wingetManifest(version, url, installerName, installer) {
    const id = 'Vistel.Receiver';
    const file = (kind, ...lines) => [`PackageIdentifier: ${id}`, `PackageVersion: ${version}`, ...lines,
        `ManifestType: ${kind}`, 'ManifestVersion: 1.6.0', ''].join('\n');
    const entry = (scope, switches) => [`  - Architecture: x64`, `    Scope: ${scope}`,
        `    InstallerUrl: ${url}/${installerName}`, `    InstallerSha256: ${sha256(installer).toUpperCase()}`,
        ...switches];
    return {
        [`${id}.yaml`]: file('version', 'DefaultLocale: en-US'),
        [`${id}.installer.yaml`]: file('installer', 'InstallerType: nullsoft', 'Installers:', ...entry('user', []),
            ...entry('machine', ['    ElevationRequirement: elevationRequired', '    InstallerSwitches:',
                '      Custom: /AllUsers'])),
        [`${id}.locale.en-US.yaml`]: file('defaultLocale', 'PackageLocale: en-US', 'Publisher: Vistel',
            'PackageName: Vistel Receiver', 'License: to be stated by the owner',
            'ShortDescription: Sends a web page\'s video to the Vistel virtual camera'),
    };
}

// The names of the files in `out`.
export async function makeRelease(buildFolder, out) {
    const cache = await fs.readFile(join(buildFolder, 'CMakeCache.txt'), 'utf8');
    const version = /^CMAKE_PROJECT_VERSION:STATIC=(.*)$/m.exec(cache)[1];
    const date = await sourceDate();
    const name = `vistel-receiver-${version}-win64`;
    const command = process.env.VISTEL_SIGN;
    const sign = async (path) => command && run('sh', ['-c', `${command} "$0"`, path], { limitMs: LimitMs });
    await fs.rm(out, { recursive: true, force: true });
    await fs.mkdir(join(out, 'winget'), { recursive: true });
    const work = await fs.mkdtemp(join(tmpdir(), 'release-'));
    try {
        const staging = join(work, name);
        await run('cmake', ['--install', buildFolder, '--prefix', staging], { limitMs: LimitMs });
        const files = {};
        for (const file of await filesIn(staging)) {
            if (/\.(exe|dll)$/.test(file)) {
                await sign(join(staging, file));
            }
            files[file] = await fs.readFile(join(staging, file));
        }
        await fs.writeFile(join(out, `${name}.zip`),
                           zipFile(Object.fromEntries(Object.entries(files).map(([file, bytes]) =>
                               [`${name}/${file}`, bytes])), date));

        await run('cpack', ['--config', join(resolve(buildFolder), 'CPackConfig.cmake'), '-G', 'NSIS', '-B', work,
            '-D', 'CPACK_INSTALL_CMAKE_PROJECTS=', '-D', `CPACK_INSTALLED_DIRECTORIES=${staging};.`,
            '-D', `CPACK_VISTEL_UNINSTALLER_SIGNING=${command ? `!uninstfinalize '${command} "%1"'` : ''}`],
                  { limitMs: LimitMs, env: { ...process.env, SOURCE_DATE_EPOCH: String(date.getTime() / 1000) } });
        const installer = join(out, `${name}.exe`);
        await fs.copyFile(join(work, `${name}.exe`), installer);
        await sign(installer);
        await makePagePackage(out);

        const writeTexts = (texts) => Promise.all(Object.entries(texts).map(([file, text]) =>
            fs.writeFile(join(out, file), text)));
        const installerBytes = await fs.readFile(installer);
        const url = `${process.env.VISTEL_RELEASE_URL ?? ExampleUrl}/${version}`;
        const notes = releaseNotes(await fs.readFile(join(SourceFolder, 'CHANGELOG.md'), 'utf8'), version);
        await writeTexts({
            [`${name}.cdx.json`]: `${JSON.stringify(await billOfMaterials(version, date, files), undefined, 2)}\n`,
            'release-notes.md': `# ${version}\n\n${notes}\n\n${command ? '' : 'The files are not signed.\n'}`,
            ...Object.fromEntries(Object.entries(wingetManifest(version, url, `${name}.exe`, installerBytes))
                .map(([file, text]) => [`winget/${file}`, text])),
        });
        const sums = await Promise.all((await filesIn(out)).map(async (file) =>
            `${sha256(await fs.readFile(join(out, file)))}  ${file}\n`));
        await fs.writeFile(join(out, 'SHA256SUMS'), sums.join(''));
        return filesIn(out);
    } finally {
        await fs.rm(work, { recursive: true });
    }
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
    const [, , buildFolder, out] = process.argv;
    console.log((await makeRelease(buildFolder, resolve(out))).map((file) => join(out, file)).join('\n'));
    if (!process.env.VISTEL_SIGN) {
        console.error('release: warning: nothing is signed; VISTEL_SIGN names the command that signs a file');
    }
    if (!process.env.VISTEL_RELEASE_URL) {
        console.error('release: warning: the winget manifest has an example address; VISTEL_RELEASE_URL sets it');
    }
}
