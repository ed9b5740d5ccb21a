// Shared by both microscope families.

/** One attached microscope. */
export interface MicroscopeDevice {
  /** The index for selecting it. Indices change when a microscope is plugged in or out. */
  index: number;
  /** Unique id of the device; empty if its library has none. */
  uniqueId: string;
  /** Display name; empty if its library has none. */
  name: string;
}
