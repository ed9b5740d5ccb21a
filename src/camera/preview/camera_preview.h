// The live preview, in one of two modes. Polling: a worker grabs frames at a fixed pace, and three
// buffers take the newest one to script code; the worker takes no lock for that. Direct: the
// backend calls back for each frame, which goes straight into one of three arrays that script code
// lends.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <thread>
#include <vector>

#include "addon/mutex.h"
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

/// The newest JPEG that a direct preview has decoded, as `LatestEncodedFrame` hands it out.
struct EncodedFrame {
  bool isThere = false;  ///< false: nothing below is set
  std::uint64_t sequence = 0;
  std::int32_t width = 0;        ///< pixels
  std::int32_t height = 0;       ///< pixels
  std::int64_t timestampMs = 0;  ///< wall clock
  std::vector<std::uint8_t> data;
};

/// Who may touch the bytes and the record of a slot of the direct mode.
enum class SlotState : std::uint32_t {
  Free = 0,     ///< nobody; may be taken for writing
  Writing = 1,  ///< the thread that took it
  Ready = 2,    ///< nobody; holds a finished frame that a poll may claim
  Held = 3,     ///< script code, until it releases the slot
};

struct DirectPlan;
struct LentSlot;

/// The one preview of the process. Any number of environments may call it at once.
///
/// What changes the preview (a start, a stop) holds the turn, a `PreviewTurn`, from its beginning
/// to its end: one thread at a time, the others wait. A poll waits for nobody: while a turn is
/// taken, or `previewMutex` is, it finds nothing new. `previewMutex` is held for moments only, and
/// for a poll's copy; no library, no join and no script code runs under it.
///
/// Polling mode: the worker writes only to a buffer that is neither published nor being read. The
/// reader, one at a time by `previewMutex`, announces in `readingIndex` what it copies and then
/// reads `publishedIndex` again. Each side stores one index and then loads the other's, so all four
/// accesses need the one total order of `seq_cst`: with anything weaker both sides can miss each
/// other and a picture tears.
///
/// Direct mode: a slot is an array that script code lends, its state and its record. The state
/// alone decides who owns the slot. The backend's callback thread and the worker take free slots
/// and finish them; only the holder of `previewMutex` takes a slot out of `Ready` or `Held`, so a
/// record that it has seen in one of these stays as it is until it gives the mutex back.
///
/// Members: start, stop and stills in camera_preview.cpp, `RunLoop` in preview_worker.cpp; in
/// direct/, the start and end of a direct preview in direct_start.cpp, `OnDirectFrame` in
/// direct_delivery.cpp, the slots of script code in direct_frame.cpp, the two workers in
/// direct_workers.cpp.
struct CameraPreviewProducer {
  /// Number of buffers: one published, one being read, one to write. Direct mode: of slots.
  static constexpr int kBufferCount = 3;

  CameraPreviewProducer() = default;
  CameraPreviewProducer(const CameraPreviewProducer&) = delete;
  CameraPreviewProducer& operator=(const CameraPreviewProducer&) = delete;
  /// Stops a running preview and waits for its worker.
  ~CameraPreviewProducer();

  /// Stops what runs, then starts a preview of at most `width` by `height` pixels at `frameRate`
  /// frames a second (1 to 120; all three are raised to at least 1). Capture is not started: the
  /// worker waits for a first frame for as long as it takes.
  /// Returns 0, or -1 for a negative device, which changes nothing. Throws `std::runtime_error` if
  /// the buffers cannot be had and `std::system_error` if the thread cannot, both with words for
  /// script code; the preview is then stopped, and this device is its device.
  /// Thread: any environment.
  int StartPolling(int device, int width, int height, int frameRate);

  /// Stops what runs, stores device, size and pace, and plans a direct preview's frames.
  /// Precondition: `HasFrameCallback`, and a device of 0 or more.
  /// Returns 0, or -11 if the backend's frames cannot be delivered directly; the preview is stopped
  /// in either case.
  /// Thread: any environment.
  int PrepareDirect(int device, int width, int height, int frameRate, DirectPlan& plan);

