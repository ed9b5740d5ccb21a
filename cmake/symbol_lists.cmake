# The symbol lists of the closed libraries, read by CMake: a library that stands in for one of
# them exports exactly the names of its list.
include_guard(GLOBAL)

# Sets `out` to the names in a list header, in its order; a change of it configures anew.
function(ostrel_read_symbols list out)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list})
  file(STRINGS ${list} rows REGEX "^(REQUIRED|OPTIONAL|SYMBOL)\\(")
  list(TRANSFORM rows REPLACE "^[A-Z]+\\(([A-Za-z0-9_]+).*$" "\\1")
  set(${out} ${rows} PARENT_SCOPE)
endfunction()

# Makes `target` export the symbols given after it, and nothing else; under the version tag
# VERSION_TAG, if one is given.
function(ostrel_export_only target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "VERSION_TAG" "")
  set(map "${CMAKE_CURRENT_BINARY_DIR}/${target}.map")
  list(JOIN arg_UNPARSED_ARGUMENTS ";\n    " names)
  file(CONFIGURE OUTPUT ${map} @ONLY
    CONTENT "@arg_VERSION_TAG@ {\n  global:\n    @names@;\n  local:\n    *;\n};\n")
  target_link_options(${target} PRIVATE -Wl,--version-script=${map})
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
endfunction()
