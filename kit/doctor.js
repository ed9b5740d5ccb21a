// Looks at what this machine has and lacks for the native object, and says what to do.

import { createRequire } from 'node:module';
import os from 'node:os';
import path from 'node:path';

import { cameraNodes, nvidiaNodes, renderNodes } from './doctor/device-nodes.js';
import { generationsFound, searchedPlaces, wantedLibraries } from './doctor/ffmpeg-facts.js';
import {
  addonFinding, devicesFinding, encoderFindings, ffmpegFinding, libraryFinding, nodesFinding, systemFindings,
} from './doctor/findings.js';
import { runProbe } from './doctor/probe-process.js';
import { describe, objectOption, positiveOption, signalOption, textOption } from './options.js';

export { formatReport } from './doctor/report-text.js';

const needs = ['camera', 'recording', 'ostrel', 'dino-lite', 'turbojpeg'];

/** The closed libraries; `names` are what the system itself is asked for. */
const libraries = [
  { id: 'camera', kind: 'camera', area: 'Cameras', label: 'camera library', choice: 'cameraLibrary', option: '--camera FILE',
    names: ['libcnokhwa.so'] },
  { id: 'ostrel', kind: 'ostrel', area: 'Ostrel microscopes', label: 'library', choice: 'ostrelLibrary', option: '--ostrel FILE',
    names: ['libostrel.so'] },
  { id: 'dino-lite', kind: 'dinoLite', area: 'Dino-Lite microscopes', label: 'library', choice: 'dinoLiteLibrary',
    option: '--dino-lite FILE', names: ['libdinolite.so'] },
  { id: 'turbojpeg', kind: 'turboJpeg', area: 'JPEG', label: 'TurboJPEG', choice: 'turboJpegLibrary', option: '--turbojpeg FILE',
    names: ['libturbojpeg.so.0', 'libturbojpeg.so'] },
];

function readNeed({ need = ['camera', 'recording'] }) {
  if (!Array.isArray(need) || !need.every((one) => needs.includes(one))) {
    throw new TypeError(`\`need\` takes an array of ${needs.join(', ')}, not ${describe(Array.isArray(need) ? need.join(', ') : need)}.`);
  }
  return need;
}

function readOptions(options) {
  objectOption(options);
  const named = ['addonFile', ...libraries.map(({ choice }) => choice)].filter((name) => options[name] !== undefined);
  return {
    ...Object.fromEntries(named.map((name) => [name, path.resolve(textOption(options, name))])),
    need: readNeed(options),
    timeoutMs: positiveOption(options, 'timeoutMs', 30_000),
    signal: signalOption(options),
  };
}

function filesOf({ choice, names }, options) {
  const directory = process.env.OSTREL_NATIVE_DIR;
  if (options[choice]) {
    return [options[choice]];
  }
  return directory ? [path.join(directory, names.at(-1))] : names;
}

function readVersions() {
  const { version } = createRequire(import.meta.url)('../package.json');
  const { glibcVersionRuntime } = process.report.getReport().header;
  return {
    package: version,
    node: process.versions.node,
    nodeApi: process.versions.napi ?? null,
    electron: process.versions.electron ?? null,
    kernel: os.release(),
    glibc: glibcVersionRuntime ?? null,
  };
}

async function examineLibrary(library, options) {
  const probe = await runProbe('library', { addonFile: options.addonFile, kind: library.kind, files: filesOf(library, options) }, options);
  const about = {
    ...library,
    isNeeded: options.need.includes(library.id),
    isNamed: options[library.choice] !== undefined || Boolean(process.env.OSTREL_NATIVE_DIR && library.id !== 'turbojpeg'),
  };
  return [libraryFinding(about, probe), devicesFinding(about, probe)].filter(Boolean);
}

async function examineRecording(options, addonFile) {
  const isNeeded = options.need.includes('recording');
  const places = searchedPlaces(addonFile);
  const files = places.flatMap((place) => wantedLibraries.map((name) => path.join(place, name)));
  const ffmpeg = await runProbe('ffmpeg', { addonFile: options.addonFile, files }, options);
  const findings = [ffmpegFinding({ isNeeded, places, generations: generationsFound() }, ffmpeg)];
  if (ffmpeg.value?.isAvailable) {
    findings.push(...encoderFindings({ isNeeded }, await runProbe('encoders', { addonFile: options.addonFile }, options)));
  }
  return findings;
}

const nodeFindings = ({ need }) => ({
  camera: nodesFinding({ id: 'camera.nodes', area: 'Cameras', label: 'camera nodes', group: 'video', isNeeded: need.includes('camera'),
    absent: 'no /dev/video*', absentRemedy: 'No camera is connected, or the kernel has no driver for it.' }, cameraNodes()),
  render: nodesFinding({ id: 'ffmpeg.render-nodes', area: 'Recording', label: 'render nodes', group: 'render',
    absent: 'no /dev/dri/renderD*: video is encoded by software', absentRemedy: null }, renderNodes()),
  nvidia: nodesFinding({ id: 'ffmpeg.nvidia-nodes', area: 'Recording', label: 'NVIDIA nodes', group: 'video',
    absent: 'no /dev/nvidia*', absentRemedy: null }, nvidiaNodes()),
});

/** See index.d.ts. */
export async function doctor(options = {}) {
  const choice = readOptions(options);
  choice.signal?.throwIfAborted();
  const versions = readVersions();
  const system = systemFindings({ platform: process.platform, arch: process.arch, ...versions });
  const addon = await runProbe('addon', { addonFile: choice.addonFile }, choice);
  const findings = [...system, addonFinding(addon)];
  if (addon.value) {
    const [camera, ...others] = await Promise.all(libraries.map((library) => examineLibrary(library, choice)));
    const nodes = nodeFindings(choice);
    findings.push(...camera, nodes.camera, ...await examineRecording(choice, addon.value.file), nodes.render, nodes.nvidia,
      ...others.flat());
  }
  return { ok: findings.every(({ essential }) => !essential), need: choice.need, versions, findings };
}
