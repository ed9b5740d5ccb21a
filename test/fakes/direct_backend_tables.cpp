// The entries of the two tables, made from their lists.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <type_traits>

#include "fakes/direct_backend.h"
#include "fakes/fake_control.h"

namespace ostrel_native {

const char* const kFakeSymbols[] = {
#define OPTIONAL(name, result, parameters) #name,
#include "camera/backend/dshow_symbols.h"
#define OPTIONAL(name, result, parameters) #name,
#include "camera/backend/avf_symbols.h"
    nullptr};

namespace {

/// A name as a template argument.
template <std::size_t kSize>
struct EntryName {
  // Implicit, so that a text literal is one.
  constexpr EntryName(const char (&name)[kSize]) {  // NOLINT(google-explicit-constructor)
    std::copy_n(name, kSize, text);
  }
  char text[kSize] = {};
};

template <typename Argument>
FakeArgument Logged(Argument argument) {
  if constexpr (std::is_pointer_v<Argument>) {
    return FakeArgument(reinterpret_cast<const void*>(argument));
  } else {
    return FakeArgument(argument);
  }
}

void DeliverFrame(const FakeCall& call, void* buffer, int capacity) {
  const auto bytes = DirectBackend::Instance().GrabBytes();
  if (!bytes) {
    call.WriteFrame(buffer, capacity);
  } else if (buffer != nullptr && capacity > 0) {
    std::memcpy(buffer, bytes->data(), std::min(bytes->size(), static_cast<std::size_t>(capacity)));
  }
}

// What a call does beside its answer, by its parameters.

template <bool kAnswers, typename... Numbers>
void Act(const FakeCall&, bool, Numbers...) {}

template <bool kAnswers>
void Act(const FakeCall& call, bool succeeded, int, void* buffer, int capacity) {
  if constexpr (kAnswers) {
    if (succeeded) {
      DeliverFrame(call, buffer, capacity);
    }
  } else {
    call.WriteText(buffer, capacity);
  }
}

template <bool kAnswers>
void Act(const FakeCall& call, bool, int, int, char* buffer, int capacity) {
  call.WriteText(buffer, capacity);
}

template <bool kAnswers>
void Act(const FakeCall& call, bool, int, int, int* min, int* max, int* step, int* defaultValue,
         int* caps) {
  *min = call.Field("min");
  *max = call.Field("max");
  *step = call.Field("step");
  *defaultValue = call.Field("default");
  *caps = call.Field("caps");
}

template <bool kAnswers>
void Act(const FakeCall& call, bool, int, int, int* value, int* flags) {
  *value = call.Field("value");
  *flags = call.Field("flags");
}

template <typename Callback>
void ChangeCallback(const FakeCall& call, Callback callback, void* context) {
  if (callback == nullptr) {
    DirectBackend::Instance().Unregister();
  } else if (call.Result() >= 0) {
    DirectBackend::Instance().Register(callback, context);
  }
}

template <bool kAnswers>
void Act(const FakeCall& call, bool, int, DirectFrameCallbackFn callback, void* context, int) {
  ChangeCallback(call, callback, context);
}

template <bool kAnswers>
void Act(const FakeCall& call, bool, int, AvfDirectFrameCallbackFn callback, void* context, int) {
  ChangeCallback(call, callback, context);
}

template <EntryName kName, typename Entry>
struct ScriptedEntry;

template <EntryName kName, typename Result, typename... Parameters>
struct ScriptedEntry<kName, Result (*)(Parameters...)> {
  static Result Call(Parameters... arguments) {
    const FakeCall call(kName.text, {Logged(arguments)...});
    // An int tells success by 0, a bool by true.
    const bool succeeded = std::is_same_v<Result, bool> == (call.result != 0);
    Act<!std::is_void_v<Result>>(call, succeeded, arguments...);
    return static_cast<Result>(call.result);
  }
};

template <EntryName kName, typename Entry>
Entry EntryUnless(bool isMissing) {
  return isMissing ? nullptr : &ScriptedEntry<kName, Entry>::Call;
}

}  // namespace

void DirectBackend::Use(BackendKind kind, const std::set<std::string>& without) {
  g_camera.kind = BackendKind::None;
  const bool hasDshow = kind == BackendKind::DirectShow;
  const bool hasAvf = kind == BackendKind::AvFoundation;
#define OPTIONAL(name, result, parameters) \
  g_camera.name =                          \
      EntryUnless<#name, decltype(CameraBinding::name)>(!hasDshow || without.count(#name) != 0);
#include "camera/backend/dshow_symbols.h"
#define OPTIONAL(name, result, parameters) \
  g_camera.name =                          \
      EntryUnless<#name, decltype(CameraBinding::name)>(!hasAvf || without.count(#name) != 0);
#include "camera/backend/avf_symbols.h"
  g_camera.kind = kind;
}

}  // namespace ostrel_native
