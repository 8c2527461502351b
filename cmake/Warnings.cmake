# Warnings are always on for the project's own targets; they stop the build only where the
# project's developers and CI ask for it (PELORA_WERROR=ON, set by scripts/test.sh and the
# development presets), so a consumer's build never fails on a new compiler's new warning.
function(pelora_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wno-missing-field-initializers)
  if(PELORA_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  # GCC 12 at -O3 reports overlapping copies inside std::string concatenation that cannot
  # happen (GCC bug 105651); the report comes from the standard library's inlined code.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(${target} PRIVATE -Wno-restrict)
  endif()
endfunction()

if(PELORA_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  # GCC's flow analysis reports false "maybe uninitialized" values inside std::regex and
  # simdjson once the sanitizers instrument the code; the normal build keeps the warning.
  add_compile_options(-Wno-maybe-uninitialized)
  add_link_options(-fsanitize=address,undefined)
endif()

# ThreadSanitizer (CI builds only the test programs whose code runs on several threads).
if(PELORA_TSAN)
  if(PELORA_SANITIZE)
    message(FATAL_ERROR "PELORA_TSAN and PELORA_SANITIZE cannot be combined: pick one sanitizer build")
  endif()
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()
