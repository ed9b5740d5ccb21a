#include "camera/exports/lent_array.h"

namespace ostrel_native {

LentArray ReadLentArray(const Napi::Value& value) {
  LentArray lent;
  if (!value.IsTypedArray()) {
    return lent;
  }
  napi_typedarray_type type = napi_int8_array;
  std::size_t length = 0;
  std::size_t byteOffset = 0;
  void* data = nullptr;
  napi_value arrayBuffer = nullptr;
  const napi_status status = napi_get_typedarray_info(value.Env(), value, &type, &length, &data,
                                                      &arrayBuffer, &byteOffset);
  NAPI_THROW_IF_FAILED(value.Env(), status, lent);
  if (type != napi_uint8_array || !Napi::Value(value.Env(), arrayBuffer).IsArrayBuffer()) {
    return lent;
  }
  lent.isByteArray = true;
  lent.data = static_cast<std::uint8_t*>(data);
  lent.bytes = length;  // one byte an element
  lent.arrayBuffer = Napi::Value(value.Env(), arrayBuffer);
  lent.byteOffset = byteOffset;
  return lent;
}

Napi::Value LentArray::View(std::size_t size) const {
  return Napi::Uint8Array::New(arrayBuffer.Env(), size, arrayBuffer.As<Napi::ArrayBuffer>(),
                               byteOffset);
}

}  // namespace ostrel_native
