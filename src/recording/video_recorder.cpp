#include "recording/video_recorder.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <optional>
#include <utility>

#include "recording/frame_timing.h"
#include "recording/recording_platform.h"

namespace ostrel_native {

namespace {

using Frame = VideoRecorder::Frame;
using State = VideoRecorder::State;

constexpr char kBadConfigurationText[] = "Invalid video recording configuration";
constexpr char kStartTimedOutText[] = "Timed out while starting the video recorder";
constexpr char kNotSupportedText[] = "Video recording is not supported on this platform";
constexpr char kUnknownFailureText[] = "Video recording failed for an unknown reason";
// Short enough to be kept without an allocation.
constexpr char kOutOfMemoryText[] = "Out of memory";

constexpr std::chrono::seconds kStartTimeout{10};

constexpr std::int32_t kMaxSide = 8192;
constexpr std::int32_t kMaxFrameRate = 120;
constexpr std::int32_t kMinBitrate = 100'000;
constexpr std::int32_t kMaxBitrate = 100'000'000;

constexpr std::int64_t kTicksPerMillisecond = 10'000;

bool IsValidSide(std::int32_t side) {
  return side >= 1 && side <= kMaxSide && side % 2 == 0;
}

bool IsValidConfiguration(const std::string& path, std::int32_t width, std::int32_t height,
                          std::int32_t frameRate, std::int32_t bitrate) {
  return !path.empty() && IsValidSide(width) && IsValidSide(height) && frameRate >= 1 &&
         frameRate <= kMaxFrameRate && bitrate >= kMinBitrate && bitrate <= kMaxBitrate;
}

void CopyPlaneValues(const std::int32_t* source, std::int32_t (&target)[3]) {
  if (source != nullptr) {
    std::copy_n(source, 3, target);
  }
}

// A backend that throws has failed like one that returns a text.
template <typename Operation>
std::string ErrorOf(const Operation& operation) {
  try {
    return operation();
  } catch (const std::exception& exception) {
    const std::string text = exception.what();
    return text.empty() ? kUnknownFailureText : text;
  } catch (...) {
    return kUnknownFailureText;
  }
}

// The next frame to write; nothing once a stop is asked and the queue is written.
std::optional<Frame> TakeFrame(VideoRecorder& recorder) {
  ConditionLock lock(recorder.mutex);
  recorder.condition.wait(lock.held, [&recorder]() OSTREL_REQUIRES(recorder.mutex) {
    return recorder.stopRequested || !recorder.queue.empty();
  });
  if (recorder.queue.empty()) {
    return std::nullopt;
  }
  std::optional<Frame> frame(std::move(recorder.queue.front()));
  recorder.queue.pop_front();
  return frame;
}

std::string WriteFrame(VideoRecorder& recorder, VideoRecorder::Backend& backend, const Frame& frame,
                       std::int64_t pts, std::int64_t duration) {
  std::string error = backend.EncodeFrame(frame, pts, duration);
  if (error.empty()) {
    const MutexLock lock(recorder.mutex);
    ++recorder.framesWritten;
    if (recorder.firstTimestamp <= 0) {
      recorder.firstTimestamp = frame.timestamp;
    }
    recorder.lastTimestamp = std::max(recorder.lastTimestamp, frame.timestamp);
  }
  return error;
}

// Writes every frame until the stop; the first error ends it. A frame is held back until the
// next one arrives, since only then its duration is known.
std::string WriteFrames(VideoRecorder& recorder, VideoRecorder::Backend& backend,
                        std::int32_t frameRate) {
  FrameTiming timing(frameRate);
  std::optional<Frame> held;
  std::int64_t heldPts = 0;
  while (std::optional<Frame> frame = TakeFrame(recorder)) {
    const std::int64_t pts = timing.NextPts(frame->timestamp);
    if (held.has_value()) {
      std::string error = WriteFrame(recorder, backend, *held, heldPts, timing.Duration());
      if (!error.empty()) {
        return error;
      }
    }
    held = std::move(frame);
    heldPts = pts;
  }
  return held.has_value() ? WriteFrame(recorder, backend, *held, heldPts, timing.Duration())
                          : std::string();
}

// What one session was started with.
struct Configuration {
  std::string outputPath;
  std::int32_t width;
  std::int32_t height;
  std::int32_t frameRate;
  std::int32_t bitrate;
};

Configuration ReadConfiguration(const VideoRecorder& recorder) {
  const MutexLock lock(recorder.mutex);
  return {recorder.outputPath, recorder.width, recorder.height, recorder.frameRate,
          recorder.bitrate};
}

// Ends the wait of `Start`.
void ReportStarted(VideoRecorder& recorder) {
  {
    const MutexLock lock(recorder.mutex);
    recorder.state = recorder.stopRequested ? State::Stopping : State::Recording;
  }
  recorder.condition.notify_all();
}

void EndSession(VideoRecorder& recorder, const std::string& finalizeError) {
  {
    const MutexLock lock(recorder.mutex);
    if (recorder.lastError.empty()) {
      recorder.lastError = finalizeError;
    }
    recorder.stopRequested = false;
    recorder.state = recorder.lastError.empty() ? State::Idle : State::Failed;
  }
  recorder.condition.notify_all();
}

void RunSession(VideoRecorder& recorder) {
  const Configuration configuration = ReadConfiguration(recorder);
  std::unique_ptr<VideoRecorder::Backend> backend;
  std::string error = ErrorOf([&]() -> std::string {
    backend = recorder.CreateBackend();
    return backend == nullptr
               ? kNotSupportedText
               : backend->Start(configuration.outputPath, configuration.width, configuration.height,
                                configuration.frameRate, configuration.bitrate);
  });
  if (!error.empty()) {
    recorder.SetWorkerError(error);
    return;
  }
  ReportStarted(recorder);
  error = ErrorOf([&] { return WriteFrames(recorder, *backend, configuration.frameRate); });
  if (!error.empty()) {
    recorder.SetWorkerError(error);
  }
  // Also after an error: where the file can still be written, what came before becomes a playable
  // file. On a full or failing disk the index cannot be written, and the file does not play.
  EndSession(recorder, ErrorOf([&] { return backend->Finalize(); }));
}

}  // namespace

VideoRecorder::~VideoRecorder() {
  Stop();
}

bool VideoRecorder::Available() const {
  return LinuxVideoRecordingAvailable();
}

std::unique_ptr<VideoRecorder::Backend> VideoRecorder::CreateBackend() {
  return CreateLinuxBackend();
}

int VideoRecorder::Start(const std::string& path, std::int32_t newWidth, std::int32_t newHeight,
                         std::int32_t newFrameRate, std::int32_t newBitrate) {
  if (!Available()) {
    return kUnavailable;
  }
  Stop();
  ConditionLock lock(mutex);
  while (joining || worker.joinable()) {
    // Another thread has started or stopped meanwhile.
    lock.Unlock();
    Stop();
    lock.Lock();
  }
  if (!IsValidConfiguration(path, newWidth, newHeight, newFrameRate, newBitrate)) {
    lastError = kBadConfigurationText;
    state = State::Failed;
    return kBadConfiguration;
  }
  outputPath = path;
  queue.clear();
  lastError.clear();
  stopRequested = false;
  state = State::Starting;
  framesWritten = 0;
  framesDropped = 0;
  firstTimestamp = 0;
  lastTimestamp = 0;
  const std::uint64_t ownSession = ++session;
  width = newWidth;
  height = newHeight;
  frameRate = newFrameRate;
  bitrate = newBitrate;
  try {
    worker = std::thread(&VideoRecorder::Run, this);
  } catch (const std::exception& error) {
    // Without a worker nothing would ever leave Starting.
    state = State::Failed;
    lastError = kOutOfMemoryText;  // stays if there is no memory for the reason
    lastError = error.what();
    return kFailed;
  }
  const auto deadline = std::chrono::steady_clock::now() + kStartTimeout;
  const bool reported =
      condition.wait_until(lock.held, deadline, [this, ownSession]() OSTREL_REQUIRES(mutex) {
        return session != ownSession || state != State::Starting;
      });
  if (session != ownSession) {
    // Another thread has ended this session and started its own, whose state is not ours to report.
    return kFailed;
  }
  if (!reported) {
    stopRequested = true;
    lastError = kStartTimedOutText;
    state = State::Failed;
    if (!joining && worker.joinable()) {
      JoinWorker();
    }
    return kStartTimedOut;
  }
  return state == State::Recording ? kOk : kFailed;
}

int VideoRecorder::Stop() {
  ConditionLock lock(mutex);
  condition.wait(lock.held, [this]() OSTREL_REQUIRES(mutex) { return !joining; });
  if (worker.joinable()) {
    stopRequested = true;
    if (state == State::Starting || state == State::Recording) {
      state = State::Stopping;
    }
    JoinWorker();
  }
  queue.clear();
  return lastError.empty() ? kOk : kFailed;
}

void VideoRecorder::JoinWorker() {
  joining = true;
  std::thread ending = std::move(worker);
  mutex.unlock();
  condition.notify_all();
  ending.join();
  mutex.lock();
  joining = false;
  condition.notify_all();
}

bool VideoRecorder::TryEnqueue(const std::uint8_t* data, std::size_t size, std::int32_t frameWidth,
                               std::int32_t frameHeight, std::int32_t format,
                               std::int32_t planeCount, const std::int32_t* planeOffsets,
                               const std::int32_t* planeStrides, std::int64_t timestamp) {
  if (data == nullptr || size == 0) {
    return false;
  }
  {
    const MutexLock lock(mutex);
    if (state != State::Recording || stopRequested || frameWidth != width ||
        frameHeight != height) {
      return false;
    }
    if (queue.size() >= kMaxQueuedFrames) {
      ++framesDropped;
      return false;
    }
    Frame frame;
    // Refuses a size that no vector can have before `data + size` is formed.
    frame.data.reserve(size);
    frame.data.assign(data, data + size);
    frame.width = frameWidth;
    frame.height = frameHeight;
    frame.format = format;
    frame.planeCount = std::clamp(planeCount, 1, 3);
    CopyPlaneValues(planeOffsets, frame.planeOffsets);
    CopyPlaneValues(planeStrides, frame.planeStrides);
    frame.timestamp = timestamp;
    queue.push_back(std::move(frame));
  }
  condition.notify_one();
  return true;
}

VideoRecorder::Status VideoRecorder::GetStatus() const {
  const MutexLock lock(mutex);
  Status status;
  status.available = Available();
  status.recording =
      state == State::Starting || state == State::Recording || state == State::Stopping;
  status.outputPath = outputPath;
  status.error = lastError;
  status.framesWritten = framesWritten;
  status.framesDropped = framesDropped;
  if (firstTimestamp > 0 && firstTimestamp <= lastTimestamp) {
    status.durationMs =
        static_cast<std::uint64_t>((lastTimestamp - firstTimestamp) / kTicksPerMillisecond);
  }
  status.width = width;
  status.height = height;
  status.frameRate = frameRate;
  status.bitrate = bitrate;
  return status;
}

void VideoRecorder::SetWorkerError(const std::string& text) {
  {
    const MutexLock lock(mutex);
    if (lastError.empty()) {
      lastError = text;
    }
    stopRequested = true;
    state = State::Failed;
  }
  condition.notify_all();
}

void VideoRecorder::Run() {
  try {
    RunSession(*this);
  } catch (...) {
    // Only a text that memory was too short to keep ends here.
    SetWorkerError(kOutOfMemoryText);
  }
}

}  // namespace ostrel_native
