// The recording that the kit has open: there is one recorder in a process.

/** For each native object, who holds its recorder: { file, finish(reason) }. */
const holders = new WeakMap();

/** Takes the recorder for `holder`, or throws: starting another recording would end the one that runs. */
export function takeRecorder(native, holder) {
  const present = holders.get(native);
  if (present) {
    throw new Error(`A recording is running already, to ${present.file}: stop it first.`);
  }
  holders.set(native, holder);
}

export const releaseRecorder = (native, holder) => {
  if (holders.get(native) === holder) {
    holders.delete(native);
  }
};

/** Finishes the recording that is open, if there is one, and waits for its file. */
export async function finishRecordings(native, reason) {
  await holders.get(native)?.finish(reason);
}
