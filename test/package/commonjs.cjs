// A package user's program in CommonJS: what the two module systems give, and a second copy of the
// package in the same process.
//
//   node commonjs.cjs SECOND-COPY

const { createRequire } = require('node:module');
const path = require('node:path');

const native = require('ostrel-native');
const other = createRequire(path.join(process.argv[2], 'program.cjs'))('ostrel-native');

async function main() {
  const imported = await import('ostrel-native');
  native.loadCameraBackend('/nowhere/libcnokhwa.so');
  native.cameraRecordingStart('/nowhere/a.mp4', 2, 2, 30, 100000);
  other.loadOstrel('/nowhere/libostrel.so');
  const paths = Object.keys(require.cache).filter((file) => file.endsWith('.node'));
  const errors = { first: native.getLastError(), second: other.getLastError() };
  console.log(JSON.stringify({
    isSame: imported.default === native,
    isTheBinary: native === require.cache[paths[0]].exports,
    importedNames: Object.keys(imported),
    isCopy: other !== native,
    binaries: paths.length,
    members: Object.keys(other).length,
    errors,
    version: require('ostrel-native/package.json').version,
  }));
}

main();
