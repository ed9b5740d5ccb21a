// Looks into a finished video file: with the FFmpeg command line, and at its boxes.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace ostrel_native {

/// The output, standard error included, of a shell command. Throws if it cannot be run.
std::string CommandOutput(const std::string& command);

/// `text` as one word of a shell command.
std::string Quoted(const std::string& text);

/// What ffprobe says of the file's video stream, by its names; `nb_read_frames` is counted by
/// decoding, `duration` is the file's, in seconds.
std::map<std::string, std::string> ProbedStream(const std::string& path);

/// The duration of each packet in the file, in seconds.
std::vector<double> PacketDurations(const std::string& path);

/// Every decoded picture as NV12, rows tight, one after the other.
std::string DecodedPictures(const std::string& path);

/// The complaints of decoding the whole file; empty for a file that plays.
std::string DecodingComplaints(const std::string& path);

/// The types of the boxes on the file's top level, in order.
std::vector<std::string> TopLevelBoxes(const std::string& path);

}  // namespace ostrel_native
