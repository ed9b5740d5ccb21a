// What must type-check of the kit.

import native from 'ostrel-native';
import {
  CameraWatch, type DoctorReport, type FusedStack, type Microscope, type PreviewFrame, Recording, type RecordingEnd,
  type RecordingResult, colourTags, dinoLiteCommands, doctor, formatReport, frames, fuseStack, ostrelCommands, record,
  watchCamera, watchDinoLite, watchOstrel,
} from 'ostrel-native/kit';

const { signal } = new AbortController();
const maybe: AbortSignal | undefined = Math.random() > 2 ? signal : undefined;

for await (const frame of frames({ native, device: () => 0, capture: { format: 2 }, preview: { frameRate: 60 }, signal: maybe })) {
  const whole: PreviewFrame = frame;
  const bytes: Uint8Array = whole.data;
  console.log(frame.sequence + frame.missed, bytes.length, frame.pixelFormat.length);
}
const iteration = frames();
const { done }: { done?: boolean } = await iteration.next();
await iteration.return();

const watch: CameraWatch = watchCamera({ native, uniqueId: 'a', start: true, capture: {}, preview: {} });
watch.on('lost', ({ uniqueId, reason }) => console.log(uniqueId.length, reason === 'missing'));
watch.once('stalled', ({ silentMs }) => console.log(silentMs.toFixed(0)));
const where: number = watch.state === 'lost' ? -1 : watch.device;
await watch.close();

const recording: Recording = await record({ native, file: 'a.mp4', seconds: 10, signal });
recording.on('progress', ({ bytes, framesDropped }) => console.log(bytes + framesDropped))
  .on('end', ({ reason }) => console.log(reason satisfies RecordingEnd));
for await (const { elapsedMs } of recording) {
  console.log(elapsedMs.toFixed(0), recording.warnings.map(({ message }) => message).join(), done, where);
}
const result: RecordingResult = await recording.stop();
console.log(result.error?.message ?? result.bytes, colourTags(960, 540).differ);

const fused: FusedStack = await fuseStack({
  frames: [{ width: 1, height: 1, rgba: new Uint8Array(4) }],
  onProgress: ({ stage, done: share }) => console.log(stage === 'fusing', share.toFixed(2)),
});
console.log(fused.rgba.length, fused.frames[0]?.weights.length, fused.sources?.length);

const commands = ostrelCommands({ native });
const list: Microscope[] = await commands.devices({ signal });
await commands.setFocus(list.length);
const mode: number = await dinoLiteCommands().toggleLed();

const ostrel = watchOstrel({ device: 'id', pollMs: 20 });
ostrel.on('focus', ({ position }) => console.log(position ?? mode)).on('lens', (lens) => console.log(lens?.driver));
ostrel.on('trouble', (error) => console.log(error.message)).close();
const dinoLite = watchDinoLite({ device: 0, microtouch: false });
dinoLite.on('magnification', ({ magnification }) => console.log(magnification?.toFixed(1), dinoLite.state.fieldOfView));
dinoLite.close();

const report: DoctorReport = await doctor({ need: ['camera', 'dino-lite'] });
console.log(formatReport(report), report.findings.filter(({ essential }) => essential).map(({ remedy }) => remedy?.length));
