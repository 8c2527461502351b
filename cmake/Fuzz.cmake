# libFuzzer builds (scripts/fuzz.sh): every object of the project is instrumented for coverage
# and built with AddressSanitizer and UndefinedBehaviorSanitizer, so a fuzz target explores
# the SDK's code and stops at the first memory error or undefined operation. Only the fuzz
# targets link libFuzzer's driver; everything else links the sanitizer runtimes alone.
option(PELORA_FUZZ "Build the libFuzzer targets under fuzz/ (needs clang)" OFF)
if(PELORA_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "PELORA_FUZZ needs clang (configure with -DCMAKE_CXX_COMPILER=clang++)")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
    -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()