  /// Starts the prepared preview with its frames going into `lent`, whose memory must stay where it
  /// is for as long as `MayWrite`. A preview that was started or stopped since `PrepareDirect` has
  /// the frames planned anew, after a stop.
  /// Returns 0 with the preview's own `plan.generation`; what `CheckLentSlots` answers; the
  /// backend's negative code if it refuses the callback; or, for a new plan, -11. Throws
  /// `std::system_error` if the worker cannot be started; the preview is then stopped.
  /// Thread: any environment. The first frames may arrive before it returns, also on this thread.
  int StartDirect(DirectPlan& plan, const LentSlot (&lent)[kBufferCount]);

  /// Stops the preview if `device` is negative or the preview's; does nothing otherwise.
  /// Thread: any environment.
  void Stop(int device);

  /// Stops the preview if it is the one of `startGeneration`, and waits for its end if another
  /// thread is stopping it.
  /// Thread: any environment.
  void StopGeneration(std::uint64_t startGeneration);

  /// Whether the direct preview of `startGeneration` may still write into the arrays lent to it.
  /// Thread: any environment.
  bool MayWrite(std::uint64_t startGeneration);

  /// Whether a call that names `device` means this preview: any negative one does.
  /// Thread: any.
  bool IsPreviewDevice(int device) const { return device < 0 || device == deviceIndex; }

  /// Tells the worker to end, without waiting for it.
  /// Thread: that of the turn.
  void RequestStop();

  /// Takes our callback back from the backend, if it has it. On return no callback runs.
  /// Thread: that of the turn.
  void ClearDirectCallback();

  /// Takes the callback back, waits for the worker to end, then forgets the lent arrays and clears
  /// the preview. After `RequestStop` only: the wait is for ever otherwise. It lasts as long as the
  /// worker's current backend call.
  /// Thread: that of the turn.
  void JoinAndReset();

  /// A copy of the newest full-resolution picture, if it is newer than `lastSequence`.
  /// Thread: any environment; may wait for the worker's own copy of that picture.
  QualityFrame LatestQualityFrame(int device, std::uint64_t lastSequence);

  /// A copy of the JPEG that was decoded last, in a direct preview of a JPEG camera.
  /// Thread: any environment.
  EncodedFrame LatestEncodedFrame(int device);

  /// Frees a slot that script code holds. 0; -1 without such a slot in a direct preview of this
  /// device; -7 if the slot isn't held or holds another frame than `sequence`.
  /// Thread: any environment.
  int ReleaseDirectSlot(int device, int slot, std::uint64_t sequence);

  /// Frees all finished and held slots of a direct preview; a negative device means any.
  /// Thread: any environment.
  void ReleaseAllDirectSlots(int device);

  /// Offers a published frame to the recorder, which copies it or refuses it. Throws
  /// `std::bad_alloc` or `std::length_error` if the copy cannot be allocated.
  /// Thread: producer worker, backend callback.
  void EnqueueRecordingFrame(const std::uint8_t* data, const PreviewMeta& meta);

  /// Takes a frame from the backend: a JPEG goes to the worker, any other is copied into a free
  /// slot. `data`: `size` bytes, the backend's. `flipped`: the rows of each plane run bottom up.
  /// A frame that can't be taken is a drop, with the reason in `lastResult`.
  /// Thread: backend callback.
  void OnDirectFrame(int device, const std::uint8_t* data, std::uint64_t size,
                     bool flipped) noexcept;

  /// The worker of a direct preview of a JPEG camera: decodes the newest JPEG into a free slot.
  /// Thread: producer worker.
  void RunSharedMjpegLoop(std::uint64_t ownGeneration, int device);

  /// The worker of a direct preview of any other camera: grabs a full-resolution picture twice a
  /// second.
  /// Thread: producer worker.
  void RunSharedQualityLoop(std::uint64_t ownGeneration, int device);

  /// Whether a worker of this generation is to end.
  /// Thread: any.
  bool IsStale(std::uint64_t ownGeneration) const {
    return !running || generation != ownGeneration;
  }

