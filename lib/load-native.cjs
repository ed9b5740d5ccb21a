// Finds the file of the native object and loads it, or says in one error what was looked for, what
// this machine is and what to do.
//
// Plain old syntax: a Node.js that is too old has to get as far as the error that says so.
'use strict';

const fs = require('fs');
const path = require('path');

const packageDirectory = path.join(__dirname, '..');
// The build of a source tree first: what "npm pack" has left beside it may be older.
const places = ['build/Release/ostrel_native.node', 'prebuilds/linux-x64/ostrel_native.node'];
const leastNodeApi = 8;
const leastNode = '18.17';
const notTried = 'there, not tried';

/** Where the native object's file may lie, in the order of trial. */
function candidatePaths() {
  return places.map((place) => path.join(packageDirectory, place));
}

/** The C library of this process, { name, version }; the version is null where it cannot be told. */
function readCLibrary() {
  if (process.platform !== 'linux' || !process.report) {
    return { name: null, version: null };
  }
  const report = process.report.getReport();
  if (report.header.glibcVersionRuntime) {
    return { name: 'glibc', version: report.header.glibcVersionRuntime };
  }
  const hasMusl = report.sharedObjects.some((file) => /\/(ld-musl-|libc\.musl-)/.test(file));
  return { name: hasMusl ? 'musl' : null, version: null };
}

function describeRuntime() {
  return {
    platform: process.platform,
    arch: process.arch,
    node: process.versions.node,
    nodeApi: Number(process.versions.napi) || 0,
    electron: process.versions.electron || null,
  };
}

/** What the loading of the native object depends on. */
function describeMachine() {
  return Object.assign(describeRuntime(), { cLibrary: readCLibrary() });
}

/** The machine in one line, for people. */
function machineText(machine) {
  const cLibrary = [machine.cLibrary.name, machine.cLibrary.version].filter(Boolean).join(' ');
  const parts = [
    machine.platform + ' on ' + machine.arch,
    cLibrary || 'unknown C library',
    'Node.js ' + machine.node + ' (Node-API ' + machine.nodeApi + ')',
  ];
  return parts.concat(machine.electron ? ['Electron ' + machine.electron] : []).join(', ');
}

/** Why this machine cannot load the native object, { code, what, remedy }; null if it should. */
function findMachineFault(machine) {
  if (machine.platform !== 'linux') {
    return {
      code: 'OSTREL_WRONG_PLATFORM',
      what: 'it is made for Linux, and this is ' + machine.platform,
      remedy: 'Run the application on x86-64 Linux.',
    };
  }
  if (machine.arch !== 'x64') {
    return {
      code: 'OSTREL_WRONG_PROCESSOR',
      what: 'it is made for x64, and this Node.js is for ' + machine.arch,
      remedy: 'Use a Node.js or Electron for x64, on an x86-64 processor.',
    };
  }
  if (machine.cLibrary && machine.cLibrary.name === 'musl') {
    return {
      code: 'OSTREL_WRONG_C_LIBRARY',
      what: "it is made for glibc, and this system's C library is musl",
      remedy: 'Use a system with glibc, such as Debian, Ubuntu or Fedora; Alpine is one with musl.',
    };
  }
  if (machine.nodeApi < leastNodeApi) {
    return {
      code: 'OSTREL_OLD_NODE',
      what: 'it needs Node-API ' + leastNodeApi + ', and Node.js ' + machine.node + ' is too old for that',
      remedy: 'Use Node.js ' + leastNode + ' or newer.',
    };
  }
  return null;
}

const missingFault = {
  code: 'OSTREL_NO_BINARY',
  what: 'its file is not there',
  remedy: 'Install the package anew; in its source tree, run "npm start" to build it.',
};

function refusalFault(reason) {
  const wanted = /version [`'"]((?:GLIBC|GLIBCXX|CXXABI)_[0-9.]+)' not found/.exec(reason);
  if (wanted) {
    return {
      code: 'OSTREL_OLD_SYSTEM',
      what: 'this system is too old for it (it asks for ' + wanted[1] + ')',
      remedy: 'Use a system with glibc 2.34 and the libstdc++ of GCC 12, or newer, such as Debian 12 or Ubuntu 22.04.',
    };
  }
  return {
    code: 'OSTREL_REFUSED',
    what: 'the system refuses its file',
    remedy: 'The reason stands below. If the file is damaged, install the package anew.',
  };
}

/** What was said of `file`, without its name in front. */
function reasonText(file, error) {
  const text = String(error && error.message ? error.message : error);
  return text.indexOf(file + ': ') === 0 ? text.slice(file.length + 2) : text;
}

/** The one error. `looked`: [{ file, outcome }] in the order of trial. */
function loadError(fault, looked, machine, cause) {
  const lines = [
    'ostrel-native could not be loaded: ' + fault.what + '.',
    fault.remedy,
    'Looked for:',
  ].concat(looked.map((one) => '  ' + one.file + ': ' + one.outcome), 'This machine: ' + machineText(machine));
  const error = new Error(lines.join('\n'));
  error.code = fault.code;
  if (cause) {
    error.cause = cause;
  }
  return error;
}

const elfHeaderBytes = 64;

/**
 * Throws if a shared object ends before its own table of contents does: the system would map what
 * is not there, and the process would die of it. Whatever is no shared object passes.
 */
function assertWhole(file) {
  const header = Buffer.alloc(elfHeaderBytes);
  const descriptor = fs.openSync(file, 'r');
  try {
    const read = fs.readSync(descriptor, header, 0, elfHeaderBytes, 0);
    const is64BitElf = read === elfHeaderBytes && header.toString('latin1', 0, 5) === '\x7fELF\x02';
    const tableStart = header.readUInt32LE(40) + header.readUInt32LE(44) * 2 ** 32;
    const wanted = tableStart + header.readUInt16LE(58) * header.readUInt16LE(60);
    const size = fs.fstatSync(descriptor).size;
    if (is64BitElf && size < wanted) {
      throw new Error('the file is cut off after ' + size + ' of ' + wanted + ' bytes');
    }
  } finally {
    fs.closeSync(descriptor);
  }
}

function loadBinary(file) {
  assertWhole(file);
  return require(file);
}

/**
 * Loads the native object and gives its exports as they stand. What it depends on can be handed in:
 * `files` in the order of trial, `exists(file)`, `load(file)` and the `machine`. The first file that
 * is there is the one; it is not passed over for the next if it is refused.
 * Throws an Error with a `code`, and with the loader's own error as `cause` if there was one.
 */
function loadNative(given) {
  const facts = given || {};
  const files = facts.files || candidatePaths();
  const exists = facts.exists || fs.existsSync;
  const found = files.filter((file) => exists(file))[0];
  const fail = (fault, foundOutcome, cause) => {
    // Reading the C library takes milliseconds, so only an error does it.
    const machine = facts.machine || describeMachine();
    const outcome = (file) => (file === found ? foundOutcome : exists(file) ? notTried : 'not there');
    const looked = files.map((file) => ({ file, outcome: outcome(file) }));
    return loadError(findMachineFault(machine) || fault, looked, machine, cause);
  };
  if (findMachineFault(facts.machine || describeRuntime())) {
    throw fail(null, notTried, null);
  }
  if (found === undefined) {
    throw fail(missingFault, null, null);
  }
  try {
    return (facts.load || loadBinary)(found);
  } catch (error) {
    const reason = reasonText(found, error);
    throw fail(refusalFault(reason), reason, error);
  }
}

module.exports = { candidatePaths, describeMachine, loadNative, machineText };
