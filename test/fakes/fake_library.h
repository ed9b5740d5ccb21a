// The tests' side of a fake library: opens it and speaks its commands.
#pragma once

#include <dlfcn.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace ostrel_native {

/// The path of a file that the build put among the fakes: `libcnokhwa.so`,
/// `without_cnokhwa_grab_frame/libcnokhwa.so`, `static_destructor/libcnokhwa.so`.
inline std::string FakePath(const std::string& name) {
  return std::string(OSTREL_TEST_FAKES_DIR "/") + name;
}

/// One logged call.
struct FakeCallRecord {
  std::int64_t index = 0;  ///< counts the calls of all symbols from 1, in order of entry
  std::string symbol;
  std::vector<std::string> arguments;  ///< numbers in decimal, pointers "null" or "ptr"
  int thread = 0;                      ///< kernel thread id
  bool finished = false;
  std::int64_t result = 0;  ///< once finished
};

/// A fake library, by path; fake_control.h lists the commands. Opening it does not reset it: the
/// same file is the same library for all who open it in this process. It stays open for good, so
/// that its threads and its memory stay valid; Close() is for tests of closing.
/// Everything throws std::runtime_error on a failure, which fails the test.
struct FakeLibrary {
  explicit FakeLibrary(const std::string& path) : handle(dlopen(path.c_str(), RTLD_NOW)) {
    if (handle == nullptr) {
      throw std::runtime_error(dlerror());
    }
    control = Symbol<char* (*)(const char*)>("fake_control");
  }

  /// Runs one command a line; returns the answers, a line each.
  std::string Send(const std::string& commands) const {
    const std::unique_ptr<char, decltype(&std::free)> text(control(commands.c_str()), &std::free);
    std::string answers = text.get();
    const std::size_t lastLine = answers.rfind('\n') + 1;
    if (answers.compare(lastLine, 6, "error:") == 0) {
      throw std::runtime_error(answers.substr(lastLine));
    }
    return answers;
  }

  /// The address of a symbol; throws where it is missing.
  template <typename Fn>
  Fn Symbol(const char* name) const {
    void* const symbol = dlsym(handle, name);
    if (symbol == nullptr) {
      throw std::runtime_error(std::string("missing symbol ") + name);
    }
    return reinterpret_cast<Fn>(symbol);
  }

  /// Blocks until `count` calls in all have entered, or returned.
  void WaitEntered(const std::string& key, int count) const {
    Send("wait_entered " + key + " " + std::to_string(count));
  }
  void WaitFinished(const std::string& key, int count) const {
    Send("wait_finished " + key + " " + std::to_string(count));
  }

  /// How many calls have entered so far; also those that the log has dropped.
  int Entered(const std::string& key) const {
    const std::string answer = Send("stats " + key);
    return std::atoi(answer.c_str() + answer.find('=') + 1);
  }

  /// The logged calls, oldest first; of one key or of all.
  std::vector<FakeCallRecord> Calls(const std::string& key = "") const {
    std::istringstream lines(Send("log " + key));
    std::vector<FakeCallRecord> calls;
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line)) {
      calls.push_back(ParseCall(line));
    }
    return calls;
  }

  /// The symbols of the logged calls, oldest first.
  std::vector<std::string> CallOrder() const {
    std::vector<std::string> symbols;
    for (const FakeCallRecord& call : Calls()) {
      symbols.push_back(call.symbol);
    }
    return symbols;
  }

  /// Frees the library's memory and gives up this handle.
  void Close() {
    Send("reset");
    dlclose(handle);
    handle = nullptr;
  }

  // One line: "index=1 symbol=cnokhwa_grab_frame args=0,ptr,12 thread=99 result=0", where the
  // result of a call that has not returned is "pending".
  static FakeCallRecord ParseCall(const std::string& line) {
    std::istringstream words(line);
    std::string word;
    FakeCallRecord call;
    while (words >> word) {
      const std::string name = word.substr(0, word.find('='));
      const std::string value = word.substr(name.size() + 1);
      if (name == "index") {
        call.index = std::stoll(value);
      } else if (name == "symbol") {
        call.symbol = value;
      } else if (name == "args") {
        std::istringstream list(value);
        for (std::string argument; std::getline(list, argument, ',');) {
          call.arguments.push_back(argument);
        }
      } else if (name == "thread") {
        call.thread = std::stoi(value);
      } else if (name == "result" && value != "pending") {
        call.finished = true;
        call.result = std::stoll(value);
      }
    }
    return call;
  }

  void* handle = nullptr;
  char* (*control)(const char*) = nullptr;
};

}  // namespace ostrel_native
