// Which H.264 encoders a recording tries, from hardware to software, and in which order.
#pragma once

#include <string>
#include <vector>

#include "recording/ffmpeg_api.h"

namespace ostrel_native {

/// An encoder to try.
struct EncoderCandidate {
  std::string name;    ///< FFmpeg's name of the encoder
  bool vaapi = false;  ///< it takes VAAPI surfaces; all others take NV12 from memory

  bool operator==(const EncoderCandidate&) const = default;
};

/// The encoder that the environment asks for; empty if it leaves the choice to the machine.
/// Thread: any.
std::string ForcedEncoder();

/// The encoders to try, in order: `forced` alone if it is not empty; otherwise those of the
/// hardware whose device nodes are open to this process, then the others.
/// Thread: any.
std::vector<EncoderCandidate> CandidateList(const std::string& forced, bool hasRenderNode,
                                            bool hasNvidiaNodes);

/// The candidate list of this machine.
/// Thread: any.
std::vector<EncoderCandidate> MachineCandidates(const std::string& forced);

/// Whether `directory` holds a render node that this process may read and write.
/// Thread: any.
bool HasUsableRenderNode(const std::string& directory);

/// Whether this process may read and write both device nodes.
/// Thread: any.
bool HasUsableNvidiaNodes(const std::string& devicePath, const std::string& controlPath);

/// Whether the loaded FFmpeg knows any H.264 encoder; opens none.
/// Thread: any.
bool HasPotentialH264Encoder(FfmpegApi& api);

}  // namespace ostrel_native
