// Which page the command line selects, and what is logged for pages that cannot be loaded.
import assert from 'node:assert/strict';
import { createHash, X509Certificate } from 'node:crypto';
import { once } from 'node:events';
import { mkdtemp, readFile, rm } from 'node:fs/promises';
import { createServer } from 'node:https';
import { createServer as createTcpServer } from 'node:net';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { test } from 'node:test';

import { run as runProgram } from '../processes.mjs';
import { startReceiver } from '../receiver_run.mjs';
import { logTexts } from './receiver_texts.mjs';
import { serveSlotPage } from './slot_page_run.mjs';

const HostedHost = 'receiver.vistel.example';

// Runs the receiver until its navigation has ended and closes it; the log after the controller's line.
async function navigate(t, options, whileShown = () => {}) {
    const run = await startReceiver(options);
    t.after(() => run.stop());
    await run.waitForLog('Navigation completed: ');
    await whileShown(run);
    assert.equal(await run.closeWindow(), 0);
    const texts = await logTexts(run);
    return texts.slice(texts.indexOf('WebView2 controller callback') + 1);
}

function navigationTexts(address, success, status) {
    return [
        `Receiver URL: ${address}`, 'Receiver page navigation requested',
        `Navigation completed: success=${success}, status=${status}, source=${address}`,
    ];
}

async function unusedPort() {
    const server = createTcpServer().listen(0, '127.0.0.1');
    await once(server, 'listening');
    const { port } = server.address();
    server.close();
    await once(server, 'close');
    return port;
}

test('an address in quotes keeps its query', async (t) => {
    const address = `${await serveSlotPage(t)}?room=1`;
    assert.deepEqual(await navigate(t, { commandLine: `--url="${address}"` }),
                     navigationTexts(`${address}&clientVersion=0.1.3`, 1, 0));
});

test('a server that does not answer is only noted', async (t) => {
    const address = `http://127.0.0.1:${await unusedPort()}/`;
    assert.deepEqual(await navigate(t, { args: [`--url=${address}`] }),
                     navigationTexts(`${address}?clientVersion=0.1.3`, 0, 12));
});

test('a page that is not there is only noted', async (t) => {
    const address = (await serveSlotPage(t)).replace('slot_page', 'missing');
    assert.deepEqual(await navigate(t, { args: [`--url=${address}`] }),
                     navigationTexts(`${address}?clientVersion=0.1.3`, 0, 0));
});

test('an empty address shows the built-in page', async (t) => {
    const texts = await navigate(t, { commandLine: '--url=""' });
    assert.equal(texts[0], 'Receiver page navigation requested');
    assert.ok(texts.includes('Navigation completed: success=1, status=0, source=about:blank'));
    assert.ok(!texts.some((text) => text.startsWith('Receiver URL: ')));
});

// A server for the hosted page's name: { port, keyHash }. The certificate is made here and thrown away.
async function serveHostedPage(t, page) {
    const folder = await mkdtemp(join(tmpdir(), 'hosted-page-'));
    t.after(() => rm(folder, { recursive: true, force: true }));
    const [keyFile, certificateFile] = ['key.pem', 'certificate.pem'].map((name) => join(folder, name));
    await runProgram('openssl', [
        'req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:prime256v1', '-nodes', '-days', '2',
        '-subj', `/CN=${HostedHost}`, '-addext', `subjectAltName=DNS:${HostedHost}`, '-keyout', keyFile,
        '-out', certificateFile,
    ]);
    const [key, cert] = await Promise.all([readFile(keyFile), readFile(certificateFile)]);
    const server = createServer({ key, cert }, (request, response) => {
        response.writeHead(200, { 'Content-Type': 'text/html' });
        response.end(page);
    });
    server.listen(0, '127.0.0.1');
    await once(server, 'listening');
    t.after(async () => {
        server.closeAllConnections();
        server.close();
        await once(server, 'close');
    });
    const publicKey = new X509Certificate(cert).publicKey.export({ type: 'spki', format: 'der' });
    return { port: server.address().port, keyHash: createHash('sha256').update(publicKey).digest('base64') };
}

test('without an address the hosted page is shown', async (t) => {
    const { port, keyHash } = await serveHostedPage(t, '<script>chrome.webview.postMessage("hosted")</script>');
    const texts = await navigate(t, {
        hostResolverRules: `MAP ${HostedHost} 127.0.0.1:${port}`,
        extraChromiumFlags: [`--ignore-certificate-errors-spki-list=${keyHash}`],
    }, (run) => run.waitForLog('Web message: hosted'));
    const [address, requested, completed] = navigationTexts(`https://${HostedHost}/?clientVersion=0.1.3`, 1, 0);
    assert.deepEqual(texts, [address, requested, 'Web message: hosted', completed]);
});
