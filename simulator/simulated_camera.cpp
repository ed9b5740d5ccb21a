#include "simulator/simulated_camera.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <thread>
#include <utility>

#include "simulator/frame_painter.h"
#include "simulator/frame_schedule.h"

namespace ostrel_simulator {

namespace {

constexpr int kDefaultFormat = 2;

std::int64_t NsSince(std::chrono::steady_clock::time_point start) {
  const auto elapsed = std::chrono::steady_clock::now() - start;
  return std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count();
}

std::int64_t WallClockNs() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

FrameSchedule ScheduleOf(const Settings& settings, int frameRate) {
  return {1000000000 / frameRate, settings.stutterEvery, settings.stutterMs * 1000000};
}

// How long a grab waits for a frame that its thread has not had yet: beyond any stutter that is
// worth simulating, and short enough to end by itself.
constexpr std::chrono::seconds kGrabPatience{1};

// One frame in memory.
struct Slot {
  std::vector<std::uint8_t> pixels;
  std::int64_t number = 0;  ///< of the frame
  int readers = 0;          ///< grabs that copy it now; guarded by the capture's mutex
};

}  // namespace

struct Capture {
  Capture(const Settings& settings, const CaptureFormat& captureFormat,
          Microscope& captureMicroscope, FrameListener& captureListener)
      : format(captureFormat),
        bytesPerRow(captureFormat.width * 3 + settings.rowPadding),
        frameLimit(settings.frameLimit),
        schedule(ScheduleOf(settings, captureFormat.frameRate)),
        microscope(captureMicroscope),
        listener(captureListener),
        painter(captureMicroscope.SharedSpecimen(),
                SensorNoise(captureMicroscope.seed, settings.noiseTenths), captureFormat.width,
                captureFormat.height) {}

  std::size_t FrameBytes() const {
    return static_cast<std::size_t>(bytesPerRow) * static_cast<std::size_t>(format.height);
  }

  void Run();
  void MakeFrames();
  void End();
  Slot* FreeSlot();
  Slot* AwaitNewerThan(std::int64_t number);

  const CaptureFormat format;
  const int bytesPerRow;
  const std::int64_t frameLimit;
  const FrameSchedule schedule;
  Microscope& microscope;
  FrameListener& listener;
  FramePainter painter;  ///< the thread's own
  std::thread thread;

