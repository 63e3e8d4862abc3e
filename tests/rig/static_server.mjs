// Serves the files of one folder to this machine, on a free port.
import { once } from 'node:events';
import { readFile } from 'node:fs/promises';
import { createServer } from 'node:http';
import { extname, join, normalize } from 'node:path';

const ContentTypes = {
    '.css': 'text/css', '.html': 'text/html', '.js': 'text/javascript', '.json': 'application/json',
    '.mjs': 'text/javascript', '.png': 'image/png', '.svg': 'image/svg+xml',
};

// { port, stop() }
export async function serveFolder(folder) {
    const server = createServer(async (request, response) => {
        try {
            // Normalizing an absolute path removes every ".." that would lead out of the folder.
            const path = normalize(decodeURIComponent(new URL(request.url, 'http://localhost').pathname));
            const content = await readFile(join(folder, path));
            const type = ContentTypes[extname(path)] ?? 'application/octet-stream';
            response.writeHead(200, { 'Content-Type': `${type}; charset=utf-8`, 'Cache-Control': 'no-store' });
            response.end(content);
        } catch {
            response.writeHead(404, { 'Content-Type': 'text/plain' });
            response.end('There is no such file.\n');
        }
    });
    server.listen(0, '127.0.0.1');
    await once(server, 'listening');
    return {
        port: server.address().port,
        async stop() {
            server.closeAllConnections();
            server.close();
            await once(server, 'close');
        },
    };
}
