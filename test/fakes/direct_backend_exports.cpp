// `testing`, the one object that the test build of the addon exports beyond what ships: the
// script tests' way to the direct backend. The symbols' script and log stand behind
// fake_control.node, which opens the test build like any fake library.
//
//   useBackend(kind, without = [])
//                                fills the table of "directshow" or "avfoundation", but for the
//                                entries named; "none" empties both
//   setGrabBytes(array | null)   what grabs deliver
//   fire(frame)                  calls the frame callback on a new thread and waits for its return;
//                                false if none is registered
//   fireWhileRegistering(frame)  fires once, inside the next registration and on its thread
//   startHammer(frame, { framesPerSecond, contents })
//   stopHammer()                 the number of frames that were fired
//   encodeJpeg(rgb, width, height, subsampling)    a Buffer, by the real library
//   decodeJpeg(jpeg)             { width, height, subsampling, planes: [{ width, height, data }] }
//
// A frame is an object with any of: device, data, size, stride, data1, size1, stride1, flipped,
// format, width, height, planeCount, timestamp, nullContext, late. Sizes are those of the data
// unless told; numbers may be BigInts.
#include <napi.h>

#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "addon/script_exports.h"
#include "fakes/direct_backend.h"
#include "simulator/addon_extension.h"
#include "unit/support/jpeg_samples.h"

