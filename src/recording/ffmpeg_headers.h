// The FFmpeg headers, of the one generation whose structures the addon reads and writes.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/buffer.h>
#include <libavutil/dict.h>
#include <libavutil/error.h>
#include <libavutil/frame.h>
#include <libavutil/hwcontext.h>
#include <libavutil/log.h>
#include <libavutil/mathematics.h>
#include <libavutil/opt.h>
}

namespace ostrel_native {

/// The major versions that a runtime must report: with any other the structures differ.
inline constexpr unsigned kAvcodecMajor = 58;
inline constexpr unsigned kAvformatMajor = 58;
inline constexpr unsigned kAvutilMajor = 56;

static_assert(LIBAVCODEC_VERSION_MAJOR == kAvcodecMajor);
static_assert(LIBAVFORMAT_VERSION_MAJOR == kAvformatMajor);
static_assert(LIBAVUTIL_VERSION_MAJOR == kAvutilMajor);

}  // namespace ostrel_native
