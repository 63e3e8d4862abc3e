// The parts of the rig that need neither Wine nor a browser, and the words that ./dev understands.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { request } from 'node:http';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, test } from 'node:test';

import { assertHoldsNoMore } from './end_to_end/receiver_health.mjs';
import { FrameCounter } from './frame_counter.mjs';
import { medianAndP99 } from './percentiles.mjs';
import { SourceFolder } from './prefix.mjs';
import { end, lock, lockHolder, run, start, until, within } from './processes.mjs';
import { parseOptions } from './run_options.mjs';
import { describeSlope, memorySlope } from './soak/slope.mjs';
import { serveFolder } from './static_server.mjs';

const LimitMs = 60000;

const folder = mkdtempSync(join(tmpdir(), 'rig-test-'));
after(() => rmSync(folder, { recursive: true }));

function dev(...words) {
    return spawnSync(join(SourceFolder, 'dev'), words, { encoding: 'utf8' });
}

test('run takes its options in any order and leaves the rest to the receiver', () => {
    const words = ['--camera', '--seconds', '2.5', '--out=/a b', '--show', '--', '--url=x', '--', 'y'];
    assert.deepEqual(parseOptions(words), {
        out: '/a b', seconds: 2.5, camera: { startSeconds: 0 }, show: true, receiverArguments: ['--url=x', '--', 'y'],
    });
    assert.deepEqual(parseOptions([]), { out: join(SourceFolder, 'build/run'), show: false });
    assert.deepEqual(parseOptions(['--']).receiverArguments, []);
    assert.equal(parseOptions(['--application', '--seconds', '1']).application, true);
});

test('run starts and stops the camera at the given times', () => {
    const camera = (...words) => parseOptions(words).camera;
    assert.deepEqual(camera('--camera', '5:6'), { startSeconds: 5, seconds: 6 });
    assert.deepEqual(camera('--camera=0.5:1.25', '--show'), { startSeconds: 0.5, seconds: 1.25 });
    assert.deepEqual(camera('--show', '--camera'), { startSeconds: 0 });
    assert.deepEqual(camera('--camera', '--', 'x'), { startSeconds: 0 });
});

test('run minimizes the window for the given time', () => {
    assert.deepEqual(parseOptions(['--minimize', '5:6']).minimize, { startSeconds: 5, seconds: 6 });
    assert.deepEqual(parseOptions(['--minimize=0:0.5', '--show']).minimize, { startSeconds: 0, seconds: 0.5 });
});

test('run passes the query to the sample page', () => {
    assert.equal(parseOptions(['--page', 'snapshot=5&record=2:10', '--show']).pageQuery, 'snapshot=5&record=2:10');
    assert.equal(parseOptions(['--page=?size=1080p']).pageQuery, 'size=1080p');
    assert.throws(() => parseOptions(['--page', 'size=1080p', '--', '--embedded']), /in whose place/);
});

for (const words of [['--bogus'], ['x'], ['--out'], ['--out='], ['--seconds'], ['--seconds', '0'], ['--seconds', '-1'],
                     ['--seconds', '1e9'], ['--seconds', '9999999'], ['--seconds', 'x'], ['--show=1'], ['--application=1'], ['--camera=1'],
                     ['--camera='], ['--camera', 'x'], ['--camera', '5'], ['--camera', '5:'], ['--camera', ':6'],
                     ['--camera', '5:0'], ['--camera', '-1:6'], ['--camera', '5:6:7'], ['--camera', '5:9999999'],
                     ['--camera', '1e1:6'], ['--minimize'], ['--minimize', '--show'], ['--minimize', '5'],
                     ['--minimize', '5:0'], ['--page'], ['--page=']]) {
    test(`run refuses ${words.join(' ')}`, () => {
        const option = words[0].replace(/=.*/, '');
        assert.throws(() => parseOptions(words), ({ message }) => message.includes(option));
    });
}

