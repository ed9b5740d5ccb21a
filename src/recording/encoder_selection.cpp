#include "recording/encoder_selection.h"

#include <dirent.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

namespace ostrel_native {
namespace {

constexpr char kRenderNodeDirectory[] = "/dev/dri";
constexpr char kNvidiaDevice[] = "/dev/nvidia0";
constexpr char kNvidiaControl[] = "/dev/nvidiactl";

constexpr char kVaapiEncoder[] = "h264_vaapi";

bool MayReadAndWrite(const std::string& path) {
  return access(path.c_str(), R_OK | W_OK) == 0;
}

}  // namespace

std::string ForcedEncoder() {
  const char* const value = std::getenv("OSTREL_FFMPEG_ENCODER");
  const std::string name = value == nullptr ? "" : value;
  return name == "auto" ? std::string() : name;
}

std::vector<EncoderCandidate> CandidateList(const std::string& forced, bool hasRenderNode,
                                            bool hasNvidiaNodes) {
  if (!forced.empty()) {
    return {{forced, forced == kVaapiEncoder}};
  }
  std::vector<EncoderCandidate> candidates;
  if (hasRenderNode) {
    candidates.push_back({kVaapiEncoder, true});
    candidates.push_back({"h264_qsv", false});
  }
  if (hasNvidiaNodes) {
    candidates.push_back({"h264_nvenc", false});
  }
  for (const char* const name : {"h264_v4l2m2m", "libx264", "libopenh264", "h264"}) {
    candidates.push_back({name, false});
  }
  return candidates;
}

std::vector<EncoderCandidate> MachineCandidates(const std::string& forced) {
  return CandidateList(forced, HasUsableRenderNode(kRenderNodeDirectory),
                       HasUsableNvidiaNodes(kNvidiaDevice, kNvidiaControl));
}

bool HasUsableRenderNode(const std::string& directory) {
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(directory.c_str()), &closedir);
  if (listing == nullptr) {
    return false;
  }
  while (const dirent* const entry = readdir(listing.get())) {
    const std::string name = entry->d_name;
    if (name.starts_with("renderD") && MayReadAndWrite(JoinPath(directory, name))) {
      return true;
    }
  }
  return false;
}

bool HasUsableNvidiaNodes(const std::string& devicePath, const std::string& controlPath) {
  return MayReadAndWrite(devicePath) && MayReadAndWrite(controlPath);
}

bool HasPotentialH264Encoder(FfmpegApi& api) {
  for (const char* const name : {kVaapiEncoder, "h264_nvenc", "h264_qsv", "h264_v4l2m2m", "libx264",
                                 "libopenh264", "h264"}) {
    if (api.avcodec_find_encoder_by_name(name) != nullptr) {
      return true;
    }
  }
  return api.avcodec_find_encoder(AV_CODEC_ID_H264) != nullptr;
}

}  // namespace ostrel_native
