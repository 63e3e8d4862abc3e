// The soak in its short form.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { soak } from './soak.mjs';

test('in two minutes nothing is lost and nothing piles up', async (t) => {
    const report = await soak({ minutes: 2 });
    t.diagnostic(JSON.stringify(report));
    assert.deepEqual(report.problems, []);
});
