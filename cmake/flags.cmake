# One interface target with the flags that every target of ours compiles with.
add_library(ostrel_flags INTERFACE)
target_compile_options(ostrel_flags INTERFACE
  -Wall -Wextra -Wconversion -Wshadow -Werror
  # Fused multiply-adds would make results depend on the compiler's mood.
  -ffp-contract=off)
target_link_libraries(ostrel_flags INTERFACE Threads::Threads)

if(OSTREL_SANITIZE STREQUAL "asan-ubsan")
  set(sanitizer_flags -fsanitize=address,undefined,float-cast-overflow
      -fno-sanitize-recover=all -fno-omit-frame-pointer)
elseif(OSTREL_SANITIZE STREQUAL "tsan")
  set(sanitizer_flags -fsanitize=thread -fno-omit-frame-pointer)
elseif(NOT OSTREL_SANITIZE STREQUAL "")
  message(FATAL_ERROR "OSTREL_SANITIZE is '${OSTREL_SANITIZE}'; use asan-ubsan or tsan.")
endif()
if(OSTREL_SANITIZE)
  target_compile_options(ostrel_flags INTERFACE ${sanitizer_flags})
  target_link_options(ostrel_flags INTERFACE ${sanitizer_flags})
endif()