test('run refuses a wrong option with its usage and code 2', () => {
    const result = dev('run', '--camera', '5:0');
    assert.equal(result.status, 2);
    assert.match(result.stderr, /^\.\/dev run: --camera takes .+\nusage: \.\/dev run /);
    assert.equal(result.stdout, '');
});

test('dev refuses an unknown command with its usage and code 2', () => {
    const result = dev('biuld');
    assert.equal(result.status, 2);
    assert.match(result.stderr, /^\.\/dev: there is no command "biuld"\nusage: \.\/dev COMMAND /);
    assert.equal(result.stdout, '');
});

test('dev refuses a preset that is not there before it builds anything', () => {
    const result = dev('build', 'linux', 'amiga');
    assert.equal(result.status, 2);
    assert.match(result.stderr, /no preset "amiga"/);
    assert.equal(result.stdout, '');
});

test('a lock is held by one at a time and ends with its holder, however that ends', async () => {
    const path = join(folder, 'lock');
    const script = `import { lock } from '${new URL('processes.mjs', import.meta.url)}';
        const held = lock(process.argv[1], { wait: false });
        console.log(held ? 'held' : 'taken');
        if (held) setInterval(() => held, 1000);`;
    const attempt = () => start(process.execPath, ['--input-type=module', '-e', script, path], {
        stdio: ['ignore', 'pipe', 'inherit'],
    });
    const word = async (child) => {
        for await (const chunk of child.stdout) {
            return String(chunk).trim();
        }
        return 'nothing';
    };
    const holder = attempt();
    try {
        assert.equal(await within(LimitMs, 'first lock', word(holder)), 'held');
        assert.equal(lockHolder(path), String(holder.pid));
        assert.equal(lock(path, { wait: false }), null);
        assert.equal(await within(LimitMs, 'second lock', word(attempt())), 'taken');
        holder.kill('SIGKILL');
        const mine = lock(path, { wait: true });
        assert.equal(lockHolder(path), String(process.pid));
        mine.release();
    } finally {
        await end(holder);
    }
});

test('a failing program is reported with its code and what it wrote', async () => {
    await assert.rejects(run('sh', ['-c', 'echo because >&2; exit 3']), /ended with 3: because/);
    await assert.rejects(run('/nonexistent/program', []), /cannot start \/nonexistent\/program/);
    await assert.rejects(until(50, 'a miracle', () => false), /a miracle: not within 0\.05 s/);
});

test('ending a program ends its children, even those that do not want to', async () => {
    const child = start('sh', ['-c', 'trap "" TERM; sleep 1000 & echo $!; wait'], {
        stdio: ['ignore', 'pipe', 'ignore'],
    });
    const [grandchild] = await new Promise((resolve) => child.stdout.once('data', (text) => resolve([Number(text)])));
    child.kill('SIGKILL');
    await end(child);
    await until(LimitMs, 'end of the grandchild', () => {
        try {
            return /^State:\tZ/m.test(readFileSync(`/proc/${grandchild}/status`, 'utf8'));
        } catch {
            return true;
        }
    });
});

test('the frame counter counts new frames, and starts again when the file is reset', async () => {
    const path = join(folder, 'frame-buffer.bin');
    const publish = (sequence) => {
        const header = Buffer.alloc(64);
        header.writeBigUInt64LE(BigInt(sequence), 24);
        writeFileSync(path, header);
    };
    let total; // of the last count
    const count = async (...sequences) => {
        const counter = new FrameCounter(path);
        for (const sequence of sequences) {
            publish(sequence);
            await until(LimitMs, 'a look at the file', () => counter.held === Math.floor(sequence / 2));
        }
        total = counter.total;
        return counter.stop();
    };
    publish(100);
    assert.deepEqual(await count(), { frames: 0, framesPerSecond: 0 });
    assert.deepEqual(await count(102), { frames: 0, framesPerSecond: 0 });
    assert.equal(total, 1);
    const counted = await count(104, 107, 110);
    assert.equal(counted.frames, 3);
    assert.equal(total, 4);
    assert.ok(counted.framesPerSecond > 0);
    assert.equal((await count(0, 2, 6)).frames, 2);
    assert.equal(total, 3);
    rmSync(path);
    assert.equal((await count(2, 8)).frames, 3);
});

