// The test host under Wine, as tests drive it: lines in, lines out. Works within a test session (test_session.mjs) and
// finds the two built files by RIG_TEST_HOST and RIG_RUNTIME.
import { spawn } from 'node:child_process';
import { EventEmitter, once } from 'node:events';
import { createInterface } from 'node:readline';
import { fileURLToPath } from 'node:url';

const WineTest = fileURLToPath(new URL('../wine_test.sh', import.meta.url));

const LimitMs = 60_000; // Far beyond what any step takes; a test that reaches it has failed.

function required(name) {
    const value = process.env[name];
    if (!value) {
        throw new Error(`${name} is not set`);
    }
    return value;
}

export class HostProcess {
    lines = [];
    #process;
    #news = new EventEmitter();
    #closed;
    #ending;

    constructor(server, { faults = '', destroyParent = false, environment = {} } = {}) {
        required('VISTEL_TEST_SESSION');
        const library = 'Z:' + required('RIG_RUNTIME').replaceAll('/', '\\');
        const hostArguments = [required('RIG_TEST_HOST'), library, ...(destroyParent ? ['destroy-parent'] : [])];
        this.#process = spawn(WineTest, hostArguments, {
            env: { ...process.env, ...server.environment(), RIG_FAULTS: faults, ...environment },
            stdio: ['pipe', 'pipe', 'ignore'],
        });
        this.#process.stdin.on('error', () => {}); // It has ended; its lines show why.
        this.#closed = once(this.#process, 'close').then(([code, signal]) => {
            this.#ending = `exit code ${code}, signal ${signal}`;
            this.#closed = undefined;
            this.#news.emit('line');
        });
        createInterface({ input: this.#process.stdout }).on('line', (line) => {
            this.lines.push(line);
            this.#news.emit('line');
        });
    }

    // The first line, from number `from` on, that begins with `start`.
    async line(start, from = 0) {
        const deadline = AbortSignal.timeout(LimitMs);
        for (;;) {
            const found = this.lines.slice(from).find((line) => line.startsWith(start));
            if (found !== undefined) {
                return found;
            }
            if (!this.#closed) {
                throw new Error(`the host ended (${this.#ending}) without "${start}":\n${this.lines.join('\n')}`);
            }
            try {
                await once(this.#news, 'line', { signal: deadline });
            } catch {
                throw new Error(`no line "${start}" from the host:\n${this.lines.join('\n')}`);
            }
        }
    }

    send(command) {
        this.#process.stdin.write(command + '\n');
    }

    // Gives a command and waits for its result: the hexadecimal HRESULT.
    async call(command) {
        const name = command.split(' ')[0];
        const from = this.lines.length;
        this.send(command);
        return (await this.line(`${name} `, from)).split(' ')[1];
    }

    // Gives a command that prints a value in front of its result.
    async value(command) {
        const name = command.split(' ')[0];
        const from = this.lines.length;
        await this.call(command);
        const start = `${name}-${name === 'frames' ? 'are' : 'is'} `;
        return (await this.line(start, from)).slice(start.length);
    }

    // Has the page loaded and waits until that is reported.
    async show(command) {
        await this.line('add_WebMessageReceived');
        const from = this.lines.length;
        this.send(command);
        return this.line('navigation ', from);
    }

    kill() {
        this.#process.kill('SIGKILL');
    }

    // Ends the input, which ends the host; the exit code.
    async end() {
        this.#process.stdin.end();
        const limit = setTimeout(() => this.kill(), LimitMs);
        await this.#closed;
        clearTimeout(limit);
        return this.#process.exitCode;
    }
}
