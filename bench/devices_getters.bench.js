// What a poll of a microscope costs script code, with its library idle, busy and hung, against an
// exported function that builds the same result and does nothing else.

import { createRequire } from 'node:module';
import path from 'node:path';

const load = createRequire(import.meta.url);
const directory = path.join(process.env.OSTREL_TEST_BUILD_DIR, 'bench');
const native = load(process.env.OSTREL_TEST_ADDON);
const empty = load(path.join(directory, 'devices_results.node'));
const { open } = load(path.join(directory, 'devices_fake_control.node'));

const floatBits = (value) => new Int32Array(Float32Array.of(value).buffer)[0];
const doubleBits = (value) => new BigInt64Array(Float64Array.of(value).buffer)[0];

// By family: its library, how it is set up, the functions of the library in which polls linger, in
// the first of which `poll` hangs, and by getter the result that it builds.
const families = [
  {
    library: path.join(directory, 'libostrel.so'),
    setUp: (library) => native.loadOstrel(library).ok && native.ostrelSelectDevice(0),
    slow: ['GetScopeStatus'],
    poll: () => native.ostrelGetScopeStatus(),
    getters: [
      ['ostrelGetScopeStatus', 'number'],
      ['ostrelGetPixelSizeMicrons', 'number'],
      ['ostrelGetPixelSizeInfo', 'pixelSize'],
      ['ostrelGetLensGroupInfo', 'lensGroup'],
      ['ostrelGetFocusPosition', 'number'],
      ['ostrelIsCapturePressed', 'boolean'],
      ['ostrelVersionInfo', 'null'],
      ['ostrelProtocolVersionInfo', 'null'],
    ],
  },
  {
    library: path.join(directory, 'libdinolite.so'),
    setUp: (library, fake) => {
      fake.send(['default dl_device_supports_amr 1', 'default dl_device_supports_microtouch 1', `default dl_get_amr ${floatBits(50)}`,
        `default dl_get_fovx ${doubleBits(6500)}`, 'default dl_led_mode_count 2', 'default dl_led_mode@0 16',
        'default dl_led_mode@1 1'].join('\n'));
      return native.loadDinoLite(library).ok && native.dinoLiteInit() && native.dinoLiteSelectDevice(0) &&
        native.dinoLiteEnableMicrotouch();
    },
    slow: ['dl_get_amr', 'dl_get_fovx', 'dl_microtouch_pressed'],
    poll: () => native.dinoLiteGetAmr(0),
    getters: [
      ['dinoLiteGetAmr', 'number', 0],
      ['dinoLiteGetFovx', 'number', 0, 50, 0],
      ['dinoLiteMicrotouchPressed', 'boolean'],
      ['dinoLiteDebugState', 'debugState'],
    ],
  },
];

// The clock itself costs more than a getter, so it is read once for several calls and its own cost
// is taken off.
const rounds = 5_001;
const callsPerRound = 20;
const samples = 100_000;

const median = (values) => [...values].sort((a, b) => a - b)[Math.trunc(values.length / 2)];

const clockNanoseconds = median(Array.from({ length: rounds }, () => {
  const begin = process.hrtime.bigint();
  return Number(process.hrtime.bigint() - begin);
}));

function nanosecondsPerCall(call) {
  const begin = process.hrtime.bigint();
  for (let i = 0; i < callsPerRound; i += 1) {
    call();
  }
  return (Number(process.hrtime.bigint() - begin) - clockNanoseconds) / callsPerRound;
}

/** `call` with these arguments, and as little as can be around it. */
function withArguments(call, [first, second, third]) {
  if (first === undefined) {
    return call;
  }
  return second === undefined ? () => call(first) : () => call(first, second, third);
}

/** Both in turns, so that a busier moment of the machine meets both. */
function compare(ours, theirs) {
  nanosecondsPerCall(ours);
  nanosecondsPerCall(theirs);
  const turns = Array.from({ length: rounds }, () => [nanosecondsPerCall(ours), nanosecondsPerCall(theirs)]);
  return [median(turns.map(([mine]) => mine)), median(turns.map(([, other]) => other)),
    median(turns.map(([mine, other]) => mine / other))];
}

/** The cost of single calls, clock included, that 999 of 1000 calls stay below, in microseconds. */
function slowest(call) {
  const taken = new Float64Array(samples);
  for (let i = 0; i < samples; i += 1) {
    const begin = process.hrtime.bigint();
    call();
    taken[i] = Number(process.hrtime.bigint() - begin);
  }
  return taken.sort()[Math.trunc(samples * 0.999)] / 1000;
}

const states = {
  idle: () => {},
  // A pass of 5 ms: nearly every poll finds one running.
  busy: (fake, { slow }) => slow.forEach((symbol) => fake.send(`delay ${symbol} 5`)),
  hung: (fake, { slow: [slow], poll }) => {
    const before = Number(/entered=(\d+)/.exec(fake.send(`stats ${slow}`))[1]);
    fake.send(`block ${slow}`);
    poll();
    fake.send(`wait_entered ${slow} ${before + 1}`);
    // Until all that was read is too old.
    Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, 2_100);
  },
};

console.log(`Polling getters; nanoseconds a call, medians of ${rounds} rounds of ${callsPerRound}; 99.9th percentile of ${samples}`);
console.log('single calls in microseconds, in brackets that of the empty function');
console.log(`${'getter'.padEnd(28)} ${'library'.padEnd(8)} ${'getter'.padStart(8)} ${'empty'.padStart(8)} ${'ratio'.padStart(6)} ${'99.9 %'.padStart(8)}`);
for (const family of families) {
  const fake = open(family.library);
  if (!family.setUp(family.library, fake)) {
    throw new Error(native.getLastError());
  }
  fake.send('log_limit 0');
  for (const [state, enter] of Object.entries(states)) {
    enter(fake, family);
    for (const [name, result, ...args] of family.getters) {
      const ours = withArguments(native[name], args);
      const theirs = withArguments(empty[ours() === null ? 'null' : result], args);
      const [nanoseconds, emptyNanoseconds, ratio] = compare(ours, theirs);
      const [late, emptyLate] = [slowest(ours), slowest(theirs)];
      console.log(`${name.padEnd(28)} ${state.padEnd(8)} ${nanoseconds.toFixed(0).padStart(8)} ${emptyNanoseconds.toFixed(0).padStart(8)} ` +
        `${ratio.toFixed(2).padStart(6)} ${late.toFixed(1).padStart(8)} (${emptyLate.toFixed(1)})`);
    }
  }
  fake.send(`release ${family.slow[0]}`);
}
