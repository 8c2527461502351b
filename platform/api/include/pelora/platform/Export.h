#pragma once

// Marks the classes and functions a host may use. The SDK's libraries are built with hidden
// visibility, so in a shared build only what carries this mark is exported; everything else
// stays inside the library.
#if defined(__GNUC__) || defined(__clang__)
#define PELORA_EXPORT __attribute__((visibility("default")))
#else
#define PELORA_EXPORT
#endif
