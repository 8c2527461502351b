#pragma once

// A debug-build check at the SDK's entry points (set-up, loads, shows, registrations) that
// they run on the main run loop's thread, in the way of a sequence checker (before the loop
// first runs, that is the thread that made it). Release builds compile the check out.

namespace pelora_internal {

// Stops the process with a message naming `where` when called off the SDK's thread.
void checkOnMainThread(const char* where);

}  // namespace pelora_internal

#ifndef NDEBUG
#define PELORA_DCHECK_ON_MAIN_THREAD(where) ::pelora_internal::checkOnMainThread(where)
#else
#define PELORA_DCHECK_ON_MAIN_THREAD(where) ((void)0)
#endif
