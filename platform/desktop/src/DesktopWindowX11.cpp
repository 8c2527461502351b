// The window system's connection descriptor, kept apart from the window code because Xlib's
// headers define macros (None, Status, Bool) that collide with ordinary names.

#include <SDL.h>
#include <SDL_syswm.h>

namespace pelora::desktop::detail {

int windowSystemFd(SDL_Window* window, unsigned long* nativeId) {
    SDL_SysWMinfo info;
    SDL_VERSION(&info.version);
    if (!SDL_GetWindowWMInfo(window, &info)) return -1;
#if defined(SDL_VIDEO_DRIVER_X11)
    if (info.subsystem == SDL_SYSWM_X11) {
        if (nativeId) *nativeId = info.info.x11.window;
        return XConnectionNumber(info.info.x11.display);
    }
#endif
    return -1;
}

}  // namespace pelora::desktop::detail
