// test_session.mjs COMMAND ARGUMENTS: runs a command within which wine_test.sh finds a prepared prefix and display,
// and an encoder for recordings, shared by all tests and removed at the end. The exit code is the command's.
import { once } from 'node:events';
import { writeFileSync } from 'node:fs';
import { join } from 'node:path';

import { startDisplay } from './display.mjs';
import { createPrefix, wineLoader } from './prefix.mjs';
import { end, run, signalGroup, start, within } from './processes.mjs';
import { startEncoderServer } from './recorder/encoder_server.mjs';

const StartLimitMs = 60000;

const [command, ...commandArguments] = process.argv.slice(2);

let child;
let stopSignal;
for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) {
    process.on(signal, () => {
        stopSignal = signal;
        if (child?.pid) {
            signalGroup(child, signal);
        }
    });
}

try {
    process.exitCode = await runSession();
} catch (error) {
    process.stderr.write(`${error.message}\n`);
    process.exitCode = 1;
}

async function runSession() {
    const prefix = await createPrefix();
    let display;
    let keeper;
    let encoder;
    try {
        display = await startDisplay();
        encoder = await startEncoderServer({ reports: true });
        // As long as some program runs, so do the services that every program needs.
        keeper = prefix.start('cmd.exe', [], display.name);
        keeper.stdin.on('error', () => {});
        // Two programs that start at once in a fresh prefix would each start a server.
        await within(StartLimitMs, 'start of Wine', Promise.race([
            once(keeper.stdout, 'data'),
            keeper.exited.then((code) => Promise.reject(new Error(`Wine ended with ${code}`))),
        ]));
        keeper.stdout.resume();
        await startDesktop(prefix, display);
        if (stopSignal) {
            return 1;
        }
        child = start(command, commandArguments, {
            stdio: 'inherit', env: {
                ...process.env, ...encoder.environment(), VISTEL_TEST_SESSION: writeSettings(prefix, display),
            },
        });
        return await child.exited;
    } finally {
        if (child) {
            await end(child);
        }
        if (keeper) {
            await end(keeper);
        }
        await encoder?.stop();
        await prefix.remove();
        await display?.stop();
    }
}

// The first program with a window brings up Wine's desktop process, which inherits that program's stderr and outlives
// it: who reads a test's output to its end would wait for ever. So another program comes first.
async function startDesktop(prefix, display) {
    await run(wineLoader(), ['rundll32.exe', 'user32.dll,GetDesktopWindow'], {
        stdio: 'ignore', env: prefix.environment(display.name),
    });
}

// A shell script that makes a program's environment that of the prefix.
function writeSettings(prefix, display) {
    const quote = (text) => `'${text.replaceAll("'", `'\\''`)}'`;
    const wanted = prefix.environment(display.name);
    const lines = Object.entries(wanted)
        .filter(([name, value]) => process.env[name] !== value)
        .map(([name, value]) => `export ${name}=${quote(value)}`);
    lines.push(`unset ${Object.keys(process.env).filter((name) => !(name in wanted)).join(' ')} VISTEL_TEST_SESSION`);
    lines.push(`wine_loader=${quote(wineLoader())}`);
    const file = join(prefix.runFolder, 'session.sh');
    writeFileSync(file, `${lines.join('\n')}\n`);
    return file;
}
