// The text protocol with the runtime DLL: one line per event, tab-separated fields, \\ \t \n \r escaped. To the DLL
// half a surrogate pair goes as \u and four digits, for a page may post that and UTF-8 has nothing for it.

const escapes = { '\\': '\\\\', '\t': '\\t', '\n': '\\n', '\r': '\\r' };
const characters = { t: '\t', n: '\n', r: '\r' };

export function encodeLine(fields) {
    return fields.map((field) => String(field).replace(/[\\\t\n\r]|\p{Surrogate}/gu, escapeOf)).join('\t') + '\n';
}

function escapeOf(character) {
    return escapes[character] ?? `\\u${character.charCodeAt(0).toString(16)}`;
}

export function decodeLine(line) {
    return line.split('\t').map((field) => field.replace(/\\(.)/g, (_, c) => characters[c] ?? c));
}

// Calls `onFields` with the decoded fields of each line that arrives on the socket.
export function readLines(socket, onFields) {
    let pending = '';
    socket.setEncoding('utf8');
    socket.on('data', (text) => {
        const lines = (pending + text).split('\n');
        pending = lines.pop();
        for (const line of lines) {
            onFields(decodeLine(line));
        }
    });
}
