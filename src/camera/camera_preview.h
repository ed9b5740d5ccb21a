// The live preview: a worker that grabs frames at a fixed pace, and three buffers through which
// the newest one reaches the script thread without a lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "camera/camera_pixel_format.h"
#include "camera/camera_types.h"

namespace ostrel_native {

/// The record of one published frame.
struct PreviewMeta {
  std::uint64_t sequence = 0;  ///< publication number; a preview's first frame has 1
  std::int32_t width = 0;      ///< pixels
  std::int32_t height = 0;     ///< pixels
  std::int32_t bytesPerRow = 0;
  std::int32_t dataSize = 0;           ///< bytes
  std::int32_t sourceWidth = 0;        ///< pixels of the camera frame
  std::int32_t sourceHeight = 0;       ///< pixels of the camera frame
  std::int32_t sourceBytesPerRow = 0;  ///< of the camera frame
  std::int64_t timestampMs = 0;        ///< wall clock, milliseconds since the epoch
  std::int64_t monotonicTicks = 0;     ///< steady clock, ticks of 100 ns
  std::int32_t pixelFormat = static_cast<std::int32_t>(CameraPixelFormat::Rgba);
  std::int32_t planeCount = 1;
  std::int32_t planeOffsets[3] = {};  ///< bytes from the start of the frame
  std::int32_t planeStrides[3] = {};  ///< bytes a row
};

/// The newest full-resolution picture, as `LatestQualityFrame` hands it out.
struct QualityFrame {
  bool isNew = false;  ///< false: only `sequence` is set
  std::uint64_t sequence = 0;
  std::int32_t width = 0;   ///< pixels
  std::int32_t height = 0;  ///< pixels
  std::int32_t bytesPerRow = 0;
  std::int64_t timestampMs = 0;  ///< wall clock
  bool isBgra = false;           ///< otherwise RGB, 3 bytes a pixel
  std::vector<std::uint8_t> data;
};

/// The one preview of the process.
///
/// The worker writes only to a buffer that is neither published nor being read. The reader
/// announces in `readingIndex` what it copies and then reads `publishedIndex` again. Each side
/// stores one index and then loads the other's, so all four accesses need the one total order of
/// `seq_cst`: with anything weaker both sides can miss each other and a picture tears.
struct CameraPreviewProducer {
  /// Number of buffers: one published, one being read, one to write.
  static constexpr int kBufferCount = 3;

  CameraPreviewProducer() = default;
  CameraPreviewProducer(const CameraPreviewProducer&) = delete;
  CameraPreviewProducer& operator=(const CameraPreviewProducer&) = delete;
  /// Stops a running preview and waits for its worker.
  ~CameraPreviewProducer();

  /// Stops what runs, then starts a preview of at most `width` by `height` pixels at `frameRate`
  /// frames a second (1 to 120; all three are raised to at least 1). Capture is not started: the
  /// worker waits for a first frame for as long as it takes.
  /// Returns 0, or -1 for a negative device, which changes nothing. Throws `std::bad_alloc` or
  /// `std::length_error` if the buffers cannot be had, and `std::system_error` if the thread
  /// cannot; the preview is then stopped.
  /// Thread: script.
  int StartPolling(int device, int width, int height, int frameRate);

  /// Stops the preview if `device` is negative or the preview's; does nothing otherwise.
  /// Thread: script.
  void Stop(int device);

  /// Whether a call that names `device` means this preview: any negative one does.
  /// Thread: script.
  bool IsPreviewDevice(int device) const { return device < 0 || device == deviceIndex; }

  /// Tells the worker to end, without waiting for it.
  /// Thread: script.
  void RequestStop();

  /// Waits for the worker to end and clears the preview. After `RequestStop` only: the wait is
  /// for ever otherwise. It lasts as long as the worker's pace and its current backend call.
  /// Thread: script.
  void JoinAndReset();

  /// A copy of the newest full-resolution picture, if it is newer than `lastSequence`.
  /// Thread: script; may wait for the worker's own copy or grab of that picture.
  QualityFrame LatestQualityFrame(int device, std::uint64_t lastSequence);

