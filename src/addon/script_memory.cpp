#include "addon/script_memory.h"

#include <cstring>

namespace ostrel_native {

namespace {

// What script code may have put in a function's place can give anything.
Napi::Uint8Array CheckedBytes(const Napi::Value& value, std::size_t bytes) {
  if (value.IsTypedArray()) {
    const auto array = value.As<Napi::TypedArray>();
    if (array.TypedArrayType() == napi_uint8_array && array.ByteLength() == bytes) {
      return value.As<Napi::Uint8Array>();
    }
  }
  throw Napi::Error::New(value.Env(), "The environment cannot allocate a byte array");
}

Napi::Number Size(Napi::Env env, std::size_t bytes) {
  return Napi::Number::New(env, static_cast<double>(bytes));
}

}  // namespace

void KeepEnvironmentData(Napi::Env env) {
  const Napi::Object global = env.Global();
  auto data = std::make_unique<EnvironmentData>();
  data->byteArrayConstructor = Napi::Persistent(global.Get("Uint8Array").As<Napi::Function>());
  data->bufferAllocator = Napi::Persistent(
      global.Get("Buffer").As<Napi::Object>().Get("allocUnsafeSlow").As<Napi::Function>());
  env.SetInstanceData(data.release());
}

EnvironmentData& EnvironmentDataOf(Napi::Env env) {
  return *env.GetInstanceData<EnvironmentData>();
}

Napi::Uint8Array NewByteArray(Napi::Env env, std::size_t bytes) {
  return CheckedBytes(EnvironmentDataOf(env).byteArrayConstructor.New({Size(env, bytes)}), bytes);
}

Napi::Uint8Array NewBuffer(Napi::Env env, std::size_t bytes) {
  return CheckedBytes(EnvironmentDataOf(env).bufferAllocator.Call({Size(env, bytes)}), bytes);
}

Napi::Uint8Array CopyToBuffer(Napi::Env env, const std::uint8_t* data, std::size_t bytes) {
  Napi::Uint8Array buffer = NewBuffer(env, bytes);
  if (bytes != 0) {
    std::memcpy(buffer.Data(), data, bytes);
  }
  return buffer;
}

}  // namespace ostrel_native
