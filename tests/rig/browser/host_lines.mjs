// The text protocol with the runtime DLL: one line per event, tab-separated fields, \\ \t \n \r escaped.

const escapes = { '\\': '\\\\', '\t': '\\t', '\n': '\\n', '\r': '\\r' };
const characters = { t: '\t', n: '\n', r: '\r' };

export function encodeLine(fields) {
    return fields.map((field) => String(field).replace(/[\\\t\n\r]/g, (c) => escapes[c])).join('\t') + '\n';
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
