// The types of ostrel-native for CommonJS; index.d.ts tells how to read them.

/** The native object as it stands. */
declare const native: native.OstrelNative;

declare namespace native {
  export type AddonFunctions = import('./types/addon.cjs').AddonFunctions;
  export type CameraBackend = import('./types/cameras.cjs').CameraBackend;
  export type CameraFormat = import('./types/cameras.cjs').CameraFormat;
  export type ImageControlRange = import('./types/cameras.cjs').ImageControlRange;
  export type ImageControlValue = import('./types/cameras.cjs').ImageControlValue;
  export type ImageControlResult = import('./types/cameras.cjs').ImageControlResult;
  export type CameraFunctions = import('./types/cameras.cjs').CameraFunctions;
  export type CameraConstants = import('./types/cameras.cjs').CameraConstants;
  export type Bytes = import('./types/stills.cjs').Bytes;
  export type PixelFormat = import('./types/stills.cjs').PixelFormat;
  export type FrameInfo = import('./types/stills.cjs').FrameInfo;
  export type GrabbedFrame = import('./types/stills.cjs').GrabbedFrame;
  export type UngrabbedFrame = import('./types/stills.cjs').UngrabbedFrame;
  export type RgbaFrame = import('./types/stills.cjs').RgbaFrame;
  export type NoRgbaFrame = import('./types/stills.cjs').NoRgbaFrame;
  export type EncodedFrame = import('./types/stills.cjs').EncodedFrame;
  export type NoEncodedFrame = import('./types/stills.cjs').NoEncodedFrame;
  export type StillFunctions = import('./types/stills.cjs').StillFunctions;
  export type PreviewFrame = import('./types/preview.cjs').PreviewFrame;
  export type DirectPreviewFrame = import('./types/preview.cjs').DirectPreviewFrame;
  export type NoPreviewFrame = import('./types/preview.cjs').NoPreviewFrame;
  export type QualityFrame = import('./types/preview.cjs').QualityFrame;
  export type NoQualityFrame = import('./types/preview.cjs').NoQualityFrame;
  export type PreviewFunctions = import('./types/preview.cjs').PreviewFunctions;
  export type RecordingStatus = import('./types/recording.cjs').RecordingStatus;
  export type RecordingFunctions = import('./types/recording.cjs').RecordingFunctions;
  export type FusionFrame = import('./types/fusion.cjs').FusionFrame;
  export type FusionField = import('./types/fusion.cjs').FusionField;
  export type FusionRequest = import('./types/fusion.cjs').FusionRequest;
  export type FusionResult = import('./types/fusion.cjs').FusionResult;
  export type FusionFunctions = import('./types/fusion.cjs').FusionFunctions;
  export type MicroscopeDevice = import('./types/vendor.cjs').MicroscopeDevice;
  export type DinoLiteBackend = import('./types/dino-lite.cjs').DinoLiteBackend;
  export type DinoLiteLoadResult = import('./types/dino-lite.cjs').DinoLiteLoadResult;
  export type DinoLiteBackendSelection = import('./types/dino-lite.cjs').DinoLiteBackendSelection;
  export type DinoLiteDebugState = import('./types/dino-lite.cjs').DinoLiteDebugState;
  export type DinoLiteFunctions = import('./types/dino-lite.cjs').DinoLiteFunctions;
  export type OstrelLoadResult = import('./types/ostrel.cjs').OstrelLoadResult;
  export type OstrelPixelSize = import('./types/ostrel.cjs').OstrelPixelSize;
  export type OstrelLensGroup = import('./types/ostrel.cjs').OstrelLensGroup;
  export type OstrelCapabilities = import('./types/ostrel.cjs').OstrelCapabilities;
  export type OstrelVersionInfo = import('./types/ostrel.cjs').OstrelVersionInfo;
  export type OstrelProtocolVersionInfo = import('./types/ostrel.cjs').OstrelProtocolVersionInfo;
  export type OstrelFunctions = import('./types/ostrel.cjs').OstrelFunctions;
  export type OstrelNative = import('./types/native.cjs').OstrelNative;
}

export = native;
