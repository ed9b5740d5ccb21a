// Lets script tests control a fake: `open(path)` opens the library that the addon under test
// also opens, and gives an object whose `send(commands)` runs the commands of fake_control.h.
// Both throw an Error on a failure. A wait_... command blocks the script thread.
#include <dlfcn.h>
#include <napi.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace {

using ControlFn = char* (*)(const char*);

Napi::Value Send(const Napi::CallbackInfo& info, ControlFn control) {
  const std::string commands = info[0].ToString();
  const std::unique_ptr<char, decltype(&std::free)> text(control(commands.c_str()), &std::free);
  const std::string answers = text.get();
  const std::size_t lastLine = answers.rfind('\n') + 1;
  if (answers.compare(lastLine, 6, "error:") == 0) {
    throw Napi::Error::New(info.Env(), answers.substr(lastLine));
  }
  return Napi::String::New(info.Env(), answers);
}

Napi::Value Open(const Napi::CallbackInfo& info) {
  const std::string path = info[0].ToString();
  void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    throw Napi::Error::New(info.Env(), dlerror());
  }
  const auto control = reinterpret_cast<ControlFn>(dlsym(handle, "fake_control"));
  if (control == nullptr) {
    throw Napi::Error::New(info.Env(), "not a fake library: " + path);
  }
  Napi::Object library = Napi::Object::New(info.Env());
  library.Set("send", Napi::Function::New(
                          info.Env(),
                          [control](const Napi::CallbackInfo& call) { return Send(call, control); },
                          "send"));
  return library;
}

Napi::Object Init(Napi::Env env, Napi::Object exports) {
  exports.Set("open", Napi::Function::New(env, Open, "open"));
  return exports;
}

}  // namespace

NODE_API_MODULE(fake_control, Init)
