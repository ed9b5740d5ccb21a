# What a program needs that links the camera's core without Node.js: the one function that letting go
# of a reference calls. The header of Node-API leaves unused code in every object that includes it,
# which must go before the linker asks for the rest of Node-API.
include_guard(GLOBAL)
add_library(napi_stub INTERFACE)
target_sources(napi_stub INTERFACE ${PROJECT_SOURCE_DIR}/test/unit/support/napi_stub.cpp)
target_include_directories(napi_stub INTERFACE ${PROJECT_SOURCE_DIR}/test)
target_link_libraries(napi_stub INTERFACE node_api)
target_link_options(napi_stub INTERFACE -Wl,--gc-sections)
