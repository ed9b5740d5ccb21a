# Builds of the addon that are never shipped: out of the very objects that ship, and of more that
# change what script code sees.
include_guard(GLOBAL)

set(OSTREL_LAST_REGISTRATION _ZN13ostrel_native14RegisterOstrelEN4Napi3EnvENS0_6ObjectE
    CACHE INTERNAL "The addon's registration that such a build goes on from")
add_library(addon_extension OBJECT ${PROJECT_SOURCE_DIR}/simulator/addon_extension.cpp)
target_compile_definitions(addon_extension PRIVATE OSTREL_LAST_REGISTRATION="${OSTREL_LAST_REGISTRATION}")
target_include_directories(addon_extension PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(addon_extension PUBLIC ostrel_node)

# `name`.node in `directory`, which exports what the version script `map` lists; with the object
# libraries given after them, one of which defines `ExtendExports`.
function(ostrel_extended_addon name directory map)
  ostrel_addon(${name} ${directory} ${map})
  target_link_libraries(${name} PRIVATE addon_extension ${ARGN})
  target_link_options(${name} PRIVATE -Wl,--wrap=${OSTREL_LAST_REGISTRATION})
  ostrel_link_ffmpeg_slot(${directory})
endfunction()
