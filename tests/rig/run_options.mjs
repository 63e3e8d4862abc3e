// The options of `./dev run`. As a program it checks them, before anything that takes long: 0, or usage and 2.
import { join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';

import { SourceFolder } from './prefix.mjs';

const Usage = 'usage: ./dev run [--out DIR] [--seconds N] [--camera [START:SECONDS]] [--minimize START:SECONDS]' +
    ' [--application] [--show] [--page QUERY | -- RECEIVER ARGUMENTS]';
const MaxSeconds = (2 ** 31 - 1) / 1000; // what a timer takes

// { out, seconds, camera, minimize, application, show, pageQuery, receiverArguments }; all but out and show are
// undefined when not given. The camera is { startSeconds, seconds }, its seconds undefined when it stays to the end.
// `minimize` is the same, always with seconds.
export function parseOptions(words) {
    const options = { out: join(SourceFolder, 'build/run'), show: false };
    const rest = [...words];
    while (rest.length > 0) {
        const [, word, attached] = /^(--[^=]+)(?:=(.*))?$/s.exec(rest[0]) ?? [undefined, rest[0]];
        rest.shift();
        const value = () => {
            const text = attached ?? rest.shift();
            if (!text) {
                throw new Error(`${word} needs a value`);
            }
            return text;
        };
        if (word === '--') {
            options.receiverArguments = rest.splice(0);
        } else if (word === '--out') {
            options.out = resolve(value());
        } else if (word === '--seconds') {
            const text = value();
            options.seconds = parseSeconds(text);
            if (!(options.seconds > 0)) {
                throw new Error(`--seconds takes a number above 0, not "${text}"`);
            }
        } else if (word === '--camera') {
            const isBare = attached === undefined && (rest[0] ?? '--').startsWith('--');
            options.camera = isBare ? { startSeconds: 0 } : parsePeriod(word, value());
        } else if (word === '--minimize') {
            options.minimize = parsePeriod(word, value());
        } else if (word === '--page') {
            options.pageQuery = value().replace(/^\?/, '');
        } else if (word === '--application' && attached === undefined) {
            options.application = true;
        } else if (word === '--show' && attached === undefined) {
            options.show = true;
        } else if (['--embedded', '--url'].includes(word)) {
            throw new Error(`"${word}" is for the receiver: put it after --`);
        } else {
            throw new Error(`unknown option "${word}"`);
        }
    }
    if (options.pageQuery !== undefined && options.receiverArguments) {
        throw new Error('--page is for the sample page, in whose place the receiver arguments come');
    }
    return options;
}

// Undefined for a text that is no decimal number, and for more than a timer takes.
function parseSeconds(text) {
    const seconds = /^\d+(\.\d+)?$/.test(text) ? Number(text) : Infinity;
    return seconds <= MaxSeconds ? seconds : undefined;
}

function parsePeriod(option, text) {
    const [startSeconds, seconds, ...more] = text.split(':').map(parseSeconds);
    if (startSeconds === undefined || !(seconds > 0) || more.length > 0) {
        throw new Error(`${option} takes START:SECONDS, two numbers, the second above 0, not "${text}"`);
    }
    return { startSeconds, seconds };
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
    try {
        parseOptions(process.argv.slice(2));
    } catch (error) {
        process.stderr.write(`./dev run: ${error.message}\n${Usage}\n`);
        process.exitCode = 2;
    }
}
