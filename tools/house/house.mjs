// The house as its #include lines show it: what builds on what. `house.mjs --check` says what breaks the rules below;
// `house.mjs` alone prints the picture of docs/architecture.md for Graphviz.
import { readdirSync, readFileSync } from 'node:fs';
import { dirname, extname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';

const Root = resolve(dirname(fileURLToPath(import.meta.url)), '../..');
const Product = ['app', 'browser', 'capture', 'frames', 'page', 'platform', 'resources'];
const Hub = 'app/receiver_app.h';
const Codes = 'platform/hresult.h'; // supplies its few names where there is no Windows
const Generated = 'page/receiver_page.h';
const SystemHeader = /^(windows|WebView2|objbase|sddl|shlobj\w*|knownfolders|wincodec|unknwn|timeapi|mf\w+)\.h$/;

class House {
    // Path -> the paths in the repository, and the system's headers, that it includes.
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

    // A header and the source file of its name are one part, but for the one object, which does many things.
    parts() {
        const parts = new Map();
        for (const path of this.includes.keys()) {
            const part = path === Hub ? path : path.replace(/\.\w+$/, '');
            parts.set(part, [...(parts.get(part) ?? []), path]);
        }
        return parts;
    }

    // Everything that a file includes, directly or not.
    reached(path, seen = new Set()) {
        for (const next of this.includes.get(path) ?? []) {
            if (!seen.has(next)) {
                seen.add(next);
                this.reached(next, seen);
            }
        }
        return seen;
    }

    isPure(path) {
        return [path, ...this.reached(path)].every((file) => file === Codes ||
            !(this.systemIncludes.get(file) ?? []).some((name) => SystemHeader.test(name)));
    }

    // The storey that a file belongs to.
    storey(path) {
        if (path.startsWith('platform/')) {
            return 'platform';
        }
        if (path === Hub) {
            return 'hub';
        }
        if (this.includes.get(path).includes(Hub)) {
            return 'operations';
        }
        return this.isPure(path) ? 'core' : 'owners';
    }

    problems() {
        const problems = [];
        for (const [path, included] of this.includes) {
            if (this.reached(path).has(path)) {
                problems.push(`${path} includes itself around a corner`);
            }
            for (const name of included) {
                if (name !== Generated && !this.includes.has(name)) {
                    problems.push(`${path} includes ${name}, which is not in the product's folders`);
                }
                if (!name.endsWith('.h')) {
                    problems.push(`${path} includes ${name}, which is no header`);
                }
            }
            if (path.startsWith('platform/') && included.some((name) => !name.startsWith('platform/'))) {
                problems.push(`${path} is of the ground floor and includes what stands on it`);
            }
            if (path.endsWith('.h') && path !== Hub && !path.startsWith('browser/') && included.includes(Hub)) {
                problems.push(`${path} hands ${Hub} on: only .cpp files of operations and browser callbacks include it`);
            }
        }
        return problems;
    }

    // Storeys from the top, and in each the parts by folder.
    picture() {
        const titles = {
            operations: 'entry point, and what ReceiverApp does', hub: 'the one object', owners: 'owners of files, mappings, media',
            core: 'pure: no Windows', platform: 'ground floor',
        };
        const nodes = new Map(); // "storey folder" -> { parts, uses: Set of such keys }
        const storeys = Object.keys(titles);
        const keyOf = (path) => `${this.storey(path)} ${path.split('/')[0]}`;
        for (const [part, paths] of this.parts()) {
            const [key] = paths.map(keyOf).sort((a, b) =>
                storeys.indexOf(a.split(' ')[0]) - storeys.indexOf(b.split(' ')[0]));
            const node = nodes.get(key) ?? { parts: [], uses: new Set() };
            nodes.set(key, node);
            node.parts.push(part.split('/').slice(1).join('/'));
            paths.flatMap((path) => this.includes.get(path)).filter((name) => this.includes.has(name))
                .forEach((name) => node.uses.add(keyOf(name)));
        }
        const quote = (text) => JSON.stringify(text);
        const lines = [
            'digraph house {', 'rankdir=TB; ranksep=0.5; nodesep=0.3; fontname="DejaVu Sans"; fontsize=11;',
            'node [shape=box style="rounded,filled" fillcolor="#eef4fb" color="#4a6a8a" fontname="DejaVu Sans" fontsize=10];',
            'edge [color="#8aa0b8" arrowsize=0.6];',
        ];
        for (const [storey, title] of Object.entries(titles)) {
            lines.push(`subgraph cluster_${storey} { label=${quote(title)}; style=rounded; color="#c8d2dc"; rank=same;`);
            for (const [key, node] of nodes) {
                const [nodeStorey, folder] = key.split(' ');
                if (nodeStorey === storey) {
                    lines.push(`${quote(key)} [label=${quote(`${folder}/\n${node.parts.sort().join('\n')}`)}];`);
                }
            }
            lines.push('}');
        }
        for (const [key, node] of nodes) {
            [...node.uses].filter((used) => used !== key).forEach((used) =>
                lines.push(`${quote(key)} -> ${quote(used)};`));
        }
        return [...lines, '}'].join('\n');
    }
}

const house = new House();
if (process.argv[2] === '--check') {
    const problems = house.problems();
    problems.forEach((problem) => console.error(problem));
    process.exitCode = problems.length > 0 ? 1 : 0;
} else {
    console.log(house.picture());
}
