#include "addon/script_arguments.h"

namespace ostrel_native {

namespace {

// An index beyond the arguments reads as undefined, which is of no wanted type.
bool IsOfType(const Napi::CallbackInfo& info, std::size_t index, napi_valuetype type) {
  return info[index].Type() == type;
}

}  // namespace

std::int32_t ReadIntArg(const Napi::CallbackInfo& info, std::size_t index, std::int32_t fallback) {
  return IsOfType(info, index, napi_number) ? info[index].As<Napi::Number>().Int32Value()
                                            : fallback;
}

double ReadDoubleArg(const Napi::CallbackInfo& info, std::size_t index, double fallback) {
  return IsOfType(info, index, napi_number) ? info[index].As<Napi::Number>().DoubleValue()
                                            : fallback;
}

bool ReadBoolArg(const Napi::CallbackInfo& info, std::size_t index, bool fallback) {
  return IsOfType(info, index, napi_boolean) ? info[index].As<Napi::Boolean>().Value() : fallback;
}

std::string ReadStringArg(const Napi::CallbackInfo& info, std::size_t index) {
  return IsOfType(info, index, napi_string) ? info[index].As<Napi::String>().Utf8Value()
                                            : std::string();
}

}  // namespace ostrel_native