test('memory that grows without end is a leak; pages that the heap gave back and takes again are not', async () => {
    const holding = (kilobytesOf) => {
        let round = 0;
        const held = () => ({ privateKb: kilobytesOf(round++), handles: 9, windows: 1, threads: 1, files: 1 });
        return assertHoldsNoMore({ held, browser: { shmFolder: folder } }, 3, 128, () => {});
    };
    await holding((round) => (round < 2 ? 1000 : 2684)); // given back before the first round
    await holding((round) => (round === 0 ? 2684 : 1000 + Math.min(round, 4) * 421));
    await assert.rejects(holding((round) => 1000 + round * 129), { message: '774 kB more in the end' });
});

test('the slope of memory tells a leak from noise, from a step at the start, and from too short a run', () => {
    // One sample a minute; `bytesAt` has the minute, the frames and pages that come and go.
    const slope = (minutes, bytesAt) => memorySlope(Array.from({ length: minutes }, (_, minute) => {
        const frames = 1800 * (minute + 1);
        return { frames, bytes: 1e7 + bytesAt(minute, frames, 4096 * (minute * 7 % 5)) };
    }));
    const leaking = slope(60, (minute, frames, pages) => 2 * frames + pages);
    assert.ok(leaking.leaks);
    assert.ok(leaking.least < 2 && leaking.most > 2 && Math.abs(leaking.bytesPerFrame - 2) < 0.1);
    assert.deepEqual([leaking.samples, leaking.frames], [50, 49 * 1800]);
    assert.ok(!slope(60, (minute, frames, pages) => 0.5 * frames + pages).leaks);
    assert.ok(!slope(60, (minute, frames, pages) => pages).leaks);
    assert.ok(!slope(60, (minute, frames, pages) => Math.min(minute, 9) * 500000 + pages).leaks); // warming up
    assert.ok(!slope(60, (minute) => (minute > 10 && minute < 35 ? -5e6 : 0)).leaks); // given back, taken again
    assert.ok(!slope(60, (minute) => (minute > 35 ? 2e6 : 0)).leaks); // one step
    assert.ok(!slope(9, (minute) => 4096 * minute).leaks); // less than a granule
    assert.ok(slope(9, (minute, frames) => 50 * frames).leaks);
    const short = slope(6, (minute, frames) => 50 * frames);
    assert.deepEqual([short.least, short.leaks], [undefined, false]);
    assert.match(describeSlope(short), /^50\.00 bytes per frame, too few for an interval; limit 1\.16 /);
});

test('percentiles are values that were measured, in numeric order', () => {
    assert.deepEqual(medianAndP99([10, 9, 100]), { median: 10, p99: 100 });
    assert.deepEqual(medianAndP99(Array.from({ length: 1000 }, (_, index) => 999 - index)), { median: 500, p99: 990 });
    assert.equal(medianAndP99([]), undefined);
});

test('the page server serves its folder and nothing beside it', async () => {
    writeFileSync(join(folder, 'page.html'), 'page');
    const server = await serveFolder(folder);
    // Unlike fetch, this sends the path as it is.
    const get = (path) => new Promise((resolve, reject) => {
        request({ host: '127.0.0.1', port: server.port, path }, (response) => {
            let body = '';
            response.setEncoding('utf8').on('data', (text) => {
                body += text;
            }).on('end', () => resolve({ status: response.statusCode, type: response.headers['content-type'], body }));
        }).on('error', reject).end();
    });
    try {
        assert.deepEqual(await get('/page.html?query=1'),
                         { status: 200, type: 'text/html; charset=utf-8', body: 'page' });
        for (const path of ['/', '/none', '/../../../../../../etc/passwd', '/%2e%2e/%2e%2e/%2e%2e/etc/passwd', '/%']) {
            assert.equal((await get(path)).status, 404, path);
        }
    } finally {
        await server.stop();
    }
});
