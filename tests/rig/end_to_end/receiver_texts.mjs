// What the receiver says: its log, compared line by line.
import assert from 'node:assert/strict';

// The log without the times of its lines.
export async function logTexts(run) {
    const [header, ...lines] = await run.logLines();
    return [header, ...lines.map(textOf)];
}

function textOf(line) {
    const [, text] = /^(?:[01]\d|2[0-3]):[0-5]\d:[0-5]\d {2}(.*)$/.exec(line) ?? [];
    assert.notEqual(text, undefined, `no line of a log: ${line}`);
    return text;
}

// Checks that the expected texts occur in this order. An expected text is a string or a regular expression.
export function assertInOrder(texts, wanted) {
    let next = 0;
    for (const text of texts) {
        const want = wanted[next];
        if (next < wanted.length && (want instanceof RegExp ? want.test(text) : text === want)) {
            ++next;
        }
    }
    assert.equal(next, wanted.length, `missing at its place: ${wanted[next]}\nin\n${texts.join('\n')}`);
}
