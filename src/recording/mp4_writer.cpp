// The file of a recording: an MP4 with its index moved to the front.
#include "recording/video_recorder_linux.h"

namespace ostrel_native {

std::string LinuxBackend::CreateMuxer(const std::string& outputPath) {
  const int created =
      api.avformat_alloc_output_context2(&formatContext, nullptr, "mp4", outputPath.c_str());
  return created < 0 || formatContext == nullptr
             ? FfmpegError(api, "Creating the MP4 output", created)
             : std::string();
}

std::string LinuxBackend::OpenFile(const std::string& outputPath) {
  stream = api.avformat_new_stream(formatContext, nullptr);
  if (stream == nullptr) {
    return "Could not create the MP4 video stream";
  }
  stream->time_base = codecContext->time_base;
  const int configured = api.avcodec_parameters_from_context(stream->codecpar, codecContext);
  if (configured < 0) {
    return FfmpegError(api, "Configuring the MP4 stream", configured);
  }
  // The muxer picks the tag that fits the file format.
  stream->codecpar->codec_tag = 0;
  if (WritesToFile()) {
    const int opened = api.avio_open(&formatContext->pb, outputPath.c_str(), AVIO_FLAG_WRITE);
    if (opened < 0) {
      return FfmpegError(api, "Opening the MP4 output", opened);
    }
  }
  AVDictionary* options = nullptr;
  api.av_dict_set(&options, "movflags", "+faststart", 0);
  const int written = api.avformat_write_header(formatContext, &options);
  api.av_dict_free(&options);
  if (written < 0) {
    return FfmpegError(api, "Writing the MP4 header", written);
  }
  headerWritten = true;
  return std::string();
}

bool LinuxBackend::WritesToFile() const {
  return (formatContext->oformat->flags & AVFMT_NOFILE) == 0;
}

std::string LinuxBackend::WritePacket() {
  if (packet->duration < 1) {
    packet->duration = lastPacketDuration;
  }
  // The muxer may have replaced the stream's time base when it wrote the header.
  api.av_packet_rescale_ts(packet, codecContext->time_base, stream->time_base);
  packet->stream_index = stream->index;
  const int written = api.av_interleaved_write_frame(formatContext, packet);
  api.av_packet_unref(packet);
  return written < 0 ? FfmpegError(api, "Writing an H.264 packet", written) : std::string();
}

std::string LinuxBackend::WriteTrailer() {
  if (formatContext == nullptr || !headerWritten) {
    return std::string();
  }
  headerWritten = false;
  // Below warnings the muxer only tells that it moves the index to the front.
  const FfmpegLogLevel warnings(api, AV_LOG_WARNING);
  const int written = api.av_write_trailer(formatContext);
  return written < 0 ? FfmpegError(api, "Finalizing the MP4 file", written) : std::string();
}

int LinuxBackend::CloseOutput() {
  if (formatContext == nullptr || formatContext->pb == nullptr || !WritesToFile()) {
    return 0;
  }
  return api.avio_closep(&formatContext->pb);
}

std::string LinuxBackend::CloseFile() {
  const int closed = CloseOutput();
  return closed < 0 ? FfmpegError(api, "Closing the MP4 file", closed) : std::string();
}

void LinuxBackend::ReleaseMuxer() {
  CloseOutput();
  if (formatContext != nullptr) {
    api.avformat_free_context(formatContext);
    formatContext = nullptr;
  }
  stream = nullptr;
  headerWritten = false;
}

}  // namespace ostrel_native
