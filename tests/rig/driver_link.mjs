// Talks to rig_driver.exe: one line of words out, one line of JSON back. Driver and programs live in one Wine prefix.
import { createInterface } from 'node:readline';

import { end, within } from './processes.mjs';

const AnswerLimitMs = 30000;

export class Driver {
    #child;
    #waiting = [];
    #exits = new Map();

    // `child` is the started rig_driver.exe.
    constructor(child) {
        this.#child = child;
        child.stdin.on('error', () => {}); // The exit says more than a broken pipe.
        createInterface({ input: child.stdout }).on('line', (line) => this.#onLine(line));
        const gone = (reason) => {
            this.#waiting.splice(0).forEach(({ reject }) => reject(reason));
        };
        child.exited.then((code) => gone(new Error(`the window driver ended with ${code}`)), gone);
    }

    // Starts a program: { program, process, exited: promise of the exit code }.
    async startProgram(windowsPath, commandLine = '') {
        const started = await this.ask('start', windowsPath, commandLine);
        return { ...started, exited: this.#exit(started.program).promise };
    }

    async windows() {
        return (await this.ask('windows')).windows;
    }

    async children(window) {
        return (await this.ask('children', window)).windows;
    }

    // One command of the list at the head of rig_driver.cpp.
    async ask(...words) {
        const text = words.join('\t');
        if (/[\r\n]/.test(text)) {
            throw new Error('a word for the window driver holds a line break');
        }
        if (this.#child.exitCode !== null || this.#child.signalCode !== null) {
            throw new Error('the window driver has ended');
        }
        const answer = await within(AnswerLimitMs, `answer to "${words[0]}"`, new Promise((resolve, reject) => {
            this.#waiting.push({ resolve, reject });
            this.#child.stdin.write(`${text}\n`);
        }));
        if (answer.error) {
            throw new Error(`window driver, "${words.join(' ')}": ${answer.error}`);
        }
        return answer;
    }

    // Ends the driver and the programs it has started.
    async stop() {
        this.#child.stdin.end();
        await within(AnswerLimitMs, 'end of the window driver', this.#child.exited).catch(() => {});
        await end(this.#child);
    }

    #onLine(line) {
        if (!line.startsWith('{')) {
            return; // What Wine has to say of a program that crashed.
        }
        const answer = JSON.parse(line);
        if (answer.exited === undefined) {
            this.#waiting.shift().resolve(answer);
        } else {
            this.#exit(answer.exited).resolve(answer.code);
        }
    }

    // The exit may be reported before the answer that names the program.
    #exit(program) {
        if (!this.#exits.has(program)) {
            const exit = {};
            exit.promise = new Promise((resolve) => {
                exit.resolve = resolve;
            });
            this.#exits.set(program, exit);
        }
        return this.#exits.get(program);
    }
}
