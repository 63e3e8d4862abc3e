// The npm package of the page kit, as a web developer gets it. Making it checks the types of the kit and the sample
// page, too.
import assert from 'node:assert/strict';
import * as fs from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';

import { compileTypes, makePagePackage } from '../../packaging/page_package.mjs';
import { Quiet } from '../rig/npm_packages.mjs';
import { SourceFolder } from '../rig/prefix.mjs';
import { run } from '../rig/processes.mjs';
import { codeBlocks } from './code_blocks.mjs';

const PageFolder = join(SourceFolder, 'examples/page');
const Protocol = 'docs/page-protocol.md';
const Documents = [Protocol, 'examples/page/README.md'];
const LimitMs = 120000;

let folder;
let tarball;

before(async () => {
    folder = await fs.mkdtemp(join(tmpdir(), 'page-package-test-'));
    tarball = await makePagePackage(folder);
});

after(() => fs.rm(folder, { recursive: true, force: true }));

// Everything that a page can use. A line with "@ts-expect-error" before it must not compile, every other one must.
const Uses = `
import { copyRectangle, errorText, frameMessage, hasHostColors } from "vistel-receiver-page";
import { MediaError, VistelReceiver } from "vistel-receiver-page";
import type { Diagnostics, MediaResult, SlotPicture, WebView } from "vistel-receiver-page";
import { simulator } from "vistel-receiver-page/simulator";

const controller = new AbortController();
const receiver = new VistelReceiver({ signal: controller.signal });
const webview: WebView = chrome.webview;
new VistelReceiver({ webview });
const target: EventTarget = receiver;

receiver.addEventListener("slots", ({ detail }) => { const none: null = detail; });
receiver.addEventListener("diagnostics", ({ detail }) => { const diagnostics: Diagnostics = detail; });
receiver.addEventListener("usage", ({ detail }) => { const active: boolean = detail; }, { once: true });
receiver.addEventListener("frame-error", ({ detail }) => { const text: string = detail.message; });
const onResult = ({ detail }: CustomEvent<MediaResult>) => { const text: string = errorText(detail.error); };
receiver.addEventListener("media-result", onResult);
receiver.removeEventListener("media-result", onResult);
// @ts-expect-error
receiver.addEventListener("used", () => {});
// @ts-expect-error
receiver.addEventListener("usage", ({ detail }) => { const text: string = detail; });
// @ts-expect-error
receiver.addEventListener("diagnostics", ({ detail }) => detail.version);
// @ts-expect-error
receiver.addEventListener("frame-error", onResult);

await receiver.connect({ timeoutMs: 1000 });
// @ts-expect-error
await receiver.connect({ timeout: 1000 });
receiver.setQuality("1080p");
// @ts-expect-error
receiver.setQuality("480p");
receiver.setOrientation("setup");
// @ts-expect-error
receiver.setOrientation("Setup");

const track: MediaStreamTrack = new MediaStream().getVideoTracks()[0]!;
const fed: Promise<void> = receiver.feed(track, { mirror: true, exactColors: false, signal: controller.signal });
// @ts-expect-error
receiver.feed(track, { mirrored: true });
// @ts-expect-error
receiver.feed(new MediaStream());
declare const frame: VideoFrame;
const isPosted: boolean = await receiver.postFrame(frame, { exactColors: !hasHostColors(frame) });
// @ts-expect-error
receiver.postFrame(new ImageData(2, 2));

try {
    const { path }: MediaResult = await receiver.takeSnapshot();
} catch (error) {
    if (error instanceof MediaError) {
        const action: "snapshot" | "recording-started" | "recording-stopped" | "recording-failed" = error.result.action;
    }
}
const { busy, noSlot, failed } = receiver.drops;
const sum: number = busy + noSlot + failed;
// @ts-expect-error
receiver.framesDropped = sum;
const picture: SlotPicture | null = receiver.lastPicture;
if (picture) {
    const text: string = frameMessage(picture);
}
const { x, y, width, height } = copyRectangle(new DOMRectReadOnly(0, 0, 2, 2));
const area: number = (width - x) * (height - y);

chrome.webview.addEventListener("message", ({ data }) => {
    if (data.type === "virtual-camera-usage") {
        const active: boolean = data.active;
    }
    // @ts-expect-error
    data.active;
});
// @ts-expect-error
chrome.webview.postMessage({ type: "ready" });
receiver.close();

// @ts-expect-error
simulator.counts;
const races: number | undefined = simulator?.counts.races;
const reason: string | undefined = simulator?.refusals[0]?.reason;
const pictureBytes: Uint8Array | undefined = simulator?.picture?.bytes;
// @ts-expect-error
simulator?.setCameraInUse("yes");
`;