  /// Counts a lost frame and the reason for it.
  /// Thread: producer worker, backend callback.
  void CountDrop(int result) {
    ++droppedFrames;
    lastResult = result;
  }

  /// Sleeps until the steady clock shows `steadyNs`, or until a worker of this generation is to
  /// end.
  /// Thread: producer worker.
  void SleepUntil(std::int64_t steadyNs, std::uint64_t ownGeneration);

  /// Stores what belongs to a new `qualityBuffer`, whose rows are tight and whose bytes fit int32.
  /// Thread: producer worker.
  void DescribeQuality(std::int32_t width, std::int32_t height, bool isBgra,
                       std::int64_t timestampMs) OSTREL_REQUIRES(qualityMutex);

  /// The worker's whole life; it ends only when `running` is cleared or `generation` moves on
  /// from `ownGeneration`. `interval`: nanoseconds a cycle. `capacity`: bytes of each buffer.
  /// Thread: producer worker.
  void RunLoop(std::uint64_t ownGeneration, int device, int targetWidth, int targetHeight,
               std::int64_t interval, std::uint64_t capacity);

  Mutex previewMutex;                     ///< see above; no other is taken under it
  std::condition_variable turnCondition;  ///< a turn is free, or waits for the worker
  bool changing OSTREL_GUARDED_BY(previewMutex) = false;  ///< a turn is taken
  bool joining OSTREL_GUARDED_BY(previewMutex) = false;   ///< the turn waits for the worker

  // Each atomic is written by one side and read by the other with the default `seq_cst`: the two
  // indices need it (see above), for the rest it costs nothing that shows. "Turn": written by the
  // holder of the turn; without more words it is read by no one else.
  std::atomic<bool> running{false};           ///< turn writes
  std::thread worker;                         ///< turn
  std::atomic<std::int32_t> deviceIndex{-1};  ///< turn writes; -1: none
  std::int32_t targetWidth = 960;             ///< pixels; turn
  std::int32_t targetHeight = 540;            ///< pixels; turn
  std::int64_t frameInterval = 33'000'000;    ///< nanoseconds; turn
  std::atomic<bool> firstFrameSeen{false};    ///< worker or callback writes
  // The turn changes these three under `previewMutex`, without a worker and a callback; a poll
  // reads them under it, a worker without it.
  std::uint64_t bufferBytes = 0;                    ///< of each buffer; guarded by `previewMutex`
  std::vector<std::uint8_t> buffers[kBufferCount];  ///< guarded by `previewMutex`
  PreviewMeta metas[kBufferCount];               ///< ordered by the later store of `publishedIndex`
  std::atomic<std::int32_t> publishedIndex{-1};  ///< worker writes
  std::atomic<std::int32_t> readingIndex{-1};    ///< the poll that holds `previewMutex` writes
  std::atomic<std::uint64_t> publishedSequence{0};  ///< worker writes
  std::atomic<std::int32_t> droppedFrames{0};       ///< cycles without a frame; worker writes
  std::atomic<std::uint64_t> producedFrames{0};     ///< worker writes
  std::atomic<std::int32_t> producerFpsTenths{0};   ///< tenths of frames a second; worker writes
  std::atomic<std::int32_t> lastResult{kResultPreviewStopped};  ///< worker's last outcome
  std::atomic<std::uint64_t> generation{0};  ///< bumped by each start and stop; turn writes
  Mutex qualityMutex;                        ///< a leaf
  std::vector<std::uint8_t> qualityBuffer OSTREL_GUARDED_BY(qualityMutex);
  std::uint64_t qualitySequence OSTREL_GUARDED_BY(qualityMutex) = 0;
  std::int32_t qualityWidth OSTREL_GUARDED_BY(qualityMutex) = 0;   ///< pixels
  std::int32_t qualityHeight OSTREL_GUARDED_BY(qualityMutex) = 0;  ///< pixels
  std::int32_t qualityBytesPerRow OSTREL_GUARDED_BY(qualityMutex) = 0;
  std::int32_t qualityDataSize OSTREL_GUARDED_BY(qualityMutex) = 0;     ///< bytes
  std::int64_t qualityTimestampMs OSTREL_GUARDED_BY(qualityMutex) = 0;  ///< wall clock
  bool qualityIsBgra OSTREL_GUARDED_BY(qualityMutex) = false;           ///< otherwise RGB

