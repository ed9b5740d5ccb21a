// What both microscope families have in common.

/** One attached microscope. */
export interface MicroscopeDevice {
  /** The index for selecting it. Indices change when a microscope is plugged in or out. */
  index: number;
  /** What identifies this one device; empty if its library gave nothing. */
  uniqueId: string;
  /** Its name for people; empty if its library gave nothing. */
  name: string;
}
