#include "pelora/desktop/DesktopWindow.h"

#include <SDL.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "pelora/desktop/DesktopPlatform.h"
#include "pelora/desktop/FramePresenter.h"
#include "pelora/platform/Log.h"
#include "pelora/ui/Window.h"

namespace pelora::desktop {

namespace detail {
int windowSystemFd(SDL_Window* window, unsigned long* nativeId);
}

struct DesktopWindow::Impl {
    std::shared_ptr<ui::Window> tree;
    platform::RunLoop& loop;
    DesktopWindowOptions options;
    SDL_Window* window = nullptr;
    SDL_Renderer* renderer = nullptr;
    SDL_Texture* texture = nullptr;
    int textureWidth = 0, textureHeight = 0;
    std::unique_ptr<FramePresenter> presenter;
    std::shared_ptr<platform::Timer> watch;  // the connection's descriptor, or a polling timer
    std::function<void()> quitHandler;
    bool closed = false;
    bool minimized = false;
    bool mouseDown = false;
    uint64_t framesPresented = 0;
    unsigned long nativeId = 0;

    Impl(std::shared_ptr<ui::Window> t, platform::RunLoop& l, DesktopWindowOptions o)
        : tree(std::move(t)), loop(l), options(std::move(o)) {}

    ~Impl() {
        if (watch) watch->invalidate();
        presenter.reset();
        if (texture) SDL_DestroyTexture(texture);
        if (renderer) SDL_DestroyRenderer(renderer);
        if (window) SDL_DestroyWindow(window);
        SDL_QuitSubSystem(SDL_INIT_VIDEO);
    }

    platform::Point toPoints(int x, int y) const {
        return {x / options.windowScale, y / options.windowScale};
    }

    void present(const RenderedFrame& frame) {
        if (closed || frame.width <= 0 || frame.height <= 0) return;
        if (!texture || textureWidth != frame.width || textureHeight != frame.height) {
            if (texture) SDL_DestroyTexture(texture);
            texture = SDL_CreateTexture(renderer, SDL_PIXELFORMAT_RGBA32,
                                        SDL_TEXTUREACCESS_STREAMING, frame.width, frame.height);
            textureWidth = frame.width;
            textureHeight = frame.height;
            if (!texture) {
                platform::log(platform::LogLevel::Error,
                              std::string("window: no texture: ") + SDL_GetError());
                return;
            }
        }
        SDL_UpdateTexture(texture, nullptr, frame.rgba.data(), frame.width * 4);
        showTexture();
        ++framesPresented;
        // Presenting talks to the window system, which may queue events without leaving
        // anything to read on the descriptor: collect them now.
        pumpEvents();
    }

    void showTexture() {
        if (!texture) return;
        SDL_SetRenderDrawColor(renderer, 0, 0, 0, 255);
        SDL_RenderClear(renderer);
        SDL_RenderCopy(renderer, texture, nullptr, nullptr);
        SDL_RenderPresent(renderer);
    }

    void quit() {
        if (closed) return;
        closed = true;
        if (watch) watch->invalidate();
        if (window) SDL_HideWindow(window);
        if (auto handler = std::move(quitHandler)) handler();
    }

    void handle(const SDL_Event& e) {
        switch (e.type) {
            case SDL_MOUSEBUTTONDOWN:
                if (e.button.button == SDL_BUTTON_LEFT) {
                    mouseDown = true;
                    tree->touchDown(toPoints(e.button.x, e.button.y));
                }
                break;
            case SDL_MOUSEBUTTONUP:
                if (e.button.button == SDL_BUTTON_LEFT && mouseDown) {
                    mouseDown = false;
                    tree->touchUp(toPoints(e.button.x, e.button.y));
                }
                break;
            case SDL_WINDOWEVENT:
                switch (e.window.event) {
                    case SDL_WINDOWEVENT_MINIMIZED:
                        if (!minimized) {
                            minimized = true;
                            applicationDidEnterBackground();
                        }
                        break;
                    case SDL_WINDOWEVENT_RESTORED:
                    case SDL_WINDOWEVENT_SHOWN:
                        if (minimized) {
                            minimized = false;
                            applicationWillEnterForeground();
                        }
                        break;
                    case SDL_WINDOWEVENT_EXPOSED:
                        showTexture();  // the last picture again; nothing is drawn
                        break;
                    case SDL_WINDOWEVENT_FOCUS_LOST:
                        if (mouseDown) {
                            mouseDown = false;
                            tree->touchCancel();
                        }
                        break;
                    case SDL_WINDOWEVENT_CLOSE:
                        quit();
                        break;
                    default:
                        break;
                }
                break;
            case SDL_QUIT:
                quit();
                break;
            default:
                break;
        }
    }

