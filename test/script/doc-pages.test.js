// What the pages say of the functions, and where their links lead.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';

import * as kit from '../../kit/index.js';
import { markdownFiles } from './support/doc-examples.js';
import { loadAddon } from './support/environment.js';
import { root } from './support/packed.js';

const pages = markdownFiles().map((file) => ({ file, page: path.relative(root, file), text: fs.readFileSync(file, 'utf8') }));
const { files: packed } = JSON.parse(fs.readFileSync(path.join(root, 'package.json'), 'utf8'));

/** The anchor that a heading gets. */
const anchorOf = (heading) => heading.toLowerCase().replace(/[^\w\- ]/g, '').replaceAll(' ', '-');
const anchorsOf = (text) => [...text.matchAll(/^#+ (.*)$/gm)].map(([, heading]) => anchorOf(heading));
const linksOf = (text) => [...text.replace(/^```[^]*?^```$/gm, '').matchAll(/\]\(([^)\s]+)\)/g)].map(([, link]) => link).filter((link) => !/^https?:/.test(link));
const isPacked = (page) => packed.some((entry) => page === entry || (entry.endsWith('/') && page.startsWith(entry)));

describe('the pages about the functions', () => {
  const api = pages.filter(({ page }) => page.startsWith('docs/api/'));
  const named = new Set(api.flatMap(({ text }) => [...text.matchAll(/`([A-Za-z_]+)\b/g)].map(([, name]) => name)));

  it('tell of every function and constant', () => {
    assert.deepEqual(Object.keys(loadAddon()).filter((name) => !named.has(name)), []);
  });

  it('say of every function of a microscope how it waits, and say what is true', () => {
    const { text } = api.find(({ page }) => page === 'docs/api/devices.md');
    const kinds = new Map([...text.matchAll(/^\| (polls|looks|direct calls|waiting calls) \| (.*?) \|/gm)]
      .map(([, kind, names]) => [kind, [...names.matchAll(/`(\w+)`/g)].map(([, name]) => name)]));
    // What the declarations say of the same function.
    const declared = new Map([...fs.readFileSync(path.join(root, 'types', 'ostrel.d.cts'), 'utf8')
      .concat(fs.readFileSync(path.join(root, 'types', 'dino-lite.d.cts'), 'utf8'))
      .matchAll(/\/\*\*((?:(?!\*\/)[^])*)\*\/\n {2}(\w+)\(/g)].map(([, comment, name]) => [name, comment]));
    const kindOf = (name) => {
      const comment = declared.get(name);
      if (name.endsWith('Async')) {
        return 'promises';
      }
      if (/^ {3}\* - Blocks: no\.$/m.test(comment)) {
        return /A poll: /.test(comment) ? 'polls' : 'looks';
      }
      return /- Thread: any environment, also for the call into the library\./.test(comment) ? 'direct calls' : 'waiting calls';
    };
    const named = [...kinds.values()].flat();
    assert.equal(new Set(named).size, named.length);
    const families = Object.keys(loadAddon()).filter((name) => /^(load)?(ostrel|dinoLite)/i.test(name));
    assert.equal(families.length, 51);
    for (const name of families) {
      const kind = [...kinds].find(([, names]) => names.includes(name))?.[0] ?? (name.endsWith('Async') ? 'promises' : 'waiting calls');
      assert.equal(kind, kindOf(name), name);
    }
  });

  it('tell of none that does not exist', () => {
    const addon = loadAddon();
    const families = /^(camera|ostrel|dinoLite|turboJpeg|edof|load|lock|unlock|getLast)[A-Z]\w*$|^(VIDEOPROCAMP|RESULT|STATUS)_/;
    const everywhere = pages.filter(({ page }) => page === 'README.md' || isPacked(page));
    const unknown = everywhere.flatMap(({ page, text }) => [...text.matchAll(/`(?:native\.)?([A-Za-z_]+)\b/g)]
      .map(([, name]) => name)
      .filter((name) => families.test(name) && !(name in addon) && !(name in kit))
      .map((name) => `${page}: ${name}`));
    assert.deepEqual(unknown, []);
  });
});

describe('the links of the pages', () => {
  it('lead somewhere', () => {
    const broken = pages.flatMap(({ file, page, text }) => linksOf(text).filter((link) => {
      const [target, anchor] = link.split('#');
      const whole = target === '' ? file : path.resolve(path.dirname(file), target);
      if (!fs.existsSync(whole)) {
        return true;
      }
      return anchor !== undefined && !anchorsOf(fs.readFileSync(whole, 'utf8')).includes(anchor);
    }).map((link) => `${page}: ${link}`));
    assert.deepEqual(broken, []);
  });

  it('stay in the package on the pages that are packed', () => {
    const leaving = pages.filter(({ page }) => isPacked(page)).flatMap(({ file, page, text }) => linksOf(text)
      .filter((link) => !link.startsWith('#'))
      .map((link) => path.relative(root, path.resolve(path.dirname(file), link.split('#')[0])))
      .filter((target) => !isPacked(target) && target !== 'README.md')
      .map((target) => `${page}: ${target}`));
    assert.deepEqual(leaving, []);
  });
});
