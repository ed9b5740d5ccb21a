// The complete native object.

import type { AddonFunctions } from './addon.cjs';
import type { CameraFunctions, CameraConstants } from './cameras.cjs';
import type { StillFunctions } from './stills.cjs';
import type { PreviewFunctions } from './preview.cjs';
import type { RecordingFunctions } from './recording.cjs';
import type { FusionFunctions } from './fusion.cjs';
import type { DinoLiteFunctions } from './dino-lite.cjs';
import type { OstrelFunctions } from './ostrel.cjs';

/** The native object: 95 functions and 16 constants. */
export interface OstrelNative
  extends AddonFunctions,
    CameraFunctions,
    CameraConstants,
    StillFunctions,
    PreviewFunctions,
    RecordingFunctions,
    FusionFunctions,
    DinoLiteFunctions,
    OstrelFunctions {}
