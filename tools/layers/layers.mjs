// The layers of the product, taken from its #include lines. `layers.mjs --check` prints every include that breaks the
// layering rules; `layers.mjs` alone prints the diagram of docs/architecture.md for Graphviz.
import { readdirSync, readFileSync } from 'node:fs';
import { dirname, extname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';

const Root = resolve(dirname(fileURLToPath(import.meta.url)), '../..');
const Product = ['app', 'browser', 'capture', 'frames', 'page', 'platform', 'resources'];
const ApplicationHeader = 'app/receiver_app.h';
const ResultCodes = 'platform/hresult.h'; // includes <windows.h> on Windows alone, so core files may include it
const Generated = 'page/receiver_page.h';
const SystemHeader = /^(windows|WebView2|objbase|sddl|shlobj\w*|knownfolders|wincodec|unknwn|timeapi|mf\w+)\.h$/;

class Layers {
    // For each file: the project files and the system headers that it includes.
    includes = new Map();
    systemIncludes = new Map();

    constructor() {
        for (const folder of Product) {
            for (const entry of readdirSync(join(Root, folder), { recursive: true })) {
                if (['.cpp', '.h'].includes(extname(entry)) && !entry.includes('WebView2.h')) {
                    this.#read(`${folder}/${entry}`);
                }
            }
        }
    }

    #read(path) {
        const text = readFileSync(join(Root, path), 'utf8');
        const all = (expression) => [...text.matchAll(expression)].map(([, name]) => name);
        this.includes.set(path, all(/^#include "(.+)"/gm));
        this.systemIncludes.set(path, all(/^#include <(.+)>/gm));
    }

    // A header and the source file of the same name form one module. receiver_app.h is a module of its own: many files
    // implement its operations.
    modules() {
        const modules = new Map();
        for (const path of this.includes.keys()) {
            const module = path === ApplicationHeader ? path : path.replace(/\.\w+$/, '');
            modules.set(module, [...(modules.get(module) ?? []), path]);
        }
        return modules;
    }

    // Everything that a file includes, directly or indirectly.
    allIncludes(path, seen = new Set()) {
        for (const next of this.includes.get(path) ?? []) {
            if (!seen.has(next)) {
                seen.add(next);
                this.allIncludes(next, seen);
            }
        }
        return seen;
    }

    isCore(path) {
        return [path, ...this.allIncludes(path)].every((file) => file === ResultCodes ||
            !(this.systemIncludes.get(file) ?? []).some((name) => SystemHeader.test(name)));
    }

    layer(path) {
        if (path.startsWith('platform/')) {
            return 'platform';
        }
        if (path === ApplicationHeader) {
            return 'application';
        }
        if (this.includes.get(path).includes(ApplicationHeader)) {
            return 'operations';
        }
        return this.isCore(path) ? 'core' : 'owners';
    }

    problems() {
        const problems = [];
        for (const [path, included] of this.includes) {
            if (this.allIncludes(path).has(path)) {
                problems.push(`${path} includes itself through other files`);
            }
            for (const name of included) {
                if (name !== Generated && !this.includes.has(name)) {
                    problems.push(`${path} includes ${name}, which is not in the product's folders`);
                }
                if (!name.endsWith('.h')) {
                    problems.push(`${path} includes ${name}, which is not a header`);
                }
            }
            if (path.startsWith('platform/') && included.some((name) => !name.startsWith('platform/'))) {
                problems.push(`${path} belongs to the platform layer and includes a file outside platform/`);
            }
            if (path.endsWith('.h') && included.includes(ApplicationHeader)) {
                problems.push(`${path} is a header and includes ${ApplicationHeader}`);
            }
        }
        return problems;
    }

    // The layers from top to bottom; in each one box per folder with its modules.
    diagram() {
        const titles = {
            operations: 'entry point and operations of ReceiverApp', application: 'the application object',
            owners: 'owners of files, mappings and media', core: 'core: no Windows headers', platform: 'platform',
        };
        const boxes = new Map(); // "layer folder" -> { modules, uses: Set of such keys }
        const layers = Object.keys(titles);
        const keyOf = (path) => `${this.layer(path)} ${path.split('/')[0]}`;
        for (const [module, paths] of this.modules()) {
            const [key] = paths.map(keyOf).sort((a, b) =>
                layers.indexOf(a.split(' ')[0]) - layers.indexOf(b.split(' ')[0]));
            const box = boxes.get(key) ?? { modules: [], uses: new Set() };
            boxes.set(key, box);
            box.modules.push(module.split('/').slice(1).join('/'));
            paths.flatMap((path) => this.includes.get(path)).filter((name) => this.includes.has(name))
                .forEach((name) => box.uses.add(keyOf(name)));
        }
        const quote = (text) => JSON.stringify(text);
        const lines = [
            'digraph layers {', 'rankdir=TB; ranksep=0.5; nodesep=0.3; fontname="DejaVu Sans"; fontsize=11;',
            'node [shape=box style="rounded,filled" fillcolor="#eef4fb" color="#4a6a8a"];',
            'node [fontname="DejaVu Sans" fontsize=10];',
            'edge [color="#8aa0b8" arrowsize=0.6];',
        ];
        for (const [layer, title] of Object.entries(titles)) {
            lines.push(`subgraph cluster_${layer} { label=${quote(title)}; style=rounded; color="#c8d2dc"; rank=same;`);
            for (const [key, box] of boxes) {
                const [boxLayer, folder] = key.split(' ');
                if (boxLayer === layer) {
                    lines.push(`${quote(key)} [label=${quote(`${folder}/\n${box.modules.sort().join('\n')}`)}];`);
                }
            }
            lines.push('}');
        }
        for (const [key, box] of boxes) {
            [...box.uses].filter((used) => used !== key).forEach((used) =>
                lines.push(`${quote(key)} -> ${quote(used)};`));
        }
        return [...lines, '}'].join('\n');
    }
}

const layers = new Layers();
if (process.argv[2] === '--check') {
    const problems = layers.problems();
    problems.forEach((problem) => console.error(problem));
    process.exitCode = problems.length > 0 ? 1 : 0;
} else {
    console.log(layers.diagram());
}
