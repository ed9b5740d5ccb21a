// The functions of the TurboJPEG API that the addon binds at run time, one a line, in the order
// in which they are resolved. Included with SYMBOL(name) defined; undefined again at the end.
// Types come from <turbojpeg.h>: `decltype(&::name)`. No include guard.
#ifndef SYMBOL
#error "define SYMBOL(name) first"
#endif

// clang-format off
SYMBOL(tjInitDecompress)
SYMBOL(tjDestroy)
SYMBOL(tjDecompressHeader3)
SYMBOL(tjDecompressToYUVPlanes)
SYMBOL(tjDecompress2)
SYMBOL(tjPlaneWidth)
SYMBOL(tjPlaneHeight)
SYMBOL(tjGetErrorStr2)  // a complete library has it; nothing calls it
// clang-format on

#undef SYMBOL
