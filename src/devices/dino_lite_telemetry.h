// What the Dino-Lite device last told of itself, so that script code can poll it without ever
// waiting, and the copy of the binding's state that script code may read at any time.
//
// A poll asks for a reading on the owner thread, at most one of a kind at a time, and is served by
// an earlier one. What is older than two seconds counts as absent.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "addon/mutex.h"
#include "devices/dino_lite_binding.h"
#include "devices/reading_record.h"

namespace ostrel_native {

extern Mutex g_dinoSnapshotMutex;  ///< a leaf: held for copies and moves
extern DinoLiteBinding::DebugSnapshot g_dinoCachedSnapshot OSTREL_GUARDED_BY(g_dinoSnapshotMutex);

/// What the cache below is written and read under, so that a value is served with the
/// magnification, the device and the stamp that it belongs to.
extern ReadingRecord g_dinoTelemetry;

// The cache: written by the owner thread, read by script threads, reset by both.
extern std::atomic<std::int32_t> g_dinoTelemetryIndex;  ///< of the device that the rest is about
extern std::atomic<double> g_dinoCachedAmr;             ///< last accepted magnification; or -1
extern std::atomic<std::int64_t> g_dinoCachedAmrAtMs;   ///< when it was read; 0: never
extern std::atomic<double> g_dinoCachedFov;             ///< last field of view; or -1
extern std::atomic<double> g_dinoCachedFovAmr;          ///< the magnification that it is for
extern std::atomic<std::int64_t> g_dinoCachedFovAtMs;   ///< when it was read; 0: never
extern std::atomic<bool> g_dinoCachedMicrotouch;        ///< pressed and not yet reported

/// Publishes the present state of the binding.
/// Thread: owner.
void UpdateDinoSnapshotOnOwnerThread();

/// Publishes the state of nothing loaded.
/// Thread: any.
void ResetDinoSnapshot();

/// Forgets all readings; those to come are of the device `index`, or of none with -1.
/// Thread: any.
void ResetDinoTelemetry(std::int32_t index);

/// Reads the magnification if the selected device has one. A value that no microscope can have
/// leaves the last good one to age.
/// Thread: owner.
void ReadDinoAmrOnOwnerThread();

/// The three polls: each posts a reading and gives what an earlier one has read.
/// Thread: any environment; they never wait and never call the library.
///
/// The magnification. The readings of another device than at the last call are dropped first.
std::optional<double> PollDinoAmr(std::int32_t deviceIndex);
/// The field of view at the magnification `amr`; one for another magnification is dropped first. A
/// negative `selector` counts as 0.
std::optional<double> PollDinoFov(double amr, std::int32_t selector);
/// Whether the button was pressed since the last call: each press is told once, however old.
bool PollDinoMicrotouch();

struct DinoDebugState {
  DinoLiteBinding::DebugSnapshot snapshot;
  std::optional<double> cachedAmr;  ///< however old
  std::optional<std::int64_t> cachedAmrAgeMs;
};

/// The published state and the age of the last magnification.
/// Thread: any environment; never waits for the owner thread.
DinoDebugState CopyDinoDebugState();

}  // namespace ostrel_native
