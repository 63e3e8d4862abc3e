// Makes one HTML file of the sample page, for file:// addresses, where browsers load neither modules nor workers from
// other files: node single_page.mjs ESBUILD OUTPUT
import { execFileSync } from 'node:child_process';
import { readFileSync, writeFileSync } from 'node:fs';
import { fileURLToPath } from 'node:url';

const [, , esbuild, output] = process.argv;
const source = (name) => fileURLToPath(new URL(`../examples/page/${name}`, import.meta.url));

// A module with all that it imports, as a classic script.
function bundle(name) {
    const script = execFileSync(esbuild, [source(name), '--bundle', '--format=iife', '--charset=utf8'],
                                { encoding: 'utf8' });
    if (/<\/script|<!--/i.test(script)) {
        throw new Error(`${name} contains a text that ends a script in an HTML file`);
    }
    return script;
}

function replaceOnce(text, part, replacement) {
    if (text.split(part).length !== 2) {
        throw new Error(`"${part}" is not exactly once in the page`);
    }
    return text.replace(part, () => replacement);
}

let page = readFileSync(source('index.html'), 'utf8');
page = replaceOnce(page, '<link rel="stylesheet" href="sample_page.css">',
                   `<style>\n${readFileSync(source('sample_page.css'), 'utf8')}</style>`);
page = replaceOnce(page, '<script type="module" src="sample_page.mjs"></script>\n', '');
page = replaceOnce(page, '</body>',
                   `<script type="text/plain" id="test-card-worker">\n${bundle('test_card_worker.mjs')}</script>\n` +
                   `<script>\n${bundle('sample_page.mjs')}</script>\n</body>`);
writeFileSync(output, page);
