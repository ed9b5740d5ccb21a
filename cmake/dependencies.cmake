# What the build takes from outside: npm packages, the FFmpeg headers of one generation,
# libjpeg-turbo. None of them is linked into the addon.

set(npm_modules "${CMAKE_SOURCE_DIR}/node_modules")
if(NOT EXISTS "${npm_modules}/node-addon-api/napi.h")
  message(FATAL_ERROR "node-addon-api is not installed: run 'npm start', or 'npm ci' by hand.")
endif()
add_library(node_api INTERFACE)
target_include_directories(node_api SYSTEM INTERFACE
  "${npm_modules}/node-addon-api" "${npm_modules}/node-api-headers/include")
target_compile_definitions(node_api INTERFACE
  NAPI_VERSION=8
  # Any C++ exception that reaches an export becomes a script exception, not a crash.
  NODE_ADDON_API_CPP_EXCEPTIONS_ALL
  # An environment that is being torn down accepts no exception: let it go quietly.
  NODE_API_SWALLOW_UNTHROWABLE_EXCEPTIONS
  # Electron's memory cage refuses buffers over foreign memory.
  NODE_API_NO_EXTERNAL_BUFFERS_ALLOWED)

# The headers of the generation that the addon loads at run time; the set-up provides them.
set(OSTREL_FFMPEG_INCLUDE_DIR "${CMAKE_SOURCE_DIR}/natives/include" CACHE PATH
    "Headers of libavcodec 58, libavformat 58 and libavutil 56")
if(NOT EXISTS "${OSTREL_FFMPEG_INCLUDE_DIR}/libavcodec/avcodec.h")
  message(FATAL_ERROR "The FFmpeg 4 headers are missing in ${OSTREL_FFMPEG_INCLUDE_DIR}: "
                      "run 'npm start', or scripts/build-ffmpeg.sh by hand.")
endif()
add_library(ffmpeg_headers INTERFACE)
target_include_directories(ffmpeg_headers SYSTEM INTERFACE "${OSTREL_FFMPEG_INCLUDE_DIR}")

find_path(TURBOJPEG_INCLUDE_DIR turbojpeg.h REQUIRED)
# For the simulated cameras that deliver JPEG.
find_library(TURBOJPEG_LIBRARY turbojpeg REQUIRED)
