// What must not type-check of the kit.

import { CameraWatch, Recording, doctor, frames, fuseStack, ostrelCommands, record, watchCamera, watchDinoLite, watchOstrel } from 'ostrel-native/kit';

// @ts-expect-error: a camera is a number
frames({ device: '0' });
// @ts-expect-error: a preview has its size and rate
frames({ preview: true });
// @ts-expect-error: no such option
frames({ fps: 30 });
// @ts-expect-error: the native object is more than that
frames({ native: { getLastError: () => '' } });
// @ts-expect-error: a recording has a file
await record({});
// @ts-expect-error: made by record alone
new Recording();
// @ts-expect-error: made by watchCamera alone
new CameraWatch();
// @ts-expect-error: no such event
watchCamera().on('gone', () => {});
const watch = watchCamera();
// @ts-expect-error: the camera is where it is
watch.device = 1;
// @ts-expect-error: a stack has frames
await fuseStack({});
// @ts-expect-error: frames as pixels, not as files
await fuseStack({ frames: ['a.png'] });
const fused = await fuseStack({ frames: [] });
// @ts-expect-error: they come back only where they were handed over
fused.sources.length;
// @ts-expect-error: a position is a number
await ostrelCommands().setFocus('7');
// @ts-expect-error: it may not be known
watchOstrel().on('focus', ({ position }) => position.toFixed(0));
// @ts-expect-error: an Ostrel has no ring to be read
watchOstrel().on('magnification', () => {});
// @ts-expect-error: it may not be known
watchDinoLite().state.magnification.toFixed(1);
// @ts-expect-error: no such need
await doctor({ need: ['sound'] });
