// npm packages that tests and packing use, each set in a folder of its own below build/. No part of the product.
import * as fs from 'node:fs/promises';
import { join } from 'node:path';

import { lock, run } from './processes.mjs';

const LimitMs = 600000;
const Manifests = ['package.json', 'package-lock.json'];
export const Quiet = ['--no-audit', '--no-fund', '--no-update-notifier'];

// Installs what the lock file in `manifestFolder` lists to `folder`/node_modules, unless it is there.
export async function installNpmPackages(manifestFolder, folder, options = []) {
    await fs.mkdir(folder, { recursive: true });
    const folderLock = lock(join(folder, '.lock'), { wait: true });
    try {
        const wanted = await fs.readFile(join(manifestFolder, 'package-lock.json'), 'utf8');
        const installed = join(folder, 'node_modules/installed.json');
        if (await fs.readFile(installed, 'utf8').catch(() => '') === wanted) {
            return;
        }
        await Promise.all(Manifests.map((file) => fs.copyFile(join(manifestFolder, file), join(folder, file))));
        // The lock file names no registry.
        await run('npm', ['ci', '--omit-lockfile-registry-resolved', ...Quiet, ...options],
                  { cwd: folder, limitMs: LimitMs });
        await fs.writeFile(installed, wanted);
    } finally {
        folderLock.release();
    }
}
