// The examples in a document.
import { readFile } from 'node:fs/promises';
import { join } from 'node:path';

import { SourceFolder } from '../rig/prefix.mjs';

// The text of each code block of a language.
export async function codeBlocks(document, language) {
    const text = await readFile(join(SourceFolder, document), 'utf8');
    return [...text.matchAll(/^```(\w+)\n(.*?)^```$/gms)].filter(([, name]) => name === language)
        .map(([, , code]) => code);
}
