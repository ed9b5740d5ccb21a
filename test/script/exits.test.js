// process.exit while the addon works, a few times each; `npm run test:exits` does it many times.

import assert from 'node:assert/strict';
import { describe, it } from 'node:test';

import { exitActivities, exitEndings, runExits } from './support/exits.js';

describe('process.exit ends the process cleanly, by the main thread and by workers,', () => {
  for (const activity of exitActivities) {
    it(`with ${activity} under way`, async () => {
      const [{ runs, faults }] = await runExits({ times: 2 * exitEndings.length, activities: [activity] });
      assert.deepEqual({ runs, faults }, { runs: 6, faults: [] });
    });
  }
});
