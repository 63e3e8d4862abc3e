// The soak in its short form.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { soak } from './soak.mjs';

test('in a minute nothing is lost and nothing piles up', async (t) => {
    const report = await soak({ minutes: 1 });
    t.diagnostic(JSON.stringify(report));
    assert.deepEqual(report.problems, []);
});
