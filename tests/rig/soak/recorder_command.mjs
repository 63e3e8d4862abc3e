// The recorder's part of `./dev soak`: recorder_command.mjs MINUTES records that much video through the recorder alone
// and fits a slope to what the process held during the recording.
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { join } from 'node:path';
import { createInterface } from 'node:readline';

import { SourceFolder } from '../prefix.mjs';
import { describeSlope, memorySlope } from './slope.mjs';

const [, , minutes] = process.argv;
const program = spawn(join(SourceFolder, 'tests/rig/wine_test.sh'),
                      [join(SourceFolder, 'build/windows/tests/shell_tests.exe'), '--gtest_brief=1',
                       '--gtest_filter=*SoakTest.*'],
                      { stdio: ['inherit', 'pipe', 'inherit'],
                        env: { ...process.env, VISTEL_SOAK_SECONDS: String(60 * minutes) } });
const ended = once(program, 'close');
const looks = [];
for await (const line of createInterface({ input: program.stdout })) {
    const look = /^after (\d+) frames: (\d+) bytes committed, (\d+) allocated/.exec(line);
    if (look) {
        const [frames, committed, allocated] = look.slice(1).map(Number);
        looks.push({ frames, committed, allocated });
    } else {
        process.stdout.write(`${line}\n`);
    }
}
const [code] = await ended;
process.exitCode = code === 0 && looks.length > 0 ? 0 : 1;
for (const name of looks.length > 0 ? ['committed', 'allocated'] : []) {
    const memory = memorySlope(looks.map((look) => ({ frames: look.frames, bytes: look[name] })));
    process.stdout.write(`Memory ${name}: ${looks[0][name]} bytes at first, ${looks.at(-1)[name]} in the end; ` +
        `${describeSlope(memory)}\n`);
    if (memory.leaks) {
        process.stderr.write(`./dev soak: the memory ${name} grows\n`);
        process.exitCode = 1;
    }
}
