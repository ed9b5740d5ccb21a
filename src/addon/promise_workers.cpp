#include "addon/promise_workers.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <utility>

namespace ostrel_native {

namespace {

Napi::Value ToScript(Napi::Env env, bool value) {
  return Napi::Boolean::New(env, value);
}

Napi::Value ToScript(Napi::Env env, int value) {
  return Napi::Number::New(env, value);
}

Napi::Value ToScript(Napi::Env env, const std::vector<VendorDeviceSnapshot>& devices) {
  Napi::Array list = Napi::Array::New(env, devices.size());
  for (std::size_t i = 0; i < devices.size(); ++i) {
    const Napi::HandleScope scope(env);
    Napi::Object entry = Napi::Object::New(env);
    entry.Set("index", devices[i].index);
    entry.Set("uniqueId", devices[i].uniqueId);
    entry.Set("name", devices[i].name);
    list.Set(static_cast<std::uint32_t>(i), entry);
  }
  return list;
}

/// Written by the pool thread in `Execute`, read by the script thread afterwards; the runtime
/// orders the two. Once queued, the worker deletes itself.
template <typename Result>
struct PromiseWorker : Napi::AsyncWorker {
  PromiseWorker(Napi::Env scriptEnv, const std::string& name, std::function<Result()> callable,
                Result initial, const char* unknownError)
      : Napi::AsyncWorker(scriptEnv, name.c_str()),
        env(scriptEnv),
        deferred(Napi::Promise::Deferred::New(scriptEnv)),
        work(std::move(callable)),
        result(std::move(initial)),
        unknownErrorText(unknownError) {}

  void Execute() override {
    try {
      result = work();
    } catch (const std::exception& error) {
      SetError(error.what());
    } catch (...) {
      SetError(unknownErrorText);
    }
  }

  void OnOK() override { deferred.Resolve(ToScript(env, result)); }

  void OnError(const Napi::Error& error) override { deferred.Reject(error.Value()); }

  Napi::Env env;
  Napi::Promise::Deferred deferred;
  std::function<Result()> work;
  Result result;
  const char* unknownErrorText;
};

using BooleanAsyncWorker = PromiseWorker<bool>;
using IntegerAsyncWorker = PromiseWorker<int>;
using VendorDeviceListAsyncWorker = PromiseWorker<std::vector<VendorDeviceSnapshot>>;

constexpr char kUnknownOperationError[] = "Native SDK operation failed with an unknown error";
constexpr char kUnknownEnumerationError[] =
    "Native SDK device enumeration failed with an unknown error";

template <typename Worker>
Napi::Value Start(std::unique_ptr<Worker> worker) {
  const Napi::Value promise = worker->deferred.Promise();
  worker->Queue();
  // From here on it deletes itself; a failed queueing has left it to us.
  static_cast<void>(worker.release());
  return promise;
}

}  // namespace

Napi::Value RunBooleanAsync(Napi::Env env, const std::string& name, std::function<bool()> work) {
  return Start(std::make_unique<BooleanAsyncWorker>(env, name, std::move(work), false,
                                                    kUnknownOperationError));
}

Napi::Value RunIntegerAsync(Napi::Env env, const std::string& name, std::function<int()> work) {
  return Start(
      std::make_unique<IntegerAsyncWorker>(env, name, std::move(work), -1, kUnknownOperationError));
}

Napi::Value RunVendorDeviceListAsync(Napi::Env env, const std::string& name,
                                     std::function<std::vector<VendorDeviceSnapshot>()> work) {
  return Start(std::make_unique<VendorDeviceListAsyncWorker>(
      env, name, std::move(work), std::vector<VendorDeviceSnapshot>(), kUnknownEnumerationError));
}

}  // namespace ostrel_native
