// The types of ostrel-native.
//
// The functions stand in types/, by task; each tells what it gives and what its failures mean, and then
//   Blocks:      for how long the caller's thread stands still;
//   Thread:      where the work runs. "Script" is the thread that calls;
//   Error text:  what the call does to the text of getLastError().
// A missing argument, or one of another type, counts as the default that is named with it, 0 or -1: nothing is converted,
// and nothing throws unless the function says so.

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

/** The native object as it stands. */
declare const native: OstrelNative;
export default native;