test('the package has the module, its types and its documents, and always the same bytes', async () => {
    const again = await makePagePackage(join(folder, 'again'));
    assert.deepEqual(await fs.readFile(again), await fs.readFile(tarball));
    const { name, version } = JSON.parse(await fs.readFile(join(PageFolder, 'package.json'), 'utf8'));
    assert.equal(tarball, join(folder, `${name}-${version}.tgz`));
    const unpacked = join(folder, 'unpacked');
    await fs.mkdir(unpacked);
    await run('tar', ['xf', tarball], { cwd: unpacked });
    const modules = ['vistel_receiver', 'receiver_simulator', 'simulator/frame_conversion', 'simulator/message_rules',
                     'simulator/panel', 'simulator/receiver_model', 'simulator/slot_watch'];
    const packed = await fs.readdir(join(unpacked, 'package'), { recursive: true });
    assert.deepEqual(packed.sort(), [
        'README.md', 'package.json', 'page-protocol.md', 'simulator',
        ...modules.flatMap((module) => [`${module}.d.mts`, `${module}.mjs`]),
    ].sort());
    for (const module of modules) {
        assert.deepEqual(await fs.readFile(join(unpacked, `package/${module}.mjs`)),
                         await fs.readFile(join(PageFolder, `${module}.mjs`)), module);
    }
});

test('the lock file names no registry', async () => {
    assert.doesNotMatch(await fs.readFile(join(PageFolder, 'package-lock.json'), 'utf8'), /resolved|:\/\//);
});

test('the examples in the documents compile against the package, and wrong uses of it do not', async () => {
    const project = join(folder, 'project');
    await fs.mkdir(project);
    await fs.writeFile(join(project, 'package.json'), '{}');
    await run('npm', ['install', '--offline', ...Quiet, tarball], { cwd: project, limitMs: LimitMs });
    await fs.writeFile(join(project, 'tsconfig.json'), JSON.stringify({
        compilerOptions: {
            strict: true, noEmit: true, target: 'es2022', module: 'nodenext', lib: ['es2022', 'dom', 'dom.iterable'],
            types: [],
        },
    }));
    await fs.writeFile(join(project, 'chrome.d.ts'),
                       'declare const chrome: { webview: import("vistel-receiver-page").WebView };\n');
    await fs.writeFile(join(project, 'uses.mts'), Uses);

    // Some import the module as a copy beside the page.
    await fs.cp(join(project, 'node_modules/vistel-receiver-page'), project, {
        recursive: true, filter: (path) => !path.endsWith('.json'),
    });
    for (const document of Documents) {
        const scripts = await codeBlocks(document, 'js');
        assert.ok(scripts.length > 0, document);
        for (const [index, script] of scripts.entries()) {
            const name = `${document.replaceAll('/', '_')}_${index + 1}.mts`;
            await fs.writeFile(join(project, name), `${script}export {};\n`);
        }
    }
    const messages = (await codeBlocks(Protocol, 'json')).flatMap((block) => block.trim().split(/\n(?=\{)/));
    assert.ok(messages.length > 0);
    await fs.writeFile(join(project, 'messages.mts'), 'import type { HostMessage } from "vistel-receiver-page";\n' +
        `export const messages: HostMessage[] = [\n${messages.join(',\n')}\n];\n`);
    await compileTypes('--project', project);
});