  std::atomic<bool> direct{false};       ///< the preview runs in direct mode; turn writes
  std::atomic<bool> directMjpeg{false};  ///< frames are JPEG; turn writes
  std::atomic<bool> directCallbackRegistered{false};  ///< the backend holds our callback; turn
  // The two that follow change under `previewMutex`, while the backend doesn't hold our callback.
  std::uint8_t* slotData[kBufferCount] = {};   ///< first byte of each lent array
  std::uint64_t slotBytes[kBufferCount] = {};  ///< length of each lent array
  std::atomic<SlotState> slotStates[kBufferCount] = {};
  std::atomic<std::uint32_t> directCursor{0};  ///< where the next search for a slot begins
  PreviewMeta directTemplate;  ///< what each frame's record starts from; set at the start
  std::atomic<std::int64_t> fpsPeriodStart{0};    ///< steady nanoseconds; callback and worker
  std::atomic<std::uint32_t> fpsPeriodFrames{0};  ///< callback and worker
  Mutex sharedMutex;                              ///< a leaf
  std::condition_variable sharedCondition;        ///< wakes the worker
  std::vector<std::uint8_t> encodedPending OSTREL_GUARDED_BY(sharedMutex);  ///< the newest JPEG
  std::vector<std::uint8_t> encodedLatest OSTREL_GUARDED_BY(sharedMutex);  ///< the one decoded last
  /// `encodedPending` has not been taken yet.
  bool encodedPendingFlag OSTREL_GUARDED_BY(sharedMutex) = false;
  std::uint64_t encodedPendingSequence OSTREL_GUARDED_BY(sharedMutex) = 0;    ///< counts the JPEGs
  std::int64_t encodedPendingTimestampMs OSTREL_GUARDED_BY(sharedMutex) = 0;  ///< wall clock
  /// Steady clock, ticks of 100 ns.
  std::int64_t encodedPendingTicks OSTREL_GUARDED_BY(sharedMutex) = 0;
  std::uint64_t encodedLatestSequence OSTREL_GUARDED_BY(sharedMutex) = 0;
  std::int64_t encodedLatestTimestampMs OSTREL_GUARDED_BY(sharedMutex) = 0;  ///< wall clock

 private:
  int PlanAnew(int device, int width, int height, int frameRate, DirectPlan& plan);
  int BeginDirect(const DirectPlan& plan, const LentSlot (&lent)[kBufferCount]);
  void StorePace(int device, int width, int height, int frameRate);
  void SizeBuffers(std::uint64_t bytes);
  void SetJoining(bool isJoining);
  void DropSlots();
  void ClearQuality();
  void ClearEncoded();
};

/// One look at the newest frame. As long as it is held, the frame's buffer is announced as being
/// read and stays as it is, and other polls find nothing: no Node-API and no library is to be
/// called meanwhile. Thread: any environment; never waits.
struct LatestFrame {
  /// `result` becomes 0 with `meta` and `data` set; -1 if `device` is not the preview's; -256 if
  /// nothing newer than `lastSequence` is published, or if a start, a stop or another poll is at
  /// work; -11 if the frame exceeds its buffer. Only a result of 0 holds the buffer.
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
  void Look(int device, std::uint64_t lastSequence) OSTREL_REQUIRES(owner.previewMutex);

  CameraPreviewProducer& owner;
  std::unique_lock<std::mutex> lock;  // held beyond the constructor only with `data`
};

/// What a start throws, with the system's reason, if its worker cannot be had.
inline constexpr char kNoThreadText[] = "Could not start the preview's thread";

/// The one preview of the process.
extern CameraPreviewProducer g_cameraPreview;

}  // namespace ostrel_native
