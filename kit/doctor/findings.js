// Findings from what the probes told: pure functions of facts.

import { wantedLibraries } from './ffmpeg-facts.js';

const leastNode = 20;
const usualPlaces = 'the places where the system looks for libraries';

export function finding(id, area, label, level, text, { remedy = null, essential = false } = {}) {
  return { id, area, level, essential: essential && level !== 'ok' && level !== 'note', label, text, remedy };
}

const list = (items, none) => (items.length > 0 ? items.join(', ') : none);

/** Findings on the machine itself. */
export function systemFindings({ platform, arch, node, kernel, glibc }) {
  const area = 'System';
  const fits = platform === 'linux' && arch === 'x64';
  const isNew = Number.parseInt(node, 10) >= leastNode;
  return [
    finding('system.platform', area, 'platform', fits ? 'ok' : 'failed', `${platform} on ${arch}`,
      { essential: true, remedy: fits ? null : 'Run the application on x86-64 Linux.' }),
    finding('system.node', area, 'Node.js', isNew ? 'ok' : 'failed', node,
      { essential: true, remedy: isNew ? null : `Use Node.js ${leastNode} or newer.` }),
    finding('system.libc', area, 'C library', glibc ? 'ok' : 'failed', glibc ? `glibc ${glibc}` : 'none of the GNU project',
      { essential: true, remedy: glibc ? null : 'Use a system with glibc, such as Debian or Ubuntu.' }),
    finding('system.kernel', area, 'kernel', 'ok', kernel),
  ];
}

/** The finding on the native object's own file. */
export function addonFinding({ value, failure }) {
  if (value) {
    return finding('addon.file', 'System', 'native object', 'ok', value.file);
  }
  const [what, ...details] = failure.split('\n');
  return finding('addon.file', 'System', 'native object', 'failed', what,
    { essential: true, remedy: details.join('\n') || 'Install the package anew.' });
}

/** What was tried, a line for each. */
const triedText = (tried) => tried.map(({ file, text }) =>
  `${file}: ${text === null ? 'opens, but lacks what is needed of it' : text.replace(`${file}: `, '')}`);

/**
 * The finding on a closed library: `area`, `label` and `option`, how the doctor is told its file, beside
 * what its probe answered.
 */
export function libraryFinding({ id, area, label, option, isNeeded, isNamed }, { value, failure }) {
  const full = `${id}.library`;
  if (failure) {
    return finding(full, area, label, 'failed', failure,
      { essential: isNeeded, remedy: 'It does not work in a process of its own either: ask its maker for another version.' });
  }
  if (value.loaded !== null) {
    return finding(full, area, label, 'ok', value.loaded);
  }
  const opens = value.tried.some(({ text }) => text === null);
  const remedy = opens ? 'It is a library, but not the right one or not the right version: see the words above.'
    : `Install it, or name its file with ${option}, or its directory in OSTREL_NATIVE_DIR.`;
  const text = [opens ? value.words : 'not found', ...triedText(value.tried)].join('\n');
  const level = opens || isNamed ? 'failed' : 'missing';
  return finding(full, area, label, level, text, { essential: isNeeded, remedy });
}

/** The finding on what a closed library lists; null where it was not loaded. */
export function devicesFinding({ id, area, isNeeded }, { value }) {
  if (!value?.names) {
    return null;
  }
  const { names, code = 0, mayCapture = true, words = '' } = value;
  const label = id === 'camera' ? 'cameras' : 'microscopes';
  if (code < 0 || !mayCapture) {
    return finding(`${id}.devices`, area, label, 'failed',
      code < 0 ? `the library refuses to start (${code})` : 'the library says that capture is not allowed',
      { essential: isNeeded, remedy: 'Allow this user to use cameras, see the device nodes.' });
  }
  if (names.length === 0) {
    return finding(`${id}.devices`, area, label, 'missing', words || 'none is attached',
      { remedy: 'Connect one. If it is connected: see the device nodes, and try another port or cable.' });
  }
  return finding(`${id}.devices`, area, label, 'ok', names.join(', '));
}

/** The finding on device nodes; `group` is the group of users that may use them. */
export function nodesFinding({ id, area, label, group, absent, absentRemedy, isNeeded = false }, nodes) {
  const closed = nodes.filter(({ usable }) => !usable).map(({ node }) => node);
  if (nodes.length === 0) {
    return finding(id, area, label, 'note', absent, { remedy: absentRemedy });
  }
  if (closed.length === 0) {
    return finding(id, area, label, 'ok', `${nodes.map(({ node }) => node).join(', ')}: may be read and written`);
  }
  return finding(id, area, label, 'failed', `${closed.join(', ')}: may not be read and written`,
    { essential: isNeeded && closed.length === nodes.length,
      remedy: `Become a member of its group, and log in anew: sudo usermod -aG ${group} $USER` });
}

/** The finding on FFmpeg's libraries. */
export function ffmpegFinding({ isNeeded, places, generations }, { value, failure }) {
  const make = (level, text, remedy) =>
    finding('ffmpeg.libraries', 'Recording', 'FFmpeg', level, text, { essential: isNeeded, remedy });
  if (failure) {
    return make('failed', failure, 'See the native object above.');
  }
  if (value.isAvailable) {
    return make('ok', list(value.loaded, 'loaded'));
  }
  const others = generations.filter((generation) => generation !== 58);
  const wanted = `wanted: ${wantedLibraries.join(', ')}`;
  const found = generations.length > 0 ? `this system has libavcodec ${generations.join(', ')}` : 'this system has no libavcodec';
  const searched = `searched: ${places.map((place) => place || usualPlaces).join(', ')}`;
  const remedy = `Put the three libraries into ${places.find(Boolean) ?? 'the slot of the application'}, or name their directory ` +
    `in OSTREL_FFMPEG_LIBRARY_DIR.${others.length > 0 ? ' Another generation does not serve.' : ''}`;
  return make('missing', [wanted, found, searched, ...triedText(value.tried.filter(({ text }) => text !== null))].join('\n'), remedy);
}

const hardwareEncoders = new Set(['h264_vaapi', 'h264_qsv', 'h264_nvenc', 'h264_v4l2m2m']);

/** A finding for each encoder, and first of all one on whether any opens. */
export function encoderFindings({ isNeeded }, { value, failure }) {
  const area = 'Recording';
  if (failure) {
    return [finding('ffmpeg.encoders', area, 'encoders', 'failed', failure,
      { essential: isNeeded, remedy: 'An encoder crashes or hangs: name another one in OSTREL_FFMPEG_ENCODER, such as libx264.' })];
  }
  const open = value.filter(({ opens }) => opens).map(({ name }) => name);
  const all = finding('ffmpeg.encoders', area, 'encoders', open.length > 0 ? 'ok' : 'missing',
    open.length > 0 ? `${open[0]} is used${open.length > 1 ? `; ${open.slice(1).join(', ')} would open too` : ''}` : 'none opens',
    { essential: isNeeded, remedy: open.length > 0 ? null : 'Use an FFmpeg that was built with libx264; encoding in software means x264, whose licence is the GPL.' });
  return [all, ...value.map(({ name, opens, words }) => finding(`ffmpeg.encoder.${name}`, area, name, opens ? 'ok' : 'note',
    opens ? 'opens' : encoderWords(name, words)))];
}

function encoderWords(name, words) {
  const reason = /\((?:[^:()]+: )?(.*)\)$/s.exec(words)?.[1];
  const kind = hardwareEncoders.has(name) ? ' (hardware)' : '';
  return reason ? `does not open${kind}: ${reason}` : `not in this FFmpeg${kind}`;
}
