// What the viewer takes on its command line. Needs no npm package, so that the command can refuse an
// argument before it sets anything up.

const usualPort = 8391;
const usualLingerSeconds = 30;

/** What `util.parseArgs` takes, and the text of --help. */
export const viewerArguments = {
  synopsis: '[--port N] [--output FOLDER] [--camera FILE] [--ostrel FILE] [--dino-lite FILE] [--linger SECONDS]',
  summary: 'Serves the viewer on a local page. Without a library it shows the virtual microscope.',
  rows: [
    ['--port N', `port on this machine, 0 for any free one (${usualPort})`],
    ['--output FOLDER', 'where pictures and recordings go (recordings/)'],
    ['--camera FILE', 'a camera library'],
    ['--ostrel FILE', 'an Ostrel microscope library'],
    ['--dino-lite FILE', 'a Dino-Lite microscope library'],
    ['--linger SECONDS', `how long to go on without a page (${usualLingerSeconds})`],
  ],
  options: {
    port: { type: 'string', default: String(usualPort) },
    output: { type: 'string' },
    camera: { type: 'string' },
    ostrel: { type: 'string' },
    'dino-lite': { type: 'string' },
    linger: { type: 'string', default: String(usualLingerSeconds) },
  },
};