namespace ostrel_native {

namespace {

std::int64_t NumberOf(const Napi::Value& value, std::int64_t fallback = 0) {
  if (value.IsBigInt()) {
    bool lossless = false;
    return value.As<Napi::BigInt>().Int64Value(&lossless);
  }
  return value.IsNumber() ? value.As<Napi::Number>().Int64Value() : fallback;
}

std::int32_t IntOf(const Napi::Object& object, const char* key, std::int32_t fallback = 0) {
  return static_cast<std::int32_t>(NumberOf(object.Get(key), fallback));
}

std::vector<std::uint8_t> BytesOf(const Napi::Value& value) {
  const auto array = value.As<Napi::Uint8Array>();
  return {array.Data(), array.Data() + array.ByteLength()};
}

FiredPlane PlaneOf(const Napi::Value& data, const Napi::Value& size, const Napi::Value& stride) {
  FiredPlane plane;
  std::size_t length = 0;
  if (data.IsTypedArray()) {
    const std::vector<std::uint8_t> bytes = BytesOf(data);
    length = bytes.size();
    plane.bytes = std::make_shared<test::GuardedBuffer>(length);
    std::copy(bytes.begin(), bytes.end(), plane.bytes->begin());
  }
  plane.size = static_cast<std::uint64_t>(NumberOf(size, static_cast<std::int64_t>(length)));
  plane.stride = static_cast<std::int32_t>(NumberOf(stride));
  return plane;
}

FiredFrame FrameOf(const Napi::Value& value) {
  const auto object = value.As<Napi::Object>();
  FiredFrame frame;
  frame.device = IntOf(object, "device");
  frame.planes[0] = PlaneOf(object.Get("data"), object.Get("size"), object.Get("stride"));
  frame.planes[1] = PlaneOf(object.Get("data1"), object.Get("size1"), object.Get("stride1"));
  frame.flipped = IntOf(object, "flipped");
  frame.format = IntOf(object, "format");
  frame.width = IntOf(object, "width");
  frame.height = IntOf(object, "height");
  frame.planeCount = IntOf(object, "planeCount", 1);
  frame.timestamp = NumberOf(object.Get("timestamp"));
  frame.nullContext = object.Get("nullContext").ToBoolean();
  frame.late = object.Get("late").ToBoolean();
  return frame;
}

BackendKind KindOf(const std::string& name) {
  for (const auto kind : {BackendKind::None, BackendKind::DirectShow, BackendKind::AvFoundation}) {
    if (name == BackendName(kind)) {
      return kind;
    }
  }
  throw std::invalid_argument("no such kind: " + name);
}

Napi::Value UseBackend(const Napi::CallbackInfo& info) {
  std::set<std::string> without;
  if (info[1].IsArray()) {
    const auto names = info[1].As<Napi::Array>();
    for (std::uint32_t i = 0; i < names.Length(); ++i) {
      without.insert(names.Get(i).ToString());
    }
  }
  DirectBackend::Instance().Use(KindOf(info[0].ToString()), without);
  return info.Env().Undefined();
}

Napi::Value SetGrabBytes(const Napi::CallbackInfo& info) {
  std::optional<std::vector<std::uint8_t>> bytes;
  if (info[0].IsTypedArray()) {
    bytes = BytesOf(info[0]);
  }
  DirectBackend::Instance().SetGrabBytes(std::move(bytes));
  return info.Env().Undefined();
}

Napi::Value Fire(const Napi::CallbackInfo& info) {
  const FiredFrame frame = FrameOf(info[0]);
  bool called = false;
  std::thread([&] { called = DirectBackend::Instance().Fire(frame); }).join();
  return Napi::Boolean::New(info.Env(), called);
}

Napi::Value FireWhileRegistering(const Napi::CallbackInfo& info) {
  DirectBackend::Instance().FireWhileRegistering(FrameOf(info[0]));
  return info.Env().Undefined();
}

Napi::Value StartHammer(const Napi::CallbackInfo& info) {
  const auto options = info[1].As<Napi::Object>();
  HammerPlan plan;
  plan.frame = FrameOf(info[0]);
  if (options.Get("framesPerSecond").IsNumber()) {
    plan.framesPerSecond = options.Get("framesPerSecond").As<Napi::Number>();
  }
  if (options.Get("contents").IsArray()) {
    const auto contents = options.Get("contents").As<Napi::Array>();
    for (std::uint32_t i = 0; i < contents.Length(); ++i) {
      const Napi::Value none = info.Env().Undefined();
      plan.contents.push_back(PlaneOf(contents.Get(i), none, none));
    }
  }
  DirectBackend::Instance().StartHammer(std::move(plan));
  return info.Env().Undefined();
}

Napi::Value StopHammer(const Napi::CallbackInfo& info) {
  const std::uint64_t fired = DirectBackend::Instance().StopHammer();
  return Napi::Number::New(info.Env(), static_cast<double>(fired));
}

Napi::Value EncodeJpegForScript(const Napi::CallbackInfo& info) {
  const std::vector<std::uint8_t> jpeg =
      JpegOf(BytesOf(info[0]), static_cast<int>(NumberOf(info[1])),
             static_cast<int>(NumberOf(info[2])), static_cast<int>(NumberOf(info[3])));
  return Napi::Buffer<std::uint8_t>::Copy(info.Env(), jpeg.data(), jpeg.size());
}

Napi::Value DecodeJpegForScript(const Napi::CallbackInfo& info) {
  const DecodedJpeg decoded = DecodeJpegPlanes(BytesOf(info[0]));
  const Napi::Env env = info.Env();
  Napi::Array planes = Napi::Array::New(env);
  for (const JpegPlane& plane : decoded.planes) {
    Napi::Object object = Napi::Object::New(env);
    object.Set("width", plane.width);
    object.Set("height", plane.height);
    object.Set("data", Napi::Buffer<std::uint8_t>::Copy(env, plane.data.data(), plane.data.size()));
    planes.Set(planes.Length(), object);
  }
  Napi::Object answer = Napi::Object::New(env);
  answer.Set("width", decoded.width);
  answer.Set("height", decoded.height);
  answer.Set("subsampling", decoded.subsampling);
  answer.Set("planes", planes);
  return answer;
}

constexpr ScriptFunction kFunctions[] = {
    {"useBackend", UseBackend},
    {"setGrabBytes", SetGrabBytes},
    {"fire", Fire},
    {"fireWhileRegistering", FireWhileRegistering},
    {"startHammer", StartHammer},
    {"stopHammer", StopHammer},
    {"encodeJpeg", EncodeJpegForScript},
    {"decodeJpeg", DecodeJpegForScript},
};

}  // namespace

void ExtendExports(Napi::Env env, Napi::Object exports) {
  Napi::Object testing = Napi::Object::New(env);
  SetScriptFunctions(env, testing, kFunctions);
  exports.Set("testing", testing);
}

}  // namespace ostrel_native
