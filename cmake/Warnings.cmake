function(pelora_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Werror -Wno-missing-field-initializers)
endfunction()

if(PELORA_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  # GCC's flow analysis reports false "maybe uninitialized" values inside std::regex and
  # simdjson once the sanitizers instrument the code; the normal build keeps the warning.
  add_compile_options(-Wno-maybe-uninitialized)
  add_link_options(-fsanitize=address,undefined)
endif()