  /// Offers a published frame to the recorder, which copies it or refuses it.
  /// Thread: producer worker.
  void EnqueueRecordingFrame(const std::uint8_t* data, const PreviewMeta& meta);

  /// The worker's whole life; it ends only when `running` is cleared or `generation` moves on
  /// from `ownGeneration`. `interval`: nanoseconds a cycle. `capacity`: bytes of each buffer.
  /// Thread: producer worker.
  void RunLoop(std::uint64_t ownGeneration, int device, int targetWidth, int targetHeight,
               std::int64_t interval, std::uint64_t capacity);

  // Each atomic is written by one side and read by the other with the default `seq_cst`: the two
  // indices need it (see above), for the rest it costs nothing that shows.
  std::atomic<bool> running{false};         ///< script thread writes
  std::thread worker;                       ///< script thread only
  std::int32_t deviceIndex = -1;            ///< script thread only; -1: none
  std::int32_t targetWidth = 960;           ///< pixels; script thread only
  std::int32_t targetHeight = 540;          ///< pixels; script thread only
  std::int64_t frameInterval = 33'000'000;  ///< nanoseconds; script thread only
  std::atomic<bool> firstFrameSeen{false};  ///< worker writes
  std::uint64_t bufferBytes = 0;            ///< of each buffer; changes only without a worker
  std::vector<std::uint8_t> buffers[kBufferCount];
  PreviewMeta metas[kBufferCount];               ///< ordered by the later store of `publishedIndex`
  std::atomic<std::int32_t> publishedIndex{-1};  ///< worker writes
  std::atomic<std::int32_t> readingIndex{-1};    ///< script thread writes
  std::atomic<std::uint64_t> publishedSequence{0};  ///< worker writes
  std::atomic<std::int32_t> droppedFrames{0};       ///< cycles without a frame; worker writes
  std::atomic<std::uint64_t> producedFrames{0};     ///< worker writes
  std::atomic<std::int32_t> producerFpsTenths{0};   ///< tenths of frames a second; worker writes
  std::atomic<std::int32_t> lastResult{kResultPreviewStopped};  ///< worker's last outcome
  std::atomic<std::uint64_t> generation{0};  ///< bumped by each start and stop; script thread
  std::mutex qualityMutex;                   ///< guards the quality fields that follow
  std::vector<std::uint8_t> qualityBuffer;
  std::uint64_t qualitySequence = 0;
  std::int32_t qualityWidth = 0;   ///< pixels
  std::int32_t qualityHeight = 0;  ///< pixels
  std::int32_t qualityBytesPerRow = 0;
  std::int32_t qualityDataSize = 0;     ///< bytes
  std::int64_t qualityTimestampMs = 0;  ///< wall clock
  bool qualityIsBgra = false;           ///< otherwise RGB

 private:
  void ClearQuality();
};

/// One look at the newest frame. As long as it is held, the frame's buffer is announced as being
/// read and stays as it is.
/// Thread: script, one at a time.
struct LatestFrame {
  /// `result` becomes 0 with `meta` and `data` set; -1 if `device` is not the preview's; -256 if
  /// nothing newer than `lastSequence` is published; -11 if the frame exceeds its buffer. Only a
  /// result of 0 holds the buffer.
  LatestFrame(CameraPreviewProducer& producer, int device, std::uint64_t lastSequence);
  LatestFrame(const LatestFrame&) = delete;
  LatestFrame& operator=(const LatestFrame&) = delete;
  ~LatestFrame() { Release(); }

  /// Gives the buffer back; `data` is not to be read any more.
  void Release();

  int result = kResultNotYet;
  std::uint64_t sequence = 0;          ///< what the answer reports, also without a frame
  PreviewMeta meta;                    ///< of the frame, with a result of 0
  const std::uint8_t* data = nullptr;  ///< `meta.dataSize` bytes of the producer

 private:
  CameraPreviewProducer& owner;
};

/// The one preview of the process.
extern CameraPreviewProducer g_cameraPreview;

}  // namespace ostrel_native
