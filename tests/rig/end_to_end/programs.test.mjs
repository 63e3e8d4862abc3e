// The built programs as files: headers, resources, versions.
import assert from 'node:assert/strict';
import { mkdtemp, readFile, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { test } from 'node:test';

import { SourceFolder } from '../prefix.mjs';
import { run } from '../processes.mjs';
import { BuildFolder } from '../receiver_run.mjs';
import { Console, Gui, PortableExecutable, ResourceType } from './portable_executable.mjs';

const LimitMs = 120000;
const Receiver = 'vistel-receiver.exe';
const Programs = new Map([
    [Receiver, Gui], ['tools/camera_probe/camera_probe.exe', Console], ['sample_camera/sample_camera.dll', Console],
]);

const read = (name) => readFile(join(BuildFolder, name));

for (const [name, subsystem] of Programs) {
    test(`${name} is hardened, and contains neither time nor place of its build`, async () => {
        const bytes = await read(name);
        const program = new PortableExecutable(bytes);
        program.assertHardened(subsystem);
        assert.ok(program.hasRelocations);
        assert.equal(program.timeStamp, 0);
        assert.ok(!bytes.includes(SourceFolder), 'it names the folder it was built in');
        assert.ok(bytes.includes('stack smashing detected'), 'the compiler\'s stack protector is missing');
    });
}

test('the receiver has its manifest, icon and version', async () => {
    const program = new PortableExecutable(await read(Receiver));
    const manifest = program.resource(ResourceType.Manifest, 1).toString();
    assert.match(manifest, /<requestedExecutionLevel level="asInvoker" uiAccess="false"\/>/);
    assert.doesNotMatch(manifest, /dpiAware/i); // Windows scales the window.
    assert.ok(program.resource(ResourceType.Icon, 101).readUInt16LE(4) > 1, 'sizes of the icon');
    const cache = (await read('CMakeCache.txt')).toString();
    assert.equal(program.fileVersion(), `${/^CMAKE_PROJECT_VERSION:STATIC=(.*)$/m.exec(cache)[1]}.0`);
});

// The package's version may change with every release; that of the protocol may not.
test('a package of version 9.8.7 contains a program that reports client version 0.1.3', async (t) => {
    const folder = await mkdtemp(join(tmpdir(), 'version-'));
    t.after(() => rm(folder, { recursive: true, force: true }));
    const versionFile = join(SourceFolder, 'tests/rig/end_to_end/other_version.cmake');
    await run('cmake', ['-S', SourceFolder, '-B', folder, '-G', 'Ninja', '-DBUILD_TESTING=OFF',
        `-DCMAKE_TOOLCHAIN_FILE=${join(SourceFolder, 'cmake/mingw-w64-x86_64.cmake')}`,
        `-DCMAKE_PROJECT_INCLUDE=${versionFile}`], { limitMs: LimitMs });
    const parts = ['CMakeFiles/vistel-receiver.dir/resources/receiver.rc.res',
        'CMakeFiles/receiver_core.dir/browser/client_query.cpp.obj',
        'CMakeFiles/receiver_core.dir/browser/page_json.cpp.obj'];
    await run('cmake', ['--build', folder, '--target', ...parts], { limitMs: LimitMs });
    const [resources, ...sources] = await Promise.all(parts.map((part) => readFile(join(folder, part))));
    const wide = (text) => Buffer.from(text, 'utf16le');
    assert.ok(resources.includes(wide('9.8.7')));
    for (const source of sources) {
        assert.ok(source.includes(wide('0.1.3')));
        assert.ok(!source.includes(wide('9.8.7')));
    }
    assert.match(await readFile(join(folder, 'CPackConfig.cmake'), 'utf8'),
                 /CPACK_PACKAGE_FILE_NAME "vistel-receiver-9\.8\.7-win64"/);
});
