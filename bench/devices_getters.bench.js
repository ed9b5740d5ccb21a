// What a poll of the microscope costs script code, with its library idle, busy and hung, against an
// exported function that builds the same result and does nothing else.

import { createRequire } from 'node:module';
import path from 'node:path';

const load = createRequire(import.meta.url);
const directory = path.join(process.env.OSTREL_TEST_BUILD_DIR, 'bench');
const native = load(process.env.OSTREL_TEST_ADDON);
const empty = load(path.join(directory, 'devices_results.node'));
const library = path.join(directory, 'libostrel.so');
const fake = load(path.join(directory, 'devices_fake_control.node')).open(library);

const getters = {
  ostrelGetScopeStatus: 'number',
  ostrelGetPixelSizeMicrons: 'number',
  ostrelGetPixelSizeInfo: 'pixelSize',
  ostrelGetLensGroupInfo: 'lensGroup',
  ostrelGetFocusPosition: 'number',
  ostrelIsCapturePressed: 'boolean',
  ostrelVersionInfo: 'null',
  ostrelProtocolVersionInfo: 'null',
};
// Short rounds, so that most of them meet no other program on the machine.
const rounds = 1001;
const callsPerRound = 100;
const samples = 100_000;

const median = (values) => values.toSorted((a, b) => a - b)[Math.trunc(values.length / 2)];

function nanosecondsPerCall(call) {
  const begin = process.hrtime.bigint();
  for (let i = 0; i < callsPerRound; i += 1) {
    call();
  }
  return Number(process.hrtime.bigint() - begin) / callsPerRound;
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
  busy: () => fake.send('delay GetScopeStatus 5'),
  hung: () => {
    fake.send('block GetScopeStatus');
    native.ostrelGetScopeStatus();
    fake.send('wait_entered GetScopeStatus 1');
  },
};

if (!native.loadOstrel(library).ok || !native.ostrelSelectDevice(0)) {
  throw new Error(native.getLastError());
}
fake.send('log_limit 0');
console.log(`Polling getters; nanoseconds a call, medians of ${rounds} rounds of ${callsPerRound}; 99.9th percentile of ${samples}`);
console.log('single calls in microseconds, in brackets that of the empty function');
console.log(`${'getter'.padEnd(28)} ${'library'.padEnd(8)} ${'getter'.padStart(8)} ${'empty'.padStart(8)} ${'ratio'.padStart(6)} ${'99.9 %'.padStart(8)}`);
for (const [state, enter] of Object.entries(states)) {
  enter();
  for (const [name, result] of Object.entries(getters)) {
    const [ours, theirs, ratio] = compare(native[name], empty[result]);
    const [late, emptyLate] = [slowest(native[name]), slowest(empty[result])];
    console.log(`${name.padEnd(28)} ${state.padEnd(8)} ${ours.toFixed(0).padStart(8)} ${theirs.toFixed(0).padStart(8)} ` +
      `${ratio.toFixed(2).padStart(6)} ${late.toFixed(1).padStart(8)} (${emptyLate.toFixed(1)})`);
  }
}
fake.send('release GetScopeStatus');
