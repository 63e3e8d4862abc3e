// Whether the receiver is well: it answers, and it holds no more than before.
import assert from 'node:assert/strict';
import { readdir } from 'node:fs/promises';
import { setTimeout as delay } from 'node:timers/promises';

import { until } from '../processes.mjs';

const AnswerLimitMs = 60000;
const BusyLimitMs = 1000; // of the window's thread's own processor time: a busy machine fails no test
const PauseMs = 20; // A driver that asked without a pause would keep a processor busy.
const SlackHandles = 2; // The system's own threads come and go.

// Runs `work` and sees, again and again until it is done, that the window answers before its thread has worked for a
// second; what `work` resolves to.
export async function answeringDuring(run, work) {
    const { window } = await run.mainWindow();
    let working = true;
    const done = work().finally(() => {
        working = false;
    });
    done.catch(() => {}); // Reported below.
    do {
        // It may be waiting longer, as while a recording is being completed.
        let workedMs = 0;
        await until(AnswerLimitMs, 'answer of the window', async () => {
            const probe = await run.driver.ask('probe', window);
            workedMs += probe.workedMs;
            return probe.answered;
        });
        assert.ok(workedMs <= BusyLimitMs, `the window was busy for ${workedMs} ms`);
        await Promise.race([done.catch(() => {}), delay(PauseMs)]);
    } while (working);
    const result = await done;
    assert.ok((await run.mainWindow()).enabled, 'something is in front of the window');
    return result;
}

// Repeats `round`: what the program holds in the end is what it held after the earlier half of the rounds, which fill
// caches. Now and then the heap gives pages back, and takes them again in later rounds: more memory than before counts
// only when twice as many rounds, and then four times as many, end with more as well.
export async function assertHoldsNoMore(run, rounds, slackKb, round) {
    const held = [];
    let growth;
    for (const times of [1, 2, 4]) {
        while (held.length < times * rounds) {
            await round(held.length);
            const { privateKb, handles, windows, threads, files } = await run.held();
            const slotFiles = (await readdir(run.browser.shmFolder)).length;
            held.push({ privateKb, handles, counts: { windows, threads, files, slotFiles } });
        }
        growth = growthOf(held);
        if (growth.privateKb <= slackKb) {
            break;
        }
    }
    assert.ok(growth.privateKb <= slackKb, `${growth.privateKb} kB more in the end`);
    assert.ok(growth.handles <= SlackHandles, `${growth.handles} handles more in the end`);
    assert.deepEqual(held.at(-1).counts, held[0].counts);
}

// What the last round held above the most of the earlier half of the rounds.
function growthOf(held) {
    const earlier = held.slice(0, Math.ceil(held.length / 2));
    const above = (name) => held.at(-1)[name] - Math.max(...earlier.map((holding) => holding[name]));
    return { privateKb: above('privateKb'), handles: above('handles') };
}
