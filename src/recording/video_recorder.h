// A recording session: a bounded queue of camera frames, the worker that writes them through a
// backend, and the counters that script code reads.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "addon/mutex.h"

namespace ostrel_native {

/// Owns at most one recording at a time. Threads that call `Start` and `Stop` at once never run two
/// sessions, but end one another's. No lock is held across the join of the worker.
struct VideoRecorder {
  /// One camera frame, with a copy of its bytes.
  struct Frame {
    std::vector<std::uint8_t> data;
    std::int32_t width = 0;             ///< pixels
    std::int32_t height = 0;            ///< pixels
    std::int32_t format = 0;            ///< a `CameraPixelFormat` code
    std::int32_t planeCount = 1;        ///< 1 to 3
    std::int32_t planeOffsets[3] = {};  ///< bytes from the start of `data`
    std::int32_t planeStrides[3] = {};  ///< bytes a row
    std::int64_t timestamp = 0;         ///< ticks of 100 ns, any epoch; not positive: none given
  };

  /// A snapshot of the session.
  struct Status {
    bool available = false;  ///< recording can be attempted on this machine
    bool recording = false;
    std::string outputPath;  ///< of the current or last session
    std::string error;       ///< empty if none
    std::uint64_t framesWritten = 0;
    std::uint64_t framesDropped = 0;  ///< refused because the queue was full
    std::uint64_t durationMs = 0;     ///< between the first and last written input stamps
    std::int32_t width = 0;           ///< pixels
    std::int32_t height = 0;          ///< pixels
    std::int32_t frameRate = 0;       ///< frames a second
    std::int32_t bitrate = 0;         ///< bits a second
  };

  /// Writes one recording. Every operation returns an empty string on success and otherwise the
  /// text that script code will see.
  /// Thread: recorder worker, which alone owns the backend.
  struct Backend {
    virtual ~Backend() = default;
    virtual std::string Start(const std::string& outputPath, std::int32_t width,
                              std::int32_t height, std::int32_t frameRate,
                              std::int32_t bitrate) = 0;
    /// `pts` and `duration`: ticks of 100 ns.
    virtual std::string EncodeFrame(const Frame& frame, std::int64_t pts,
                                    std::int64_t duration) = 0;
    virtual std::string Finalize() = 0;
  };

  enum class State : std::int32_t {
    Idle = 0,
    Starting = 1,
    Recording = 2,
    Stopping = 3,
    Failed = 4,
  };

  // Results of `Start` and `Stop`.
  static constexpr int kOk = 0;
  static constexpr int kBadConfiguration = -1;
  static constexpr int kStartTimedOut = -2;
  static constexpr int kFailed = -3;  ///< the reason stands in `lastError`
  static constexpr int kUnavailable = -13;

  /// Frames that may wait for the worker; the newest is refused beyond it.
  static constexpr std::size_t kMaxQueuedFrames = 6;

  VideoRecorder() = default;
  VideoRecorder(const VideoRecorder&) = delete;
  VideoRecorder& operator=(const VideoRecorder&) = delete;
  /// Ends a running recording and waits for its file to be finished.
  ~VideoRecorder();

  /// Whether recording can be attempted on this machine; opens no encoder. The first call may
  /// load FFmpeg.
  /// Thread: any.
  bool Available() const;

  /// The writer for this platform, or null where there is none.
  std::unique_ptr<Backend> CreateBackend();

  /// Ends any running recording, then starts one. Both sizes even, 1 to 8192 pixels; `frameRate`
  /// 1 to 120; `bitrate` 100,000 to 100,000,000 bits a second.
  /// Returns `kOk`, `kBadConfiguration`, `kStartTimedOut`, `kFailed` or `kUnavailable`; all but
  /// the last store their text in `lastError`. Blocks up to 10 s, and after a time-out until the
  /// backend's own start has returned. `kFailed` also if another thread stops the recorder, or
  /// starts a session of its own, before this one has reported.
  /// Thread: one environment at a time.
  int Start(const std::string& outputPath, std::int32_t width, std::int32_t height,
            std::int32_t frameRate, std::int32_t bitrate);

  /// Writes what is queued, finishes the file and waits for the worker's end. `kOk`, or `kFailed`
  /// while `lastError` is not empty, also without a session.
  /// Thread: one environment at a time.
  int Stop();

  /// Copies a frame of `size` bytes into the queue. The arrays, if not null, hold three values.
  /// False if the frame was refused: no data, not recording, another size than the session's, or
  /// a full queue, which alone counts as a drop.
  /// Never waits for the encoder. Throws `std::bad_alloc` or `std::length_error` if the copy cannot
  /// be allocated; the session goes on.
  /// Thread: producer worker, backend callback.
  bool TryEnqueue(const std::uint8_t* data, std::size_t size, std::int32_t width,
                  std::int32_t height, std::int32_t format, std::int32_t planeCount,
                  const std::int32_t* planeOffsets, const std::int32_t* planeStrides,
                  std::int64_t timestamp);

  /// Thread: any.
  Status GetStatus() const;

  /// Keeps `text` if no error is kept yet, and ends the session as failed.
  /// Thread: recorder worker.
  void SetWorkerError(const std::string& text);

  /// The worker's whole life.
  /// Thread: recorder worker.
  void Run();

  mutable Mutex mutex;  ///< a leaf
  std::condition_variable condition;
  std::deque<Frame> queue OSTREL_GUARDED_BY(mutex);
  std::thread worker OSTREL_GUARDED_BY(mutex);
  State state OSTREL_GUARDED_BY(mutex) = State::Idle;
  bool stopRequested OSTREL_GUARDED_BY(mutex) = false;
  std::string outputPath OSTREL_GUARDED_BY(mutex);
  std::string lastError OSTREL_GUARDED_BY(mutex);
  std::uint64_t framesWritten OSTREL_GUARDED_BY(mutex) = 0;
  std::uint64_t framesDropped OSTREL_GUARDED_BY(mutex) = 0;
  std::int64_t firstTimestamp OSTREL_GUARDED_BY(mutex) = 0;  ///< ticks of 100 ns
  std::int64_t lastTimestamp OSTREL_GUARDED_BY(mutex) = 0;   ///< ticks of 100 ns
  std::int32_t width OSTREL_GUARDED_BY(mutex) = 0;
  std::int32_t height OSTREL_GUARDED_BY(mutex) = 0;
  std::int32_t frameRate OSTREL_GUARDED_BY(mutex) = 0;
  std::int32_t bitrate OSTREL_GUARDED_BY(mutex) = 0;
  /// One thread waits for the worker's end, for all who want it.
  bool joining OSTREL_GUARDED_BY(mutex) = false;
  /// Counts the sessions; a waiting `Start` finds its own by it.
  std::uint64_t session OSTREL_GUARDED_BY(mutex) = 0;

 private:
  // Waits for the end of the worker, which is there, was told to stop and is joined by nobody. The
  // mutex is free meanwhile.
  void JoinWorker() OSTREL_REQUIRES(mutex);
};

/// The one recorder of the process.
extern VideoRecorder g_videoRecorder;

}  // namespace ostrel_native
