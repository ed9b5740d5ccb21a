// What a page may ask for. Arguments come from outside: each is looked at before it is used.

import { previewSizes } from './camera.js';
import { fewestPictures, mostPictures } from './stack.js';

const isObject = (value) => typeof value === 'object' && value !== null && !Array.isArray(value);

function integer(args, name, least, most) {
  const value = args[name];
  if (!Number.isInteger(value) || value < least || value > most) {
    throw new Error(`"${name}" has to be a whole number from ${least} to ${most}.`);
  }
  return value;
}

function truth(args, name) {
  if (typeof args[name] !== 'boolean') {
    throw new Error(`"${name}" has to be true or false.`);
  }
  return args[name];
}

const focusPosition = (args, name) => integer(args, name, 0, 255);

/** The commands of a viewer by name, each a function of its arguments. */
function makeCommands({ camera, microscope, recording, stills, stack, misbehaviour, board }) {
  /** A change of the preview's size in the middle of a file would end it there. */
  const choose = async (changes) => {
    if (recording.phase !== 'idle') {
      throw new Error('A recording runs: end it before you change what it records.');
    }
    if (stack.isBusy) {
      throw new Error('A focus stack is under way: let it end, or cancel it, before you change the camera.');
    }
    await camera.choose(changes);
  };
  const needFocus = () => {
    if (!microscope.told.canFocus) {
      throw new Error('There is no microscope whose focus can be driven.');
    }
    if (stack.isBusy) {
      throw new Error('A focus stack is under way: it drives the focus.');
    }
  };
  return {
    camera: ({ uniqueId }) => {
      if (!camera.cameras.some((known) => known.uniqueId === uniqueId)) {
        throw new Error('There is no such camera.');
      }
      return choose({ camera: uniqueId, format: undefined });
    },
    format: (args) => choose({ format: integer(args, 'index', 0, (camera.camera?.formats.length ?? 0) - 1) }),
    preview: (args) => choose({ preview: integer(args, 'index', 0, previewSizes.length - 1) }),
    focus: (args) => {
      needFocus();
      return microscope.focus(focusPosition(args, 'position'));
    },
    step: (args) => {
      needFocus();
      return microscope.step(integer(args, 'direction', -1, 1));
    },
    autoFocus: () => {
      needFocus();
      return microscope.autoFocus();
    },
    light: (args) => microscope.light(truth(args, 'on')),
    still: () => stills.take(),
    record: () => recording.start(),
    stopRecording: () => recording.stop(),
    stack: (args) => {
      needFocus();
      return stack.take({ from: focusPosition(args, 'from'), to: focusPosition(args, 'to'),
        steps: integer(args, 'steps', fewestPictures, mostPictures) });
    },
    cancelStack: () => stack.cancel(),
    hand: (args) => misbehaviour.run(args),
    clearError: () => board.clearError(),
  };
}

/** Runs commands; those that fail are told in the log, too. */
export function commandRunner(desks) {
  const commands = makeCommands(desks);
  return async (name, args = {}) => {
    if (!Object.hasOwn(commands, name) || !isObject(args)) {
      throw new Error('The viewer has no such command.');
    }
    try {
      return await commands[name](args);
    } catch (error) {
      desks.board.log('refused', error.message);
      throw error;
    }
  };
}
