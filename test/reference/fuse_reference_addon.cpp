// The literal fusion for script tests: `fuse(request)` takes the request of `edofMultibandFuse`,
// which must be a good one, and gives the bytes.
#include <napi.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "reference/fuse_reference.h"

namespace {

using ostrel_native::FieldView;
using ostrel_native::FrameView;

std::int32_t ReadInt(const Napi::Object& object, const char* key) {
  return object.Get(key).ToNumber().Int32Value();
}

const float* ReadFloats(const Napi::Value& array) {
  return array.As<Napi::Float32Array>().Data();
}

Napi::Value Fuse(const Napi::CallbackInfo& info) {
  const auto request = info[0].As<Napi::Object>();
  const auto frameList = request.Get("frames").As<Napi::Array>();
  const auto fieldList = request.Get("fields").As<Napi::Array>();
  const auto weightList = request.Get("weights").As<Napi::Array>();
  std::vector<FrameView> frames;
  std::vector<FieldView> fields;
  std::vector<const float*> weights;
  for (std::uint32_t i = 0; i < frameList.Length(); ++i) {
    const auto frame = frameList.Get(i).As<Napi::Object>();
    const auto field = fieldList.Get(i).As<Napi::Object>();
    frames.push_back({frame.Get("rgba").As<Napi::Uint8Array>().Data(),
                      frame.Get("sourcePixelsPerOutputPixel").ToNumber().DoubleValue()});
    fields.push_back({ReadInt(field, "mapWidth"), ReadInt(field, "mapHeight"),
                      ReadFloats(field.Get("x")), ReadFloats(field.Get("y")),
                      ReadFloats(field.Get("confidence")), field.Get("accepted").ToBoolean()});
    weights.push_back(ReadFloats(weightList.Get(i)));
  }
  const std::vector<std::uint8_t> rgba = ostrel_native::test::ReferenceFuse(
      {ReadInt(request, "width"), ReadInt(request, "height"), ReadInt(request, "referenceIndex"),
       frames, fields, weights});
  auto result = Napi::Uint8Array::New(info.Env(), rgba.size());
  std::memcpy(result.Data(), rgba.data(), rgba.size());
  return result;
}

Napi::Object Init(Napi::Env env, Napi::Object exports) {
  exports.Set("fuse", Napi::Function::New(env, Fuse, "fuse"));
  return exports;
}

}  // namespace

NODE_API_MODULE(fuse_reference, Init)
