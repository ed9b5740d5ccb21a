// What must type-check where the types of Node.js are not installed.

import native from 'ostrel-native';

const still = native.cameraPreviewGetLatestQualityFrame(0);
export const bytes: Uint8Array | null = still.data;
