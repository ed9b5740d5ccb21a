// The doctor's report for people.

const words = { ok: 'ok', note: '-', missing: 'missing', failed: 'FAILED' };
const levelWidth = 7;

function lines({ level, label, text, remedy, essential }, labelWidth) {
  const indent = ' '.repeat(2 + levelWidth + 2 + labelWidth + 2);
  const mark = essential ? words[level].toUpperCase() : words[level];
  const [first, ...rest] = text.split('\n');
  return [
    `  ${mark.padEnd(levelWidth)}  ${label.padEnd(labelWidth)}  ${first}`,
    ...rest.map((line) => indent + line),
    ...(remedy ?? '').split('\n').filter(Boolean).map((line) => `${indent}> ${line}`),
  ];
}

const count = (number) => (number === 1 ? 'One thing that is needed is' : `${number} things that are needed are`);

/** See index.d.ts. */
export function formatReport({ ok, need, versions, findings }) {
  const labelWidth = Math.max(...findings.map(({ label }) => label.length));
  const areas = [...new Set(findings.map(({ area }) => area))];
  const blocks = areas.map((area) => [area,
    ...findings.filter((one) => one.area === area).flatMap((one) => lines(one, labelWidth))].join('\n'));
  const lacking = findings.filter(({ essential }) => essential);
  const needs = `Needed: ${need.length > 0 ? need.join(', ') : 'nothing in particular'}.`;
  const closing = ok ? `${needs} All of it is there.`
    : `${needs} ${count(lacking.length)} not there: ${lacking.map(({ label }) => label).join(', ')}. What to do stands behind ">" above.`;
  return [`ostrel-native ${versions.package}: what this machine has and lacks`, ...blocks, closing].join('\n\n');
}
