# Warnings and sanitizers for the project's own targets.
# Warnings are errors only where we ask for it (scripts/build, CI): a user's or
# packager's build must not fail because a newer compiler warns about more.
option(VARNEL_WERROR "Treat compiler warnings as errors" OFF)
add_library(varnel_flags INTERFACE)
target_compile_options(varnel_flags INTERFACE -Wall -Wextra $<$<BOOL:${VARNEL_WERROR}>:-Werror>)

if(VARNEL_SANITIZE STREQUAL "address")
  set(_san -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
elseif(VARNEL_SANITIZE STREQUAL "thread")
  set(_san -fsanitize=thread -fno-omit-frame-pointer)
elseif(NOT VARNEL_SANITIZE STREQUAL "")
  message(FATAL_ERROR "VARNEL_SANITIZE must be empty, 'address' or 'thread', not '${VARNEL_SANITIZE}'")
endif()
if(_san)
  add_compile_options(${_san})
  add_link_options(${_san})
endif()

# Fuzz builds instrument the whole library for coverage; the fuzz targets add
# the libFuzzer driver themselves. Undefined behaviour ends the run, so that
# the fuzzer keeps the input as a crash instead of printing and going on.
if(VARNEL_BUILD_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
