// How the frames of a stack lie to one another: which of them belong together, which is the
// reference, and over which neighbours each is registered.

import { mapPositions } from './fields.js';
import { sampleBilinear } from './planes.js';
import { register } from './registration.js';
import { compose, identity, invert } from './similarity.js';

// All pairs are compared coarsely, neighbours registered as finely as there are levels.
const pairLevel = 1;
// Unrelated pictures reach about 0.2.
const leastScore = 0.35;
// What sampling between the pixels leaves of the finest detail; the reference alone is not sampled.
const sampledDetail = 0.9;

/** All pairs of frames, registered coarsely: scores[i][j], and transforms[i][j] from i to j. */
function registerPairs(frames, details, onPair) {
  const amounts = details.map(({ data }) => data.reduce((sum, value) => sum + value, 0));
  const scores = frames.map(() => frames.map(() => 0));
  const transforms = frames.map(() => frames.map(() => identity));
  for (let i = 0; i < frames.length; ++i) {
    for (let j = i + 1; j < frames.length; ++j) {
      // Never the order of the files decides which of two frames is registered against which.
      const [fixed, moving] = amounts[i] >= amounts[j] ? [i, j] : [j, i];
      const { transform, score } = register(frames[fixed], frames[moving], { finestLevel: pairLevel });
      scores[i][j] = scores[j][i] = score;
      transforms[fixed][moving] = transform;
      transforms[moving][fixed] = invert(transform);
      onPair();
    }
  }
  return { scores, transforms };
}

/**
 * Joins frames over the pairs that match best, each frame once: the maximum spanning trees after
 * Kruskal. Neighbours in focus look most alike, so the order of the files does not matter. Gives
 * the neighbours of each frame, and the number of its tree.
 */
export function joinNeighbours(scores) {
  const neighbours = scores.map(() => []);
  const tree = scores.map((_, i) => i);
  const pairs = scores.flatMap((row, i) => row.map((score, j) => ({ i, j, score })).slice(i + 1));
  for (const { i, j, score } of pairs.sort((a, b) => b.score - a.score)) {
    const [from, to] = [tree[i], tree[j]];
    if (from !== to && score >= leastScore) {
      neighbours[i].push(j);
      neighbours[j].push(i);
      tree.forEach((id, k) => (tree[k] = id === from ? to : id));
    }
  }
  return { neighbours, trees: tree };
}

/** The members of the tree with most frames; of several, the one whose frames match best. */
function largestTree(trees, scores) {
  const sets = [...new Set(trees)].map((id) => trees.flatMap((tree, i) => (tree === id ? [i] : [])));
  const match = (set) => set.reduce((sum, i) => sum + set.reduce((s, j) => s + scores[i][j], 0), 0);
  return sets.sort((a, b) => b.length - a.length || match(b) - match(a))[0];
}

/** Each frame's way from `root`: { from, to } in an order in which `from` is always known. */
function walkTree(neighbours, root) {
  const steps = [];
  const seen = new Set([root]);
  for (const from of seen) {
    for (const to of neighbours[from]) {
      if (!seen.has(to)) {
        seen.add(to);
        steps.push({ from, to });
      }
    }
  }
  return steps;
}

/**
 * How sharp a result can become with `root` as the reference: over the cells of its picture, the
 * sum of the best detail that a frame has there. A frame that shows more of the object than
 * others do lacks them at its border; one that shows less is magnified in the others' place.
 */
function expectedSharpness(root, placed, details, size) {
  const { width, height } = details[root];
  const best = new Float32Array(width * height);
  for (const [index, transform] of placed) {
    const share = index === root ? 1 : sampledDetail;
    const { x, y } = mapPositions(transform, size, { mapWidth: width, mapHeight: height });
    for (let cell = 0; cell < best.length; ++cell) {
      const detail = sampleBilinear(details[index], x.data[cell], y.data[cell]) * share;
      if (detail > best[cell]) {
        best[cell] = detail;
      }
    }
  }
  return best.reduce((sum, value) => sum + value, 0);
}

/** The frame to which the others are brought: the one that promises the sharpest result. */
function chooseReference(members, neighbours, transforms, details, size) {
  const promises = members.map((root) => {
    const placed = new Map([[root, identity]]);
    for (const { from, to } of walkTree(neighbours, root)) {
      placed.set(to, compose(transforms[from][to], placed.get(from)));
    }
    return { root, sharpness: expectedSharpness(root, placed, details, size) };
  });
  return promises.reduce((best, promise) => (promise.sharpness > best.sharpness ? promise : best)).root;
}

/**
 * Aligns the frames. `levels`: each frame's, from `prepareFrame`; `details`: a coarse plane of each
 * frame's sharpness; `size`: { width, height } of the frames. Gives the index of the reference and
 * for each frame { registered, transform, score, neighbour }: whether it belongs to the stack, the
 * similarity from a spot of the reference to the same spot of the frame, in pixels from the
 * centre, and how well it matches the neighbour that it was registered against (for the reference
 * 1 and itself).
 */
export function alignFrames(levels, details, size, onProgress = () => {}) {
  const steps = levels.length * (levels.length + 1) / 2 - 1;
  let done = 0;
  const count = () => onProgress(++done / steps);
  const { scores, transforms } = registerPairs(levels, details, count);
  const { neighbours, trees } = joinNeighbours(scores);
  const members = largestTree(trees, scores);
  const reference = chooseReference(members, neighbours, transforms, details, size);
  const placements = levels.map((_, i) => ({ registered: false, transform: identity, score: 0, neighbour: i }));
  placements[reference] = { registered: true, transform: identity, score: 1, neighbour: reference };
  for (const { from, to } of walkTree(neighbours, reference)) {
    const { transform, score } = register(levels[from], levels[to], { start: transforms[from][to] });
    const total = compose(transform, placements[from].transform);
    placements[to] = { registered: true, transform: total, score, neighbour: from };
    count();
  }
  return { reference, placements };
}
