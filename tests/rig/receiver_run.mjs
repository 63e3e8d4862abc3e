// Runs the real receiver: its browser, a display, a Wine prefix of its own, and the hands and eyes of a person in front
// of it. `./dev run` and the end-to-end tests are built on this.
import { existsSync } from 'node:fs';
import * as fs from 'node:fs/promises';
import { basename, join, resolve } from 'node:path';

import { startBrowserServer } from './browser/browser_server.mjs';
import { startDisplay, takePicture } from './display.mjs';
import { Driver } from './driver_link.mjs';
import { createPrefix, SourceFolder } from './prefix.mjs';
import { end, until, within } from './processes.mjs';
import { startEncoderServer } from './recorder/encoder_server.mjs';

// The build that holds the Windows programs. The tests of another build folder say which.
export const BuildFolder = resolve(process.env.VISTEL_WINDOWS_BUILD ?? join(SourceFolder, 'build/windows'));

const WindowLimitMs = 30000;
const EndLimitMs = 60000;
const ReceiverPath = 'C:\\Program Files\\Vistel\\vistel-receiver.exe';
const CameraPath = 'C:\\rig\\camera_probe.exe';
const UsageEvent = 'Global\\VistelVirtualCameraSample-v1'; // what the virtual camera signals
const BoxClass = '#32770'; // every dialog's
const MainWindowClass = 'VistelReceiverWindow';
const ButtonOk = 1;

// Starts the receiver and resolves when its process runs. Everything is ended again when that fails. Options:
//   out               the sandbox directory; without one it is a temporary one, removed by stop()
//   commandLine       what follows the program's name, unchanged; or
//   args              words, joined by single blanks
//   runtime           false: no WebView2 runtime is installed
//   faults            failures of the stand-ins' calls, such as "Navigate=80004005" or "WriteSample:3"
//   fileLimitBytes    the size at which a recording finds the disk full
//   screencast        true: the window shows the page
//   pageScript        a script that every page runs before its own
//   show              true: on this person's display instead of a hidden one
//   displaySize       { width, height } of the hidden display
//   keepsToModes      true: the receiver cannot write what the mode of a file or folder forbids, even for root
//   environment       variables of the receiver: { name: text, or null for none }
//   registry          values under HKEY_CURRENT_USER: { key: { name: text or number } }
//   hostResolverRules, extraChromiumFlags   for the browser
//   receiverExe       another program in the receiver's place
//   prepare           async (run) => Windows path of the program to start; called when everything else runs
//   log               receives the rig's messages
export async function startReceiver(options = {}) {
    const run = new ReceiverRun(options);
    try {
        await run.start();
        return run;
    } catch (error) {
        await run.stop();
        throw error;
    }
}

class ReceiverRun {
    // The exit code of the program, 32 bits; undefined while it runs. `exited` is the promise of it.
    exitCode;
    exited;
    // The sandbox directory, and the parts of the rig for callers that need more than is offered here.
    out;
    prefix;
    browser;
    encoder; // its `recordings` list what was recorded
    display;
    driver;
    receiverPath; // the program, as Windows names it
    #options;
    #program;
    #cameras = new Set();
    #stopped;

    constructor(options) {
        this.#options = options;
    }

    async start() {
        const options = this.#options;
        const programs = locatePrograms(options);
        this.prefix = await createPrefix({
            sandbox: options.out, managed: options.show, registry: options.registry,
            runtimeLibrary: options.runtime === false ? undefined : programs.runtime,
            recorderLibrary: programs.recorder,
        });
        this.out = this.prefix.sandbox;
        this.browser = await startBrowserServer({
            shmDir: this.prefix.sharedMemory, userDataRoot: this.prefix.browserFolder, screencast: options.screencast,
            hostResolverRules: options.hostResolverRules, extraChromiumFlags: options.extraChromiumFlags,
            driveC: this.prefix.driveC, pageScript: options.pageScript, log: (text) => options.log?.(text),
        });
        this.encoder = await startEncoderServer({
            fileLimitBytes: options.fileLimitBytes, log: (text) => options.log?.(text),
        });
        this.display = options.show ? personsDisplay() : await startDisplay(options.displaySize);
        this.driver = new Driver(this.prefix.start(
            await this.prefix.addFile(programs.driver, 'C:\\rig\\rig_driver.exe'), [], this.display.name, {
                keepsToModes: options.keepsToModes,
                environment: {
                    ...this.browser.environment(), ...this.encoder.environment(), RIG_FAULTS: options.faults ?? '',
                },
            }));
        await this.prefix.addFile(programs.camera, CameraPath);
        await this.prefix.addFile(programs.receiver, ReceiverPath);
        for (const [name, value] of Object.entries(options.environment ?? {})) {
            await (value === null ? this.driver.ask('unset', name) : this.driver.ask('set', name, value));
        }
        this.receiverPath = await options.prepare?.(this) ?? ReceiverPath;
        await this.startProgram(options.commandLine ?? (options.args ?? []).join(' '));
    }

