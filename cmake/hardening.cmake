# What the release build does so that a fault in it, or in a library that it calls, cannot be put to
# use: checked stacks and buffers, and no memory that is both written and run or that stays writable
# for no reason. The sanitizer builds have checks of their own, which these would hide.

# For the sources of the current directory. Line tables go to a file beside the binary, see below.
function(ostrel_harden_sources)
  set(checks -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
  add_compile_options("$<$<CONFIG:Release>:${checks};-g1>")
endfunction()

# For a binary that is loaded at run time.
function(ostrel_harden_binary name)
  target_link_options(${name} PRIVATE
    "$<$<CONFIG:Release>:-Wl,-z,now;-Wl,-z,relro;-Wl,-z,noexecstack;-Wl,--build-id>")
endfunction()

# In a release build, symbols and line tables go to `name`.node.debug beside the binary, where
# debuggers look for them; they are not shipped.
function(ostrel_split_debug_file name)
  if(NOT CMAKE_BUILD_TYPE STREQUAL "Release")
    return()
  endif()
  set(binary $<TARGET_FILE:${name}>)
  add_custom_command(TARGET ${name} POST_BUILD
    COMMAND ${CMAKE_OBJCOPY} --only-keep-debug ${binary} ${binary}.debug
    COMMAND ${CMAKE_STRIP} --strip-unneeded ${binary}
    COMMAND ${CMAKE_OBJCOPY} --add-gnu-debuglink=${binary}.debug ${binary}
    BYPRODUCTS ${OSTREL_ADDON_OUTPUT_DIRECTORY}/${name}.node.debug
    VERBATIM)
endfunction()
