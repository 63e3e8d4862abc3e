// The options of `./dev run`. As a program it checks them, before anything that takes long: 0, or usage and 2.
import { join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';

import { SourceFolder } from './prefix.mjs';

const Usage = 'usage: ./dev run [--out DIR] [--seconds N] [--camera] [--show] [-- RECEIVER ARGUMENTS]';
const MaxSeconds = 2 ** 31 / 1000; // what a timer takes

// { out, seconds, camera, show, receiverArguments }; seconds and receiverArguments are undefined when not given.
export function parseOptions(words) {
    const options = { out: join(SourceFolder, 'build/run'), camera: false, show: false };
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
            options.seconds = Number(text);
            if (!/^\d+(\.\d+)?$/.test(text) || options.seconds <= 0 || options.seconds > MaxSeconds) {
                throw new Error(`--seconds takes a number above 0, not "${text}"`);
            }
        } else if (['--camera', '--show'].includes(word) && attached === undefined) {
            options[word.slice(2)] = true;
        } else {
            throw new Error(`unknown option "${word}"`);
        }
    }
    return options;
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
    try {
        parseOptions(process.argv.slice(2));
    } catch (error) {
        process.stderr.write(`./dev run: ${error.message}\n${Usage}\n`);
        process.exitCode = 2;
    }
}
