// Stops a receiver at a chosen moment, as a system without time for it would.
import * as fs from 'node:fs/promises';
import { setTimeout as delay } from 'node:timers/promises';

import { until } from '../processes.mjs';

const LimitMs = 300000;
const PauseMs = 5;

// True when all threads of a process are stopped. A thread that has just ended counts as one that runs.
export async function isStopped(id) {
    const tasks = await fs.readdir(`/proc/${id}/task`);
    const states = await Promise.all(tasks.map((task) =>
        fs.readFile(`/proc/${id}/task/${task}/stat`, 'utf8').catch(() => '')));
    return states.every((text) => /\) T /.test(text));
}

// Posts the messages that `nextMessages` returns, again and again, until the receiver was stopped when `isMoment` is
// true: { id, answers }, the process and the promise of what the last messages are answered.
export async function stopDuring(slotPage, nextMessages, isMoment) {
    const id = await slotPage.run.linuxProcessId();
    for (const limit = performance.now() + LimitMs; performance.now() < limit;) {
        let isAnswered = false;
        const answers = slotPage.post(...nextMessages()).finally(() => {
            isAnswered = true;
        });
        answers.catch(() => {}); // The caller may kill the receiver.
        while (!isAnswered) {
            process.kill(id, 'SIGSTOP');
            await until(LimitMs, 'stop of the receiver', () => isStopped(id));
            if (await isMoment()) {
                return { id, answers };
            }
            process.kill(id, 'SIGCONT');
            await delay(PauseMs);
        }
    }
    throw new Error('the receiver was never stopped at the right moment');
}
