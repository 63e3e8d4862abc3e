// Makes the npm package of the page kit: its modules, the types in them as .d.mts files, and the protocol's document.
//   node page_package.mjs FOLDER    writes vistel-receiver-page-VERSION.tgz to FOLDER
import * as fs from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';

import { installNpmPackages, Quiet } from '../tests/rig/npm_packages.mjs';
import { SourceFolder } from '../tests/rig/prefix.mjs';
import { run } from '../tests/rig/processes.mjs';

const LimitMs = 120000;
const PageFolder = join(SourceFolder, 'examples/page');
const CompilerFolder = join(SourceFolder, 'build/typescript');

// Runs the TypeScript compiler; an error has all that it prints.
export async function compileTypes(...compilerArguments) {
    await installNpmPackages(PageFolder, CompilerFolder);
    const compiler = join(CompilerFolder, 'node_modules/typescript/bin/tsc');
    await run(process.execPath, [compiler, ...compilerArguments], { limitMs: LimitMs });
}

// The path of the package, which is written to `folder`.
export async function makePagePackage(folder) {
    const staging = await fs.mkdtemp(join(tmpdir(), 'page-package-'));
    try {
        await compileTypes('--project', PageFolder, '--noEmit', 'false', '--declaration', '--emitDeclarationOnly',
                           '--outDir', staging);
        const sources = ['package.json', 'README.md', 'vistel_receiver.mjs', 'receiver_simulator.mjs', 'simulator'];
        for (const name of sources) {
            await fs.cp(join(PageFolder, name), join(staging, name), { recursive: true });
        }
        await fs.copyFile(join(SourceFolder, 'docs/page-protocol.md'), join(staging, 'page-protocol.md'));
        await fs.mkdir(folder, { recursive: true });
        const name = await run('npm', ['pack', '--silent', ...Quiet, '--pack-destination', resolve(folder)],
                               { cwd: staging, limitMs: LimitMs });
        return join(resolve(folder), name.trim());
    } finally {
        await fs.rm(staging, { recursive: true });
    }
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
    await makePagePackage(process.argv[2]);
}
