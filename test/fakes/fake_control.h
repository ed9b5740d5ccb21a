// The programmable core that every fake library is made of: scripted answers, gates that hold a
// call, a log of the calls, and the text commands through which a test controls them.
//
// A fake exports, beside the symbols it stands in for, one function of its own:
//
//   char* fake_control(const char* commands);
//
// It takes one command a line and returns their answers, one a line ("ok", "ok 3", or a line
// "error: ..." at which it stops), as a heap text that the caller frees with free(). `log` may
// answer with several lines. C++ tests use fake_library.h, script tests the addon
// fake_control.node.
//
// KEY names a symbol, or a symbol with its first integer arguments: `cnokhwa_device_name`,
// `cnokhwa_device_name@0`, `cnokhwa_device_format_width@0,2`. For each call the most specific
// key that has what is asked for wins. `symbol.field` names an output parameter where the fake
// documents one. N are decimal integers.
//
//   reset                      forget everything below; calls that are held go on
//   default KEY N              the answer once the queue is empty; 0 where nothing is said
//   answer KEY N...            queue answers, one for each call
//   text KEY TEXT              text answer, cut to the capacity and terminated; \xHH is a byte
//   unterminated KEY BYTE      text answer: the whole capacity is BYTE, with no terminator
//   wide KEY N...              text answer of these 32-bit characters, terminated
//   wide_unterminated KEY N M  text answer: M times the character N, then memory that is not there
//   delay KEY MS               each call sleeps before it answers
//   throw KEY TEXT             each call throws a std::runtime_error with this text
//   throw_number KEY           each call throws an int
//   block KEY [until KEY2]     hold calls as they enter, until a release or a call of KEY2
//   release KEY [N]            let N held or later calls pass; without N, open for good
//   wait_entered KEY N [MS]    wait until N calls in all have entered; "ok n" or "error: ..."
//   wait_finished KEY N [MS]   wait until N calls in all have returned
//   stats KEY                  "ok entered=2 finished=1 active=1 max_active=1"
//   log [KEY]                  "ok n", then a line a call, oldest first, see fake_library.h
//   clear_log
//   log_limit N                keep the newest N calls (10000); dropped calls keep their index
//   log_file PATH              also append each entering call to a file at once: it outlives exit
//   frame W H [ROW]            frame size; ROW bytes a row, 3 * W if not given
//   frame_after N W H [ROW]    another frame size once N more frames have been delivered
//   content uniform            each pixel is the frame's number, little endian in 3 bytes
//   content ramp               each byte depends on the frame's number and its own offset
//   content fill BYTE          each byte of the capacity is BYTE
//   content none               nothing is written
//   frames                     "ok n": frames delivered so far
//
// A text that was never set leaves the buffer alone. Nothing here is destroyed at process exit;
// `reset` frees all memory, so that a library may be closed after it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace ostrel_native {

/// The symbols of the fake library, ended by null; each fake defines it, and commands that name
/// another symbol are refused.
extern const char* const kFakeSymbols[];

/// One argument of a logged call.
struct FakeArgument {
  // Implicit, so that a call lists its arguments as they are.
  FakeArgument(int value) : number(value) {}  // NOLINT(google-explicit-constructor)
  FakeArgument(unsigned long value)           // NOLINT(google-explicit-constructor)
      : number(static_cast<std::int64_t>(value)) {}
  FakeArgument(const void* value)  // NOLINT(google-explicit-constructor)
      : number(value == nullptr ? 0 : 1), pointer(true) {}

  std::int64_t number = 0;  ///< for a pointer: 0 null, 1 not null
  bool pointer = false;
};

/// One call of a faked symbol, from its entry to its return: construct it first of all, answer
/// with `result`. The constructor logs the call, then holds and delays it as scripted.
/// Thread: any.
struct FakeCall {
  /// `builtIn`: the answer where the test said nothing.
  FakeCall(const char* symbol, std::initializer_list<FakeArgument> arguments,
           std::int64_t builtIn = 0);
  ~FakeCall();
  FakeCall(const FakeCall&) = delete;
  FakeCall& operator=(const FakeCall&) = delete;

  int Result() const { return static_cast<int>(result); }

  /// The scripted value of the output parameter `symbol.field`.
  int Field(const char* field, std::int64_t builtIn = 0) const;

  /// Writes the scripted text, never beyond `capacity` bytes; null is allowed.
  void WriteText(void* buffer, int capacity) const;

  /// The scripted text in memory of the library, which its next text of that kind reuses; null
  /// where none was scripted.
  const char* LibraryText() const;
  const wchar_t* LibraryWideText() const;

  /// Counts a delivered frame and writes its content, never beyond `capacity` bytes.
  void WriteFrame(void* buffer, int capacity) const;

  /// What the end of a call leaves in the log and the statistics.
  void Finish() const;

  std::int64_t result = 0;
  std::vector<std::string> keys;  ///< most specific first, the bare symbol last
  std::int64_t logIndex = 0;
};

/// The current scripted frame size: pixels, pixels, bytes.
struct FakeFrameSize {
  int width = 0;
  int height = 0;
  int bytesPerRow = 0;
};
FakeFrameSize CurrentFakeFrameSize();

/// What a library with static destructors does to itself at exit: every later call answers -1
/// and writes nothing. The log file says so.
void DestroyFakeLibrary();

}  // namespace ostrel_native

extern "C" __attribute__((visibility("default"))) char* fake_control(const char* commands);
