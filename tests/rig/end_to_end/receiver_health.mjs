// Whether the receiver is well: it answers, and it holds no more than before.
import assert from 'node:assert/strict';
import { readdir, readFile } from 'node:fs/promises';
import { join } from 'node:path';

import { until } from '../processes.mjs';

const WM_NULL = 0;
const ERROR_TIMEOUT = 1460;
const AnswerLimitMs = 60000;
const SlackHandles = 8; // Wine's own programs come and go.

// Runs `work` and sees, again and again until it is done, that the window answers; what `work` resolves to.
export async function answeringDuring(run, work) {
    const { window } = await run.mainWindow();
    let working = true;
    const done = work().finally(() => {
        working = false;
    });
    done.catch(() => {}); // Told below.
    do {
        await until(AnswerLimitMs, 'answer of the window', () => askWindow(run, window));
    } while (working);
    const result = await done;
    assert.ok((await run.mainWindow()).enabled, 'something is in front of the window');
    return result;
}

// Undefined when there was no answer in the time that the driver waits, as while a recording is being completed.
async function askWindow(run, window) {
    try {
        return await run.driver.ask('send', window, WM_NULL, 0, 0);
    } catch (error) {
        if (!error.message.endsWith(`Windows error ${ERROR_TIMEOUT}`)) {
            throw error;
        }
    }
}

// What the program holds at this moment. Memory is what only this process has, in bytes; the handles of its files are
// open files of Wine's server, which serves this run alone.
export async function holdings(run) {
    const folder = join('/proc', String(await run.linuxProcessId()));
    const read = (name) => readFile(join(folder, name), 'utf8');
    const [server] = [...await run.prefix.processIds('wineserver64'), ...await run.prefix.processIds('wineserver')];
    const [memory, maps] = await Promise.all(['smaps_rollup', 'maps'].map(read));
    return {
        memory: 1024 * Number(/^Anonymous:\s+(\d+)/m.exec(memory)[1]),
        threads: (await readdir(join(folder, 'task'))).length,
        files: (await readdir(join(folder, 'fd'))).length,
        handles: (await readdir(`/proc/${server}/fd`)).length,
        mappedSlots: maps.split('\n').filter((line) => line.includes(run.browser.shmFolder)).length,
        slotFiles: (await readdir(run.browser.shmFolder)).length,
    };
}

// Repeats `round`: what the program holds after the later rounds is what it held after the first, which fills whatever
// is kept for the next time. A few pages come and go as the heap is cut up anew.
export async function assertHoldsNoMore(run, rounds, slackBytes, round) {
    let first;
    for (let number = 0; number < rounds; ++number) {
        await round(number);
        const { memory, handles, ...others } = await holdings(run);
        first ??= { memory, handles, others };
        assert.ok(memory <= first.memory + slackBytes, `${memory - first.memory} bytes more in round ${number}`);
        assert.ok(handles <= first.handles + SlackHandles, `${handles - first.handles} handles more, round ${number}`);
        assert.deepEqual(others, first.others);
    }
}
