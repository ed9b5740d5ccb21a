#include "addon/script_arguments.h"

#include "addon/number_conversion.h"

namespace ostrel_native {

namespace {

// An index beyond the arguments reads as undefined, which is of no wanted type.
bool IsOfType(const Napi::CallbackInfo& info, std::size_t index, napi_valuetype type) {
  return info[index].Type() == type;
}

// `read` itself refuses what is no number: one call into Node-API less for what is polled often.
template <typename Number>
Number ReadNumber(const Napi::CallbackInfo& info, std::size_t index, Number fallback,
                  napi_status (*read)(napi_env, napi_value, Number*)) {
  Number value = fallback;
  const napi_status status = read(info.Env(), info[index], &value);
  if (status == napi_number_expected) {
    return fallback;
  }
  NAPI_THROW_IF_FAILED(info.Env(), status, fallback);
  return value;
}

}  // namespace

std::int32_t ReadIntArg(const Napi::CallbackInfo& info, std::size_t index, std::int32_t fallback) {
  return ReadNumber(info, index, fallback, napi_get_value_int32);
}

double ReadDoubleArg(const Napi::CallbackInfo& info, std::size_t index, double fallback) {
  return ReadNumber(info, index, fallback, napi_get_value_double);
}

std::uint64_t ReadUint64Arg(const Napi::CallbackInfo& info, std::size_t index) {
  return SaturatingUint64(ReadDoubleArg(info, index, 0.0));
}

bool ReadBoolArg(const Napi::CallbackInfo& info, std::size_t index, bool fallback) {
  return IsOfType(info, index, napi_boolean) ? info[index].As<Napi::Boolean>().Value() : fallback;
}

std::string ReadStringArg(const Napi::CallbackInfo& info, std::size_t index) {
  return IsOfType(info, index, napi_string) ? info[index].As<Napi::String>().Utf8Value()
                                            : std::string();
}

}  // namespace ostrel_native