    void pumpEvents() {
        SDL_Event e;
        // Handlers may close the window; a closed window takes no more events.
        while (!closed && SDL_PollEvent(&e)) handle(e);
    }
};

DesktopWindow::DesktopWindow(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
DesktopWindow::~DesktopWindow() = default;

std::unique_ptr<DesktopWindow> DesktopWindow::open(std::shared_ptr<ui::Window> window,
                                                   platform::RunLoop& loop,
                                                   const DesktopWindowOptions& options,
                                                   std::string* error) {
    auto fail = [&](const std::string& why) -> std::unique_ptr<DesktopWindow> {
        if (error) *error = why;
        return nullptr;
    };
    if (!window) return fail("no view tree to show");
    // The host owns the process's signals; SDL must not install its own.
    SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
    SDL_SetHint(SDL_HINT_RENDER_SCALE_QUALITY, "linear");
    if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0)
        return fail(std::string("no display to open a window on (") + SDL_GetError() + ")");
    // With no display SDL falls back to drivers that show nothing; a window nobody can see
    // is not what the host asked for, unless SDL_VIDEODRIVER names such a driver on purpose.
    const std::string driver = SDL_GetCurrentVideoDriver() ? SDL_GetCurrentVideoDriver() : "";
    const char* requested = std::getenv("SDL_VIDEODRIVER");
    if ((driver == "offscreen" || driver == "dummy" || driver == "evdev") &&
        !(requested && driver == requested)) {
        SDL_QuitSubSystem(SDL_INIT_VIDEO);
        return fail("no display to open a window on ($DISPLAY and $WAYLAND_DISPLAY are not set)");
    }
    auto impl = std::make_unique<Impl>(window, loop, options);
    if (impl->options.windowScale <= 0) impl->options.windowScale = 1;
    const auto size = window->bounds().size;
    const int w =
        std::max(1, static_cast<int>(std::lround(size.width * impl->options.windowScale)));
    const int h =
        std::max(1, static_cast<int>(std::lround(size.height * impl->options.windowScale)));
    impl->window = SDL_CreateWindow(options.title.c_str(), SDL_WINDOWPOS_UNDEFINED,
                                    SDL_WINDOWPOS_UNDEFINED, w, h, SDL_WINDOW_SHOWN);
    if (!impl->window) return fail(std::string("cannot open a window: ") + SDL_GetError());
    impl->renderer = SDL_CreateRenderer(impl->window, -1, 0);
    if (!impl->renderer)
        impl->renderer = SDL_CreateRenderer(impl->window, -1, SDL_RENDERER_SOFTWARE);
    if (!impl->renderer) return fail(std::string("cannot draw in the window: ") + SDL_GetError());

    Impl* raw = impl.get();
    impl->presenter = std::make_unique<FramePresenter>(
        window, loop, options.renderScale, [raw](const RenderedFrame& f) { raw->present(f); });
    const int fd = detail::windowSystemFd(impl->window, &impl->nativeId);
    if (fd >= 0) impl->watch = loop.watchFd(fd, [raw] { raw->pumpEvents(); });
    if (!impl->watch) {
        // A window system without a descriptor to watch, or a loop that cannot watch one:
        // look for input at a display's pace instead.
        impl->watch =
            loop.scheduleTimer(1.0 / 60, true, [raw](platform::Timer&) { raw->pumpEvents(); });
    }
    raw->pumpEvents();
    return std::unique_ptr<DesktopWindow>(new DesktopWindow(std::move(impl)));
}

void DesktopWindow::setQuitHandler(std::function<void()> handler) {
    impl_->quitHandler = std::move(handler);
}

bool DesktopWindow::closed() const {
    return impl_->closed;
}

uint64_t DesktopWindow::framesPresented() const {
    return impl_->framesPresented;
}

uint64_t DesktopWindow::nativeWindowId() const {
    return impl_->nativeId;
}

platform::Point DesktopWindow::pointForWindowPosition(int x, int y) const {
    return impl_->toPoints(x, y);
}

}  // namespace pelora::desktop
