// Which tests `npm test -- NAME` and `npm test -- --changed` run.

import path from 'node:path';

/** The cases of a GoogleTest source file, as [suite, case] pairs. */
export function unitCases(text) {
  return [...text.matchAll(/^(?:TYPED_)?TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\s*\)/gm)].map(([, suite, name]) => [suite, name]);
}

/** The titles of a script test file, of groups and cases alike. */
export function scriptTitles(text) {
  return [...text.matchAll(/\b(?:describe|it|test)\((['"`])((?:\\.|(?!\1).)*)\1/g)].map(([, , title]) => title);
}

const escaped = (text) => text.replace(/[.*+?^${}()|[\]\\]/g, '\\$&');
const contains = (text, name) => text.toLowerCase().includes(name.toLowerCase());

/** Files are matched by their path below `root`, so that a folder's name selects what is in it. */
const fileMatches = (file, root, name) => contains(path.relative(root, file), name);

function selectUnit(files, root, names) {
  return files.flatMap(({ file, text }) => {
    const cases = unitCases(text);
    const whole = names.some((name) => fileMatches(file, root, name));
    const wanted = cases.filter(([suite, title]) => whole || names.some((name) => contains(`${suite}.${title}`, name)));
    return wanted.length > 0 ? [{ file, cases: wanted }] : [];
  });
}

function selectScript(files, root, names) {
  return files.flatMap(({ file, text }) => {
    if (names.some((name) => fileMatches(file, root, name))) {
      return [{ file, titles: null }];
    }
    const titles = scriptTitles(text).filter((title) => names.some((name) => contains(title, name)));
    return titles.length > 0 ? [{ file, titles }] : [];
  });
}

/**
 * The tests whose file (path below `root`) or title contains one of `names`, whatever the case of the letters.
 * `sources`: { unit, script, browser }, each a list of { file, text }. Gives lists under the same names: of unit
 * tests { file, cases }, of the others { file, titles }, with `titles` null for a whole file.
 */
export function selectTests(sources, root, names) {
  return {
    unit: selectUnit(sources.unit, root, names),
    script: selectScript(sources.script, root, names),
    browser: selectScript(sources.browser, root, names),
  };
}

/** A regular expression for `ctest -R` that finds just these cases, with or without a parameter behind them. */
export function ctestPattern(selection) {
  const names = selection.flatMap(({ cases }) => cases.map(([suite, title]) => `${escaped(suite)}\\.${escaped(title)}`));
  return `(^|/)(${[...new Set(names)].join('|')})(/|$)`;
}

/** A regular expression for Node's --test-name-pattern; null if all tests of all files are wanted. */
export function namePattern(selection) {
  if (selection.some(({ titles }) => titles === null)) {
    return null;
  }
  return `^(${[...new Set(selection.flatMap(({ titles }) => titles))].map(escaped).join('|')})$`;
}

/** The relative modules that a script imports, as full paths. */
export function importsOf(file, text) {
  return [...text.matchAll(/\b(?:from|import)\s*\(?\s*['"](\.{1,2}\/[^'"]+)['"]/g)]
    .map(([, specifier]) => path.resolve(path.dirname(file), specifier));
}

/** Whether `file` is one of `wanted` or imports one, directly or by way of others. `read`: text of a file, '' if absent. */
export function reaches(file, wanted, read, seen = new Set()) {
  if (wanted.has(file)) {
    return true;
  }
  if (seen.has(file)) {
    return false;
  }
  seen.add(file);
  return importsOf(file, read(file)).some((imported) => reaches(imported, wanted, read, seen));
}

/**
 * The tests that changed files concern: changed tests, the unit tests of a changed C++ file (its own `*_test.cpp`, or
 * those of its folder if it has none), and the script tests that import a changed script. `changed`: full paths.
 */
export function selectChanged(sources, root, changed, read) {
  const wanted = new Set(changed);
  const unitOf = (file) => {
    const [top, ...rest] = path.relative(root, file).split(path.sep);
    if (top !== 'src' && top !== 'simulator') {
      return [];
    }
    const folder = path.join(root, 'test', 'unit', ...(top === 'src' ? [] : [top]), ...rest.slice(0, -1));
    const own = path.join(folder, `${path.parse(file).name}_test.cpp`);
    const found = sources.unit.filter((test) => test.file === own);
    return found.length > 0 ? found : sources.unit.filter((test) => path.dirname(test.file) === folder);
  };
  const isCpp = (file) => /\.(cpp|h)$/.test(file);
  const unit = new Set([...sources.unit.filter(({ file }) => wanted.has(file)), ...changed.filter(isCpp).flatMap(unitOf)]);
  const scripts = (list) => list.filter(({ file }) => reaches(file, wanted, read)).map(({ file }) => ({ file, titles: null }));
  return {
    unit: [...unit].map(({ file, text }) => ({ file, cases: unitCases(text) })),
    script: scripts(sources.script),
    browser: scripts(sources.browser),
  };
}
