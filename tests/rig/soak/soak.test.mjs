// The soak in its short form, with the window minimized: the page's picture and the recordings do not depend on it.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { soak } from './soak.mjs';

test('in half a minute with the window minimized nothing is lost and nothing piles up', async (t) => {
    const report = await soak({ minutes: 0.5, minimized: true });
    t.diagnostic(JSON.stringify(report));
    assert.deepEqual(report.problems, []);
});