  std::mutex mutex;                 ///< guards the rest, but for the pixels of a slot
  std::condition_variable changed;  ///< a stop, a new frame, or the end of the frames
  bool stop = false;
  bool ended = false;  ///< no further frame comes
  std::vector<std::unique_ptr<Slot>> slots;
  /// The newest frame. Its pixels are written before it gets here, and not again while it is
  /// here or has readers.
  Slot* newest = nullptr;
};

// The camera never waits for a grab: with every slot taken, one more is made. There is thus one
// for each grab at a time, and two.
// Null without the memory for it: the frame is lost then.
Slot* Capture::FreeSlot() {
  const std::lock_guard lock(mutex);
  for (const std::unique_ptr<Slot>& slot : slots) {
    if (slot.get() != newest && slot->readers == 0) {
      return slot.get();
    }
  }
  try {
    auto slot = std::make_unique<Slot>();
    slot->pixels.resize(FrameBytes());
    slots.push_back(std::move(slot));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  return slots.back().get();
}

// The newest frame as soon as it is newer than `number`, as a camera's driver hands out each
// frame once; the same one again where none comes. Null without any. A reader more on success.
Slot* Capture::AwaitNewerThan(std::int64_t number) {
  std::unique_lock lock(mutex);
  if (newest == nullptr) {
    return nullptr;
  }
  const auto deadline = std::chrono::steady_clock::now() + kGrabPatience;
  changed.wait_until(lock, deadline, [&] { return newest->number > number || stop || ended; });
  ++newest->readers;
  return newest;
}

void Capture::Run() {
  MakeFrames();
  {
    const std::lock_guard lock(mutex);
    ended = true;
  }
  changed.notify_all();
}

void Capture::MakeFrames() {
  const auto start = std::chrono::steady_clock::now();
  const std::int64_t wallStartNs = WallClockNs();
  std::int64_t number = 0;
  while (frameLimit == 0 || number < frameLimit) {
    number = NextFrameNumber(schedule, number, NsSince(start));
    const auto due = start + std::chrono::nanoseconds(FrameDueNs(schedule, number));
    {
      std::unique_lock lock(mutex);
      if (changed.wait_until(lock, due, [this] { return stop; })) {
        return;
      }
    }
    Slot* const slot = microscope.faults.freezes ? nullptr : FreeSlot();
    if (slot == nullptr) {
      continue;
    }
    const auto frame = static_cast<std::uint32_t>(number);
    painter.Paint(microscope.SceneNow(), frame, bytesPerRow, slot->pixels.data());
    microscope.NoteFrame(frame);
    {
      const std::lock_guard lock(mutex);
      slot->number = number;
      newest = slot;
    }
    changed.notify_all();
    // The newest slot's pixels stay as they are until this thread makes another the newest.
    listener.Notify({slot->pixels.data(), bytesPerRow, format.width, format.height,
                     wallStartNs + NsSince(start)});
  }
}

void Capture::End() {
  {
    const std::lock_guard lock(mutex);
    stop = true;
  }
  changed.notify_all();
  thread.join();
}

const std::vector<CaptureFormat>& CaptureFormats() {
  // Never destroyed: asked also while the process exits.
  static const auto& formats = *new std::vector<CaptureFormat>{
      {640, 480, 30},   {1280, 720, 30},  {1920, 1080, 30},
      {1920, 1080, 60}, {2592, 1944, 15}, {3840, 2160, 15},
  };
  return formats;
}

int BestFormat(int width, int height) {
  if (width < 1 || height < 1) {
    return kDefaultFormat;
  }
  const std::vector<CaptureFormat>& formats = CaptureFormats();
  const auto distance = [&](const CaptureFormat& format) {
    return std::abs(std::int64_t{format.width} - width) +
           std::abs(std::int64_t{format.height} - height);
  };
  const auto best = std::min_element(
      formats.begin(), formats.end(),
      [&](const CaptureFormat& a, const CaptureFormat& b) { return distance(a) < distance(b); });
  return static_cast<int>(best - formats.begin());
}

SimulatedCamera::SimulatedCamera(const Settings& cameraSettings, Microscope& cameraMicroscope)
    : settings(cameraSettings), microscope(cameraMicroscope) {}

std::shared_ptr<Capture> SimulatedCamera::Current() {
  const std::lock_guard lock(mutex);
  return capture;
}

void SimulatedCamera::EndCapture() {
  std::shared_ptr<Capture> ended;
  {
    const std::lock_guard lock(mutex);
    ended.swap(capture);
  }
  if (ended != nullptr) {
    ended->End();
  }
}

int SimulatedCamera::Start(int format) {
  const std::vector<CaptureFormat>& formats = CaptureFormats();
  if (format < 0 || static_cast<std::size_t>(format) >= formats.size()) {
    return kNoDevice;
  }
  const std::lock_guard control(controlMutex);
  EndCapture();
  if (!microscope.isPlugged) {
    return kNoDevice;
  }
  if (microscope.faults.refuses) {
    return kRefused;
  }
  try {
    const CaptureFormat& chosen = formats[static_cast<std::size_t>(format)];
    const auto started = std::make_shared<Capture>(settings, chosen, microscope, listener);
    microscope.NoteFrameSize({chosen.width, chosen.height});
    started->thread = std::thread([started] { started->Run(); });
    const std::lock_guard lock(mutex);
    capture = started;
  } catch (const std::exception&) {
    return kNoThread;
  }
  return kOk;
}

int SimulatedCamera::Stop() {
  const std::lock_guard control(controlMutex);
  EndCapture();
  return kOk;
}

int SimulatedCamera::HasFirstFrame() {
  const std::shared_ptr<Capture> current = Current();
  if (current == nullptr) {
    return kNotCapturing;
  }
  const std::lock_guard lock(current->mutex);
  return current->newest == nullptr ? kNotYet : kOk;
}

int SimulatedCamera::FrameWidth() {
  const std::shared_ptr<Capture> current = Current();
  return current == nullptr ? kNotCapturing : current->format.width;
}

int SimulatedCamera::FrameHeight() {
  const std::shared_ptr<Capture> current = Current();
  return current == nullptr ? kNotCapturing : current->format.height;
}

int SimulatedCamera::FrameBytesPerRow() {
  const std::shared_ptr<Capture> current = Current();
  return current == nullptr ? kNotCapturing : current->bytesPerRow;
}

int SimulatedCamera::Grab(void* buffer, int capacity) {
  microscope.faults.Delay(DevicePart::Camera);
  const std::shared_ptr<Capture> current = Current();
  if (current == nullptr) {
    return kNotCapturing;
  }
  if (buffer == nullptr || capacity < 0 ||
      static_cast<std::size_t>(capacity) < current->FrameBytes()) {
    return kNoRoom;
  }
  // Each thread that grabs gets each frame once.
  thread_local std::weak_ptr<Capture> lastCapture;
  thread_local std::int64_t lastNumber = 0;
  const bool isSameCapture = lastCapture.lock() == current;
  Slot* const slot = current->AwaitNewerThan(isSameCapture ? lastNumber : -1);
  if (slot == nullptr) {
    return kNotYet;
  }
  const bool isNew = !isSameCapture || slot->number > lastNumber || !microscope.faults.freezes;
  if (isNew) {
    lastCapture = current;
    lastNumber = slot->number;
    std::memcpy(buffer, slot->pixels.data(), current->FrameBytes());
  }
  const std::lock_guard lock(current->mutex);
  --slot->readers;
  return isNew ? kOk : kNotYet;
}

}  // namespace ostrel_simulator
