// Comfort for script code beside the native object. See index.d.ts and docs/kit.md.

export { CameraWatch, watchCamera } from './camera-watch.js';
export { dinoLiteCommands, ostrelCommands } from './microscope-commands.js';
export { DinoLiteWatch, watchDinoLite } from './dino-lite-watch.js';
export { doctor, formatReport } from './doctor.js';
export { frames } from './frames.js';
export { OstrelWatch, watchOstrel } from './ostrel-watch.js';
export { record } from './recording.js';
export { colourTags } from './recording-plan.js';
export { Recording } from './recording-session.js';
export { fuseStack } from './stack-fusion.js';
