// The examples in the Markdown pages, as programs to run.
//
// Every fenced block names its language. A js block that imports or requires something begins a
// program; one that does not goes on with the program above it. A js block with "file=NAME" behind
// the language is that file beside the page's programs. A ts block is a program by itself. Blocks of
// other known languages are no programs; an unknown language, or none, is a fault.

import { sourceFiles } from '../../../scripts/lib/source-files.js';

const otherLanguages = ['sh', 'json', 'yaml', 'text', 'html', 'css', 'cpp', 'diff'];

/** All pages of the project. */
export const markdownFiles = () => sourceFiles(['*.md']);

/** The fenced blocks of a page, [{ line, language, words, text }], and the lines outside of them. */
function readBlocks(markdown) {
  const blocks = [];
  const prose = [];
  let block = null;
  markdown.split('\n').forEach((text, index) => {
    const fence = /^( *)(`{3,}|~{3,})\s*(.*)$/.exec(text);
    if (block && fence && fence[2] === block.fence && fence[3] === '') {
      blocks.push(block);
      block = null;
    } else if (block) {
      block.lines.push(text.startsWith(block.indent) ? text.slice(block.indent.length) : text);
    } else if (fence) {
      const [language = '', ...words] = fence[3].split(/\s+/);
      block = { line: index + 1, indent: fence[1], fence: fence[2], language, words, lines: [] };
    } else {
      prose.push({ line: index + 1, text });
    }
  });
  return { blocks, prose, unclosed: block };
}

const beginsProgram = (text) => /^\s*import\b|\brequire\(/m.test(text);
const isCommonJs = (text) => /\brequire\(/.test(text) && !/^\s*import\b/m.test(text);

/**
 * The programs of a page: { programs: [{ line, extension, text }], files: [{ line, name, text }],
 * faults: [text with the line in front] }.
 */
export function readExamples(markdown) {
  const { blocks, prose, unclosed } = readBlocks(markdown);
  const programs = [];
  const files = [];
  const faults = [];
  const fault = (line, words) => faults.push(`line ${line}: ${words}`);
  if (unclosed) {
    fault(unclosed.line, 'the block has no end');
  }
  for (const { line, text } of prose) {
    if (/^ {4,}\S.*[;{]$/.test(text)) {
      fault(line, 'indented code is not run: put it in a block of ```js');
    }
  }
  for (const { line, language, words, lines } of blocks) {
    const text = `${lines.join('\n')}\n`;
    const name = words.length === 1 && /^file=([\w.-]+)$/.exec(words[0])?.[1];
    if (words.length > 0 && !name) {
      fault(line, `"${words.join(' ')}" behind the language means nothing`);
    } else if (name) {
      files.push({ line, name, text });
    } else if (language === 'ts') {
      programs.push({ line, extension: 'ts', text });
    } else if (language !== 'js') {
      if (!otherLanguages.includes(language)) {
        fault(line, `the language "${language}" is none of js, ts, ${otherLanguages.join(', ')}`);
      }
    } else if (beginsProgram(text)) {
      programs.push({ line, extension: isCommonJs(text) ? 'cjs' : 'mjs', text });
    } else if (programs.length === 0) {
      fault(line, 'the first block imports nothing, so it cannot be run');
    } else {
      const program = programs.at(-1);
      program.text += `\n${text}`;
    }
  }
  for (const { line, name } of files) {
    if (![...programs, ...files.filter((file) => file.name !== name)].some(({ text }) => text.includes(name))) {
      fault(line, `no program of the page uses ${name}`);
    }
  }
  return { programs, files, faults };
}
