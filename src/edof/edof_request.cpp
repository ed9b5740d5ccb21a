#include "edof/edof_request.h"

#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <thread>

#include "addon/number_conversion.h"
#include "edof/worker_limit.h"

namespace ostrel_native {

namespace {

constexpr std::uint32_t kMinFrames = 3;
constexpr std::uint32_t kMaxFrames = 11;

// The engine leaves the type as it was for element types that this Node-API has no number for;
// this is the number that none has.
constexpr auto kUnknownElements = static_cast<napi_typedarray_type>(15);

struct TypedArrayInfo {
  napi_typedarray_type type = kUnknownElements;
  std::size_t length = 0;  // elements
  void* data = nullptr;
};

// Asks the engine anew each time: the wrapper class would answer with what it saw first.
TypedArrayInfo InspectTypedArray(napi_env env, napi_value array) {
  TypedArrayInfo info;
  const napi_status status =
      napi_get_typedarray_info(env, array, &info.type, &info.length, &info.data, nullptr, nullptr);
  if (status != napi_ok) {
    throw Napi::Error::New(env);
  }
  return info;
}

// A typed array that has passed its checks. Code that a later getter runs may still detach, move
// or shrink its memory, so the pointer is taken at the very end.
struct CheckedArray {
  napi_value array;
  std::size_t length;  // elements
  std::string lengthText;
};

CheckedArray CheckTypedArray(const Napi::Value& value, napi_typedarray_type type,
                             std::uint64_t length, const std::string& typeText,
                             const std::string& lengthText) {
  if (value.IsEmpty() || !value.IsTypedArray()) {
    throw std::runtime_error(typeText);
  }
  const TypedArrayInfo info = InspectTypedArray(value.Env(), value);
  if (info.type != type) {
    throw std::runtime_error(typeText);
  }
  if (info.length != length) {
    throw std::runtime_error(lengthText);
  }
  return {value, info.length, lengthText};
}

template <typename T>
const T* DataOf(napi_env env, const CheckedArray& checked) {
  const TypedArrayInfo info = InspectTypedArray(env, checked.array);
  if (info.length != checked.length) {
    throw std::runtime_error(checked.lengthText);
  }
  return static_cast<const T*>(info.data);
}

// One frame of the stack between the two passes.
struct CheckedFrame {
  CheckedArray rgba;
  double sourcePixelsPerOutputPixel;
  std::int32_t mapWidth;
  std::int32_t mapHeight;
  CheckedArray x;
  CheckedArray y;
  CheckedArray confidence;
  bool accepted;
  CheckedArray weights;
};

double ReadScale(const Napi::Object& frame) {
  const Napi::Value value = frame.Get("sourcePixelsPerOutputPixel");
  if (value.IsEmpty() || !value.IsNumber()) {
    throw std::runtime_error("Native EDOF requires numeric sourcePixelsPerOutputPixel");
  }
  const double scale = value.As<Napi::Number>().DoubleValue();
  if (!std::isfinite(scale)) {
    throw std::runtime_error("Native EDOF received invalid sourcePixelsPerOutputPixel");
  }
  if (scale <= 0.0) {
    throw std::runtime_error("Native EDOF physical scale must be positive");
  }
  return scale;
}

CheckedFrame ReadFrame(const Napi::Array& frames, const Napi::Array& fields,
                       const Napi::Array& weights, std::uint32_t index, std::uint64_t pixels) {
  const Napi::Value frameValue = frames.Get(index);
  if (frameValue.IsEmpty() || !frameValue.IsObject()) {
    throw std::runtime_error("Native EDOF frame or field is invalid");
  }
  const Napi::Value fieldValue = fields.Get(index);
  if (fieldValue.IsEmpty() || !fieldValue.IsObject()) {
    throw std::runtime_error("Native EDOF frame or field is invalid");
  }
  const auto frame = frameValue.As<Napi::Object>();
  const auto field = fieldValue.As<Napi::Object>();

  CheckedFrame result{};
  result.rgba = CheckTypedArray(frame.Get("rgba"), napi_uint8_array, 4 * pixels,
                                "Native EDOF frame RGBA data must be Uint8Array",
                                "Native EDOF frame RGBA length is invalid");
  result.sourcePixelsPerOutputPixel = ReadScale(frame);
  result.mapWidth = ReadRequiredInt(field, "mapWidth");
  result.mapHeight = ReadRequiredInt(field, "mapHeight");
  const std::uint64_t cells = CheckedPixels(result.mapWidth, result.mapHeight);
  const auto readMap = [&field, cells](const char* key) {
    const std::string name = std::string("Native EDOF field ") + key;
    return CheckTypedArray(field.Get(key), napi_float32_array, cells,
                           name + " must be Float32Array", name + " length is invalid");
  };
  result.x = readMap("x");
  result.y = readMap("y");
  result.confidence = readMap("confidence");
  result.accepted = field.Get("accepted").ToBoolean();
  result.weights = CheckTypedArray(weights.Get(index), napi_float32_array, cells,
                                   "Native EDOF weights must be Float32Array values",
                                   "Native EDOF weight length is invalid");
  return result;
}

std::int32_t ReadWorkerLimit(const Napi::Object& request) {
  std::int32_t limit = DefaultWorkerLimit(std::thread::hardware_concurrency());
  const Napi::Value value = request.Get("maxThreads");
  if (value.IsNumber()) {
    const double number = value.As<Napi::Number>().DoubleValue();
    if (!std::isfinite(number)) {
      throw std::runtime_error("Native EDOF maxThreads is invalid");
    }
    limit = TruncatedInt32(number);
  }
  return ClampedWorkerLimit(limit);
}

// The second pass: no script runs from the first pointer on until the fusion is done. Shared memory
// may be written by another thread all the same, but it cannot shrink.
void TakeViews(napi_env env, const std::vector<CheckedFrame>& checked, EdoFRequest& request) {
  request.frames.reserve(checked.size());
  request.fields.reserve(checked.size());
  request.weights.reserve(checked.size());
  for (const CheckedFrame& frame : checked) {
    request.frames.push_back(
        {DataOf<std::uint8_t>(env, frame.rgba), frame.sourcePixelsPerOutputPixel});
    request.fields.push_back({frame.mapWidth, frame.mapHeight, DataOf<float>(env, frame.x),
                              DataOf<float>(env, frame.y), DataOf<float>(env, frame.confidence),
                              frame.accepted});
    request.weights.push_back(DataOf<float>(env, frame.weights));
  }
}

}  // namespace

std::int32_t ReadRequiredInt(const Napi::Object& object, const char* key) {
  const Napi::Value value = object.Get(key);
  if (value.IsEmpty() || !value.IsNumber()) {
    throw std::runtime_error(std::string("Native EDOF requires numeric ") + key);
  }
  const double number = value.As<Napi::Number>().DoubleValue();
  if (!std::isfinite(number)) {
    throw std::runtime_error(std::string("Native EDOF received invalid ") + key);
  }
  return TruncatedInt32(number);
}

EdoFRequest ReadEdoFRequest(const Napi::CallbackInfo& info) {
  if (info.Length() < 1 || !info[0].IsObject()) {
    throw std::runtime_error("edofMultibandFuse requires an input object");
  }
  const auto object = info[0].As<Napi::Object>();
  EdoFRequest request;
  request.width = ReadRequiredInt(object, "width");
  request.height = ReadRequiredInt(object, "height");
  const std::uint64_t pixels = CheckedPixels(request.width, request.height);
  request.referenceIndex = ReadRequiredInt(object, "referenceIndex");

  const Napi::Value framesValue = object.Get("frames");
  const Napi::Value fieldsValue = object.Get("fields");
  const Napi::Value weightsValue = object.Get("weights");
  if (!framesValue.IsArray() || !fieldsValue.IsArray() || !weightsValue.IsArray()) {
    throw std::runtime_error("Native EDOF frames, fields, and weights must be arrays");
  }
  const auto frames = framesValue.As<Napi::Array>();
  const auto fields = fieldsValue.As<Napi::Array>();
  const auto weights = weightsValue.As<Napi::Array>();
  const std::uint32_t count = frames.Length();
  if (count < kMinFrames || count > kMaxFrames || fields.Length() != count ||
      weights.Length() != count) {
    throw std::runtime_error("Native EDOF stack lengths are invalid");
  }
  if (static_cast<std::uint32_t>(request.referenceIndex) >= count) {
    throw std::runtime_error("Native EDOF reference index is invalid");
  }

  std::vector<CheckedFrame> checked;
  checked.reserve(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    checked.push_back(ReadFrame(frames, fields, weights, i, pixels));
  }
  request.workerLimit = ReadWorkerLimit(object);

  TakeViews(info.Env(), checked, request);
  return request;
}

}  // namespace ostrel_native
