// One headless Chromium, driven over its debugging pipe: JSON messages, each ended by a zero byte.
import { spawn } from 'node:child_process';
import { EventEmitter } from 'node:events';
import { mkdir, rm } from 'node:fs/promises';

import { hasSharedMemory } from '../temporary_root.mjs';

// The last three load pages that no test looks at: two of the address bar and one that is kept ready.
const disabledFeatures = [
    'Translate', 'MediaRouter', 'OptimizationHints',
    'WebUIOmniboxPopup', 'WebUIOmniboxAimPopup', 'SpareRendererForSitePerProcess',
];

function flags(profile, hostResolverRules, publicPorts, extraFlags) {
    const list = [
        '--headless=new', '--no-sandbox', '--remote-debugging-pipe', `--user-data-dir=${profile}`,
        '--no-startup-window', '--no-first-run', '--no-default-browser-check', '--disable-background-networking',
        '--disable-component-update', '--disable-sync', '--disable-extensions', '--disable-gpu', '--mute-audio',
        '--disable-breakpad', '--password-store=basic', `--disable-features=${disabledFeatures.join()}`,
        `--ip-address-space-overrides=${publicPorts.map((port) => `127.0.0.1:${port}=public`).join()}`,
    ];
    if (!hasSharedMemory()) {
        list.push('--disable-dev-shm-usage');
    }
    if (hostResolverRules) {
        list.push(`--host-resolver-rules=${hostResolverRules}`);
    }
    return [...list, ...extraFlags];
}

// Emits "event" (method, parameters, session) and, once, "exit".
export class Chromium extends EventEmitter {
    #process;
    #profile;
    #input = [];
    #lastId = 0;
    #waiting = new Map();
    #exited;
    #lastErrors = '';

    // `profile` is a folder of this browser's own: made here, removed by stop(). `publicPorts` of this machine count as
    // the internet: every page may connect to them, and their pages may not connect to this machine's other ports.
    static async start({ path = 'chromium', profile, hostResolverRules, publicPorts = [], extraFlags = [] }) {
        await mkdir(profile, { recursive: true });
        const chromium = new Chromium();
        chromium.#profile = profile;
        chromium.#spawn(path, flags(profile, hostResolverRules, publicPorts, extraFlags));
        return chromium;
    }

    #spawn(path, argumentList) {
        // A group of its own, so that every child ends with it; all its temporary files go into the profile.
        const child = spawn(path, argumentList, {
            detached: true,
            stdio: ['ignore', 'ignore', 'pipe', 'pipe', 'pipe'],
            env: { ...process.env, HOME: this.#profile, TMPDIR: this.#profile },
        });
        this.#process = child;
        this.#exited = new Promise((resolve) => {
            child.once('error', (error) => {
                this.#lastErrors += error.message;
                resolve();
            });
            child.once('exit', resolve);
        }).then(() => {
            for (const { reject } of this.#waiting.values()) {
                reject(new Error(`Chromium has ended: ${this.#lastErrors.trim()}`));
            }
            this.#waiting.clear();
            this.#process = undefined;
            this.emit('exit');
        });
        child.stderr.setEncoding('utf8');
        child.stderr.on('data', (text) => {
            this.#lastErrors = (this.#lastErrors + text).slice(-2000);
        });
        child.stdio[3].on('error', () => {}); // The exit says more than a broken pipe.
        child.stdio[4].on('error', () => {});
        child.stdio[4].on('data', (chunk) => this.#onData(chunk));
    }

    #onData(chunk) {
        let start = 0;
        for (let end = chunk.indexOf(0); end >= 0; end = chunk.indexOf(0, start)) {
            this.#input.push(chunk.subarray(start, end));
            this.#onMessage(JSON.parse(Buffer.concat(this.#input).toString()));
            this.#input = [];
            start = end + 1;
        }
        if (start < chunk.length) {
            this.#input.push(chunk.subarray(start));
        }
    }

    #onMessage(message) {
        if (message.id === undefined) {
            this.emit('event', message.method, message.params, message.sessionId);
            return;
        }
        const { method, resolve, reject } = this.#waiting.get(message.id);
        this.#waiting.delete(message.id);
        if (message.error) {
            reject(new Error(`${method}: ${message.error.message}`));
        } else {
            resolve(message.result);
        }
    }

    send(method, params = {}, sessionId = undefined) {
        return new Promise((resolve, reject) => {
            if (!this.#process) {
                reject(new Error(`Chromium has ended: ${this.#lastErrors.trim()}`));
                return;
            }
            const id = ++this.#lastId;
            this.#waiting.set(id, { method, resolve, reject });
            this.#process.stdio[3].write(JSON.stringify({ id, method, params, sessionId }) + '\0');
        });
    }

    kill() {
        if (this.#process?.pid) {
            try {
                process.kill(-this.#process.pid, 'SIGKILL');
            } catch (error) {
                if (error.code !== 'ESRCH') {
                    throw error;
                }
            }
        }
    }

    async stop() {
        this.kill();
        await this.#exited;
        // Children that are just ending may still write.
        await rm(this.#profile, { recursive: true, force: true, maxRetries: 20, retryDelay: 50 });
    }
}