    // Starts the program; once more when it has ended.
    async startProgram(commandLine) {
        this.exitCode = undefined;
        this.#program = await this.startAnother(commandLine);
        this.exited = this.#program.exited.then((code) => {
            this.exitCode = code;
            return code;
        });
    }

    // One more receiver in the same sandbox directory: { program, process, exited }.
    startAnother(commandLine = '') {
        return this.driver.startProgram(this.receiverPath, commandLine);
    }

    // The program's id under Linux.
    async linuxProcessId() {
        return (await this.prefix.processIds(basename(this.prefix.unixPath(this.receiverPath))))[0];
    }

    // What the program holds at this moment, seen from outside. Memory counts once it has been written to.
    async held() {
        const id = await this.linuxProcessId();
        const read = (name) => fs.readFile(`/proc/${id}/${name}`, 'utf8');
        const [memory, status, maps] = await Promise.all(['smaps_rollup', 'status', 'maps'].map(read));
        const number = (text, name) => Number(new RegExp(`^${name}:\\s+(\\d+)`, 'm').exec(text)[1]);
        const windows = await this.#windows();
        const children = await Promise.all(windows.map(({ window }) => this.driver.children(window)));
        return {
            privateKb: number(memory, 'Private_Dirty') + number(memory, 'Swap'),
            handles: (await this.driver.ask('handles', this.#program.process)).handles,
            windows: windows.length + children.flat().length,
            threads: number(status, 'Threads'),
            files: (await fs.readdir(`/proc/${id}/fd`)).length,
            mappings: maps.split('\n').length - 1,
        };
    }

    // The log, line by line; empty while there is none.
    async logLines() {
        try {
            const text = await fs.readFile(join(this.out, 'Temp/vistel-receiver.log'), 'latin1');
            return text.split('\r\n').slice(0, -1);
        } catch (error) {
            if (error.code === 'ENOENT') {
                return [];
            }
            throw error;
        }
    }

    // Waits for a line of the log that holds a text or matches an expression, and returns it.
    async waitForLog(wanted, limitMs = WindowLimitMs) {
        let lines = [];
        const find = async () => {
            lines = await this.logLines();
            return lines.find((line) => (wanted instanceof RegExp ? wanted.test(line) : line.includes(wanted)));
        };
        const report = () => `log line ${wanted}; the log:\n${lines.join('\n')}\n`;
        return until(limitMs, report, async () => {
            const ended = this.exitCode !== undefined;
            const line = await find();
            if (!line && ended) {
                throw new Error(`the receiver ended with ${this.exitCode} before it logged ${report()}`);
            }
            return line;
        });
    }

    waitForExit(limitMs = EndLimitMs) {
        return within(limitMs, 'end of the receiver', this.exited);
    }

    // The receiver's main window, once it is visible: see DescribeTopLevelWindows for its fields.
    async mainWindow(limitMs = WindowLimitMs) {
        return this.#waitForWindow('main window', isMainWindow, limitMs);
    }

    // The message box that the receiver shows, once it is there: { window, caption, text }.
    async readBox(limitMs = WindowLimitMs) {
        const box = await this.#waitForWindow('message box', isBox, limitMs);
        const texts = (await this.driver.children(box.window)).filter((child) => child.class === 'Static');
        return { window: box.window, caption: box.text, text: texts.map((child) => child.text).join('') };
    }

    // Presses OK and waits until the box is gone.
    async dismissBox(limitMs = WindowLimitMs) {
        const { window } = await this.#waitForWindow('message box', isBox, limitMs);
        await this.driver.ask('press', window, ButtonOk);
        await until(limitMs, 'end of the message box', async () =>
            this.exitCode !== undefined || !(await this.#windows()).some((other) => other.window === window));
    }

    // Ends the receiver as a person would: closes the window, first the boxes in front of it, and waits for the end.
    // The exit code.
    async closeWindow(limitMs = EndLimitMs) {
        const asked = new Set();
        await until(limitMs, 'end of the receiver', async () => {
            if (this.exitCode === undefined) {
                const usable = (await this.#windows()).filter((window) => window.visible && window.enabled);
                const next = usable.find(isBox) ?? usable.find(isMainWindow);
                if (next && !asked.has(next.window)) {
                    asked.add(next.window);
                    await (isBox(next) ? this.driver.ask('press', next.window, ButtonOk)
                                       : this.driver.ask('system', next.window, 'close'));
                }
            }
            return this.exitCode !== undefined;
        });
        return this.exitCode;
    }

    // Moves and sizes the main window; minimizes, maximizes, restores it.
    async placeWindow({ left, top, width, height }) {
        await this.driver.ask('place', (await this.mainWindow()).window, left, top, width, height);
    }

    async systemCommand(command) {
        await this.driver.ask('system', (await this.mainWindow()).window, command);
    }

    // A picture of what a person sees of the receiver, its frame and its boxes included. False when there is nothing.
    async windowPicture(file) {
        const seen = (await this.#windows()).filter((window) => window.visible && window.outer.width > 0);
        if (seen.length === 0) {
            return false;
        }
        const left = Math.min(...seen.map(({ outer }) => outer.left));
        const top = Math.min(...seen.map(({ outer }) => outer.top));
        const right = Math.max(...seen.map(({ outer }) => outer.left + outer.width));
        const bottom = Math.max(...seen.map(({ outer }) => outer.top + outer.height));
        await takePicture(this.display, { left, top, width: right - left, height: bottom - top }, file);
        return true;
    }

    // Starts a virtual camera that reads the frame file, which the receiver notices; finish() ends its reading and
    // resolves to its report.
    //   seconds   how long it reads; without it until finish(); 0: it only takes the newest frame, unnoticed
    //   picture   the file for the newest frame, or with
    //   watch     for the window that shows it and its figures
    camera({ seconds, picture, watch } = {}) {
        const name = `camera-${this.#cameras.size}`;
        const report = `C:\\rig\\${name}.json`;
        const image = `C:\\rig\\${name}.png`;
        const child = this.prefix.start(CameraPath, [
            ...(seconds === undefined ? [] : ['--seconds', String(seconds)]), '--signal', UsageEvent,
            '--report', report, ...(picture ? ['--picture', image] : []), ...(watch ? ['--watch'] : []),
        ], this.display.name);
        this.#cameras.add(child);
        child.stdin.on('error', () => {});
        child.stdout.resume();
        return {
            finish: async () => {
                if (seconds === undefined) {
                    child.stdin.end();
                }
                const limitMs = EndLimitMs + 1000 * (seconds ?? 0);
                const code = await within(limitMs, 'end of the camera', child.exited);
                if (code !== 0) {
                    throw new Error(`the camera ended with ${code}`);
                }
                if (picture) {
                    await fs.copyFile(this.prefix.unixPath(image), picture);
                }
                return JSON.parse(await fs.readFile(this.prefix.unixPath(report), 'utf8'));
            },
        };
    }

    // Ends everything that still runs and clears up; safe to call at any time and twice.
    stop() {
        this.#stopped ??= this.#stop();
        return this.#stopped;
    }

    async #stop() {
        const failures = [];
        const attempt = async (step) => {
            try {
                await step();
            } catch (error) {
                failures.push(error);
            }
        };
        await attempt(() => this.driver?.stop());
        await attempt(() => this.browser?.stop());
        await attempt(() => this.encoder?.stop());
        for (const camera of this.#cameras) {
            await attempt(() => end(camera));
        }
        await attempt(() => this.prefix?.remove());
        await attempt(() => this.display?.stop());
        if (failures.length > 0) {
            throw failures[0];
        }
    }

    async #windows() {
        const windows = await this.driver.windows();
        return windows.filter((window) => window.process === this.#program.process);
    }

    async #waitForWindow(what, wanted, limitMs) {
        return until(limitMs, what, async () => {
            const ended = this.exitCode !== undefined;
            const found = (await this.#windows()).find((window) => window.visible && wanted(window));
            if (!found && ended) {
                throw new Error(`the receiver ended with ${this.exitCode} before there was a ${what}`);
            }
            return found;
        });
    }
}

function isMainWindow(window) {
    return window.class === MainWindowClass;
}

function isBox(window) {
    return window.class === BoxClass;
}

function personsDisplay() {
    if (!process.env.DISPLAY) {
        throw new Error('there is no display to show the window on: DISPLAY is not set');
    }
    return { name: process.env.DISPLAY, stop: async () => {} };
}

function locatePrograms({ receiverExe }) {
    const programs = {
        receiver: receiverExe ?? join(BuildFolder, 'vistel-receiver.exe'),
        runtime: join(BuildFolder, 'tests/rig/runtime/EmbeddedBrowserWebView.dll'),
        recorder: join(BuildFolder, 'tests/mfreadwrite.dll'),
        driver: join(BuildFolder, 'tests/rig/driver/rig_driver.exe'),
        camera: join(BuildFolder, 'tools/camera_probe/camera_probe.exe'),
    };
    for (const program of Object.values(programs)) {
        if (!existsSync(program)) {
            throw new Error(`${program} is missing: run ./dev build`);
        }
    }
    return programs;
}
