# Warnings are always on for the project's own targets; they stop the build only where the
# project's developers and CI ask for it (PELORA_WERROR=ON, set by scripts/test.sh and the
# development presets), so a consumer's build never fails on a new compiler's new warning.
function(pelora_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wno-missing-field-initializers)
  if(PELORA_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

if(PELORA_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  # GCC's flow analysis reports false "maybe uninitialized" values inside std::regex and
  # simdjson once the sanitizers instrument the code; the normal build keeps the warning.
  add_compile_options(-Wno-maybe-uninitialized)
  add_link_options(-fsanitize=address,undefined)
endif()
