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

// Calls are timed one by one, for the median of a call, and in rounds, whose share of a call also has
// its part of the few that wake the owner thread. The clock costs more than a getter: what it takes by
// itself is taken off, but for the 99.9th percentile.
const turns = 100;
const callsPerTurn = 1_000;
const rounds = 2_501;
const callsPerRound = 20;

const now = () => process.hrtime.bigint();
const sorted = (values) => [...values].sort((a, b) => a - b);
const at = (values, share) => values[Math.trunc(values.length * share)];

function nanosecondsOf(calls, call) {
  const begin = now();
  for (let i = 0; i < calls; i += 1) {
    call();
  }
  return Number(now() - begin);
}

const clockNanoseconds = at(sorted(Array.from({ length: 100_001 }, () => -Number(now() - now()))), 0.5);

/** `call` with these arguments, and as little as can be around it. */
function withArguments(call, [first, second, third]) {
  if (first === undefined) {
    return call;
  }
  return second === undefined ? () => call(first) : () => call(first, second, third);
}

/** Both in turns, so that a busier moment of the machine meets both. */
function compare(ours, theirs) {
  const single = [ours, theirs].map((call) => ({ call, taken: [] }));
  for (let turn = 0; turn < turns; turn += 1) {
    for (const { call, taken } of single) {
      for (let i = 0; i < callsPerTurn; i += 1) {
        taken.push(nanosecondsOf(1, call));
      }
    }
  }
  const shares = Array.from({ length: rounds }, () => [ours, theirs]
    .map((call) => (nanosecondsOf(callsPerRound, call) - clockNanoseconds) / callsPerRound));
  const [mine, other] = single.map(({ taken }) => sorted(taken));
  return {
    medians: [mine, other].map((values) => at(values, 0.5) - clockNanoseconds),
    late: [mine, other].map((values) => at(values, 0.999) / 1000),
    roundRatio: at(sorted(shares.map(([share, otherShare]) => share / otherShare)), 0.5),
  };
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

console.log(`Polling getters; medians of ${turns * callsPerTurn} single calls in nanoseconds and their ratio; ratio of ${rounds} rounds`);
console.log(`of ${callsPerRound} calls, medians; 99.9th percentile of single calls in microseconds, in brackets that of the empty function`);
console.log(`${'getter'.padEnd(28)} ${'library'.padEnd(8)} ${'getter'.padStart(8)} ${'empty'.padStart(8)} ${'ratio'.padStart(6)} ${'rounds'.padStart(7)} ${'99.9 %'.padStart(8)}`);
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
      const { medians: [mine, other], late, roundRatio } = compare(ours, theirs);
      console.log(`${name.padEnd(28)} ${state.padEnd(8)} ${mine.toFixed(0).padStart(8)} ${other.toFixed(0).padStart(8)} ` +
        `${(mine / other).toFixed(2).padStart(6)} ${roundRatio.toFixed(2).padStart(7)} ${late[0].toFixed(1).padStart(8)} (${late[1].toFixed(1)})`);
    }
  }
  fake.send(`release ${family.slow[0]}`);
}
