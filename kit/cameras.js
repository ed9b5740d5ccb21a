// Looking through the list of cameras.

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
