// Looking through the list of cameras.

import { CallError } from './results.js';

/** Throws where the camera library cannot tell how many cameras there are. */
export function expectCameras(native) {
  const count = native.cameraDevicesCount();
  if (count < 0) {
    throw new CallError({ call: 'cameraDevicesCount', code: count });
  }
}

/** The index of the camera with this unique id; -1 where it is not listed. */
export function findCamera(native, uniqueId) {
  const count = native.cameraDevicesCount();
  for (let index = 0; index < count; ++index) {
    if (native.cameraDeviceUniqueId(index) === uniqueId) {
      return index;
    }
  }
  return -1;
}
