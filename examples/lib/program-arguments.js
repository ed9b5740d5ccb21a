// What the examples take on their command lines. Needs no npm package, so that a command can refuse
// an argument before it sets anything up.

const microscope = {
  synopsis: '[--library FILE] [--device N]',
  summary: 'A microscope at work, live: polls, light and button.',
  rows: [
    ['--library FILE', 'the microscope library; without it the virtual microscope'],
    ['--device N', 'which microscope, from 0 (0)'],
  ],
  options: { library: { type: 'string' }, device: { type: 'string', default: '0' } },
};

/** By the name of the example: what `util.parseArgs` takes, and the text of --help. */
export const programArguments = {
  'dino-lite': microscope,
  ostrel: microscope,
  'first-run': {
    synopsis: '[--library FILE] [--seconds N] [--direct]',
    summary: 'Lists cameras, shows a preview, records an MP4 and takes a still.',
    rows: [
      ['--library FILE', 'the camera library; without it the virtual microscope'],
      ['--seconds N', 'length of the recording (10)'],
      ['--direct', 'show frames without a copy, through a reference library with a frame callback'],
    ],
    options: {
      library: { type: 'string' },
      seconds: { type: 'string', default: '10' },
      direct: { type: 'boolean', default: false },
    },
  },
  fuse: {
    synopsis: 'FOLDER [--output FOLDER]',
    summary: 'Measures and fuses the pictures (PNG, JPEG) of one focus stack.',
    rows: [
      ['FOLDER', 'the pictures of the stack'],
      ['--output FOLDER', 'where the results go (a new folder in recordings/)'],
    ],
    options: { output: { type: 'string' } },
    allowPositionals: true,
  },
  stack: {
    synopsis: '[--from N] [--to N] [--steps N] [--width N] [--output FOLDER]',
    summary: 'Drives the focus through the specimen, takes a still at each step and fuses them.',
    rows: [
      ['--from N', 'first focus position, 0 to 255 (48)'],
      ['--to N', 'last focus position, 0 to 255 (208)'],
      ['--steps N', 'number of pictures'],
      ['--width N', 'width of the camera format to use'],
      ['--output FOLDER', 'where the results go (a new folder in recordings/)'],
    ],
    options: {
      from: { type: 'string', default: '48' },
      to: { type: 'string', default: '208' },
      steps: { type: 'string' },
      width: { type: 'string' },
      output: { type: 'string' },
    },
  },
};
