// Tools for starting other programs: waiting with a limit, reliable termination, locks between processes.
import { spawn, spawnSync } from 'node:child_process';
import { closeSync, ftruncateSync, openSync, readFileSync, writeSync } from 'node:fs';
import { setTimeout as delay } from 'node:timers/promises';

const PollMs = 20;
const TermLimitMs = 5000;

// The value of `promise`, or an error that names what did not happen in time.
export async function within(limitMs, what, promise) {
    const timer = new AbortController();
    try {
        return await Promise.race([
            promise,
            delay(limitMs, undefined, { signal: timer.signal }).then(() => {
                throw new Error(`${what}: not within ${limitMs / 1000} s`);
            }),
        ]);
    } finally {
        timer.abort();
    }
}

// Asks `condition` until it answers something true, and returns that.
export async function until(limitMs, what, condition) {
    for (const end = performance.now() + limitMs; ;) {
        const answer = await condition();
        if (answer) {
            return answer;
        }
        if (performance.now() > end) {
            throw new Error(`${typeof what === 'function' ? what() : what}: not within ${limitMs / 1000} s`);
        }
        await delay(PollMs);
    }
}

// A child in a process group of its own, which Ctrl-C in a terminal does not reach. `exited` resolves to its exit code,
// to 128 + n when signal n ended it, and rejects when it could not be started.
export function start(command, commandArguments, options = {}) {
    const child = spawn(command, commandArguments, { detached: true, ...options });
    child.exited = new Promise((resolve, reject) => {
        child.once('error', (error) => reject(new Error(`cannot start ${command}: ${error.message}`)));
        child.once('exit', (code, signal) => resolve(signal ? 128 + signalNumber(signal) : code));
    });
    child.exited.catch(() => {}); // The caller that waits for it gets the error.
    return child;
}

// Runs a program to its end; its stdout, or an error with what it wrote to stderr. A program whose children outlive it
// must not get pipes: they end when the last holder ends.
export async function run(command, commandArguments, { limitMs = 60000, ...options } = {}) {
    const child = start(command, commandArguments, { stdio: ['ignore', 'pipe', 'pipe'], ...options });
    const output = ['', ''];
    [child.stdout, child.stderr].forEach((stream, index) => {
        stream?.setEncoding('utf8').on('data', (text) => {
            output[index] += text;
        });
    });
    try {
        const closed = new Promise((resolve) => child.once('close', resolve));
        const what = `${command} ${commandArguments.join(' ')}`;
        const [code] = await within(limitMs, what, Promise.all([child.exited, closed]));
        if (code !== 0) {
            throw new Error(`${command} ended with ${code}: ${output[1].trim() || output[0].trim()}`);
        }
        return output[0];
    } catch (error) {
        await end(child);
        throw error;
    }
}

// Ends a child and its whole group: kindly, then for certain.
export async function end(child) {
    if (!child?.pid) {
        return;
    }
    signalGroup(child, 'SIGTERM');
    await within(TermLimitMs, 'end', child.exited).catch(() => {});
    signalGroup(child, 'SIGKILL');
    await child.exited.catch(() => {});
}

export function signalGroup(child, signal) {
    try {
        process.kill(-child.pid, signal);
    } catch (error) {
        if (error.code !== 'ESRCH') {
            throw error;
        }
    }
}

// Takes the lock that `path` stands for: { release() }, or null when it is taken and `wait` is false. The kernel gives
// it back when this process ends, however it ends; the file stays.
export function lock(path, { wait }) {
    const file = openSync(path, 'a+');
    // flock locks the open file, which this process shares with the child that asks.
    const { status, error } = spawnSync('flock', [...(wait ? [] : ['--nonblock']), '3'],
                                        { stdio: ['ignore', 'ignore', 'inherit', file] });
    if (error) {
        closeSync(file);
        throw new Error(`cannot start flock: ${error.message}`);
    }
    if (status !== 0) {
        closeSync(file);
        if (wait) {
            throw new Error(`waiting for ${path} was interrupted`);
        }
        return null;
    }
    ftruncateSync(file);
    writeSync(file, `${process.pid}\n`);
    return { release: () => closeSync(file) };
}

// The process that took the lock last.
export function lockHolder(path) {
    return readFileSync(path, 'utf8').trim();
}

function signalNumber(signal) {
    return { SIGHUP: 1, SIGINT: 2, SIGQUIT: 3, SIGABRT: 6, SIGKILL: 9, SIGSEGV: 11, SIGTERM: 15 }[signal] ?? 0;
}
