// The fake of libjpeg-turbo, for the failures that the real library can't be brought to.
//
// Output parameters, as `symbol.field`:
//   tjDecompressHeader3: width, height, subsampling, colorspace, all 0 unless scripted
//   tjDecompressToYUVPlanes: y, u, v, the bytes to fill the planes with; chroma_width and
//     chroma_height, the size of U and V; planes with a byte of -1 stay as they are
//   tjDecompress2: the byte to fill all rows with, as `byte`; -1 leaves them as they are
// tjInitDecompress gives a decompressor, and null where 0 is scripted.
#include <cstddef>
#include <cstring>
#include <iterator>

#include "fakes/fake_control.h"

#pragma GCC visibility push(default)
#include <turbojpeg.h>
#pragma GCC visibility pop

namespace ostrel_native {

const char* const kFakeSymbols[] = {
#define SYMBOL(name) #name,
#include "camera/frames/turbojpeg_symbols.h"
    nullptr};
static_assert(std::size(kFakeSymbols) == 8 + 1);

}  // namespace ostrel_native

namespace {

using ostrel_native::FakeCall;

void FillRows(unsigned char* rows, int rowBytes, int stride, int count, int byte) {
  if (rows == nullptr || byte < 0) {
    return;
  }
  for (int row = 0; row < count && rowBytes > 0; ++row) {
    std::memset(rows + std::ptrdiff_t{row} * stride, byte, static_cast<std::size_t>(rowBytes));
  }
}

}  // namespace

tjhandle tjInitDecompress() {
  static char decompressor;
  return FakeCall(__func__, {}, 1).Result() == 0 ? nullptr : &decompressor;
}

int tjDestroy(tjhandle handle) {
  return FakeCall(__func__, {handle}).Result();
}

int tjDecompressHeader3(tjhandle handle, const unsigned char* jpegBuf, unsigned long jpegSize,
                        int* width, int* height, int* jpegSubsamp, int* jpegColorspace) {
  const FakeCall call(__func__, {handle, jpegBuf, jpegSize});
  *width = call.Field("width");
  *height = call.Field("height");
  *jpegSubsamp = call.Field("subsampling");
  *jpegColorspace = call.Field("colorspace");
  return call.Result();
}

int tjDecompressToYUVPlanes(tjhandle handle, const unsigned char* jpegBuf, unsigned long jpegSize,
                            unsigned char** dstPlanes, int width, int* strides, int height,
                            int flags) {
  const FakeCall call(__func__, {handle, jpegBuf, jpegSize, width, height, flags});
  const int chromaWidth = call.Field("chroma_width");
  const int chromaHeight = call.Field("chroma_height");
  FillRows(dstPlanes[0], width, strides[0], height, call.Field("y", -1));
  FillRows(dstPlanes[1], chromaWidth, strides[1], chromaHeight, call.Field("u", -1));
  FillRows(dstPlanes[2], chromaWidth, strides[2], chromaHeight, call.Field("v", -1));
  return call.Result();
}

int tjDecompress2(tjhandle handle, const unsigned char* jpegBuf, unsigned long jpegSize,
                  unsigned char* dstBuf, int width, int pitch, int height, int pixelFormat,
                  int flags) {
  const FakeCall call(__func__,
                      {handle, jpegBuf, jpegSize, width, pitch, height, pixelFormat, flags});
  FillRows(dstBuf, 3 * width, pitch, height, call.Field("byte", -1));
  return call.Result();
}

int tjPlaneWidth(int componentID, int width, int subsamp) {
  return FakeCall(__func__, {componentID, width, subsamp}).Result();
}

int tjPlaneHeight(int componentID, int height, int subsamp) {
  return FakeCall(__func__, {componentID, height, subsamp}).Result();
}

char* tjGetErrorStr2(tjhandle handle) {
  const FakeCall call(__func__, {handle});
  static char text[] = "scripted failure";
  return text;
}
