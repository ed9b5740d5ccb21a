#include "unit/support/media_files.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace ostrel_native {

std::string CommandOutput(const std::string& command) {
  std::FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) {
    throw std::runtime_error("cannot run " + command);
  }
  std::string output;
  char block[65'536];
  std::size_t count = 0;
  while ((count = std::fread(block, 1, sizeof block, pipe)) > 0) {
    output.append(block, count);
  }
  pclose(pipe);
  return output;
}

std::string Quoted(const std::string& text) {
  std::string word = "'";
  for (const char character : text) {
    word += character == '\'' ? std::string("'\\''") : std::string(1, character);
  }
  return word + "'";
}

std::map<std::string, std::string> ProbedStream(const std::string& path) {
  std::istringstream lines(CommandOutput(
      "ffprobe -v error -select_streams v:0 -count_frames -show_entries stream:format=duration "
      "-of default=noprint_wrappers=1 " +
      Quoted(path)));
  std::map<std::string, std::string> values;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t equals = line.find('=');
    values[line.substr(0, equals)] = equals == std::string::npos ? "" : line.substr(equals + 1);
  }
  return values;
}

std::vector<double> PacketDurations(const std::string& path) {
  std::istringstream numbers(
      CommandOutput("ffprobe -v error -select_streams v:0 -show_entries packet=duration_time "
                    "-of csv=p=0 " +
                    Quoted(path)));
  return {std::istream_iterator<double>(numbers), {}};
}

std::string DecodedPictures(const std::string& path) {
  return CommandOutput("ffmpeg -nostdin -v error -i " + Quoted(path) +
                       " -f rawvideo -pix_fmt nv12 -");
}

std::string DecodingComplaints(const std::string& path) {
  return CommandOutput("ffmpeg -nostdin -v error -i " + Quoted(path) +
                       " -enc_time_base -1 -f null -");
}

std::vector<std::string> TopLevelBoxes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), {});
  const auto bigEndian = [&bytes](std::size_t offset, std::size_t count) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i) {
      value = value << 8 | static_cast<unsigned char>(bytes.at(offset + i));
    }
    return value;
  };
  std::vector<std::string> types;
  for (std::size_t offset = 0; offset < bytes.size();) {
    std::uint64_t size = bigEndian(offset, 4);
    types.push_back(bytes.substr(offset + 4, 4));
    if (size == 1) {  // a large box: the size follows its type
      size = bigEndian(offset + 8, 8);
    } else if (size == 0) {  // up to the end of the file
      break;
    }
    if (size < 8 || size > bytes.size() - offset) {
      types.push_back("broken");
      break;
    }
    offset += size;
  }
  return types;
}

}  // namespace ostrel_native
