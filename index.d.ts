// The types of ostrel-native.
//
// The functions are declared in types/, by task. Each one documents its result and failures, and then
//   Blocks:      how long the call blocks the calling thread;
//   Thread:      which environments may call it, and where the work runs;
//   Error text:  the call's effect on the text of getLastError().
// A missing argument, or one of another type, counts as its documented default, 0 or -1. Nothing is converted,
// and nothing throws unless the function's documentation says so.

import type { OstrelNative } from './types/native.cjs';

export type * from './types/addon.cjs';
export type * from './types/cameras.cjs';
export type * from './types/stills.cjs';
export type * from './types/preview.cjs';
export type * from './types/recording.cjs';
export type * from './types/fusion.cjs';
export type * from './types/vendor.cjs';
export type * from './types/dino-lite.cjs';
export type * from './types/ostrel.cjs';
export type * from './types/native.cjs';

/** The native object. */
declare const native: OstrelNative;
export default native;
