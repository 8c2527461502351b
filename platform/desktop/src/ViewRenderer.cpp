#include "pelora/desktop/ViewRenderer.h"

#include <cairo.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <unordered_map>

#include "pelora/ui/Button.h"
#include "pelora/ui/ImageView.h"
#include "pelora/ui/Label.h"
#include "pelora/ui/PlayerLayer.h"
#include "pelora/ui/WebView.h"
#include "pelora/ui/Window.h"

namespace pelora::desktop {

namespace {

// DejaVu for Latin, WenQuanYi Micro Hei for Chinese; fontconfig falls back to any other sans
// serif for scripts neither covers.
constexpr const char* kFontFamily = "DejaVu Sans,WenQuanYi Micro Hei,sans-serif";

struct SurfaceDeleter {
    void operator()(cairo_surface_t* s) const { cairo_surface_destroy(s); }
};
using SurfacePtr = std::unique_ptr<cairo_surface_t, SurfaceDeleter>;

struct LayoutDeleter {
    void operator()(PangoLayout* l) const { g_object_unref(l); }
};
using LayoutPtr = std::unique_ptr<PangoLayout, LayoutDeleter>;

uint8_t premultiply(uint8_t c, uint8_t a) {
    return static_cast<uint8_t>((c * a + 127) / 255);
}

// Straight RGBA rows into a cairo ARGB32 or RGB24 surface (premultiplied, native-endian
// words).
void copyRGBAToSurface(const uint8_t* src, int width, int height, size_t srcStride,
                       cairo_surface_t* surface) {
    cairo_surface_flush(surface);
    uint8_t* dst = cairo_image_surface_get_data(surface);
    const int dstStride = cairo_image_surface_get_stride(surface);
    for (int y = 0; y < height; ++y) {
        const uint8_t* s = src + static_cast<size_t>(y) * srcStride;
        auto* d = reinterpret_cast<uint32_t*>(dst + static_cast<size_t>(y) * dstStride);
        for (int x = 0; x < width; ++x, s += 4) {
            const uint8_t a = s[3];
            uint32_t r = s[0], g = s[1], b = s[2];
            if (a != 255) {
                r = premultiply(s[0], a);
                g = premultiply(s[1], a);
                b = premultiply(s[2], a);
            }
            d[x] = (uint32_t{a} << 24) | (r << 16) | (g << 8) | b;
        }
    }
    cairo_surface_mark_dirty(surface);
}

// One row of cairo's words (0xAARRGGBB) as RGBA bytes, four pixels at a time with the
// compiler's vector types (SSE2 / NEON). Returns the AND of all words: alpha 0xff in it means
// an opaque row.
uint32_t swizzleRow(const uint32_t* s, uint32_t* d, int width) {
    using V = uint32_t __attribute__((vector_size(16)));
    V all = {0xffffffffu, 0xffffffffu, 0xffffffffu, 0xffffffffu};
    int x = 0;
    for (; x + 4 <= width; x += 4) {
        V p;
        std::memcpy(&p, s + x, sizeof p);
        all &= p;
        // Little-endian RGBA bytes are the word 0xAABBGGRR.
        const V out = (p & 0xff00ff00u) | ((p >> 16) & 0xffu) | ((p & 0xffu) << 16);
        std::memcpy(d + x, &out, sizeof out);
    }
    uint32_t total = all[0] & all[1] & all[2] & all[3];
    for (; x < width; ++x) {
        const uint32_t p = s[x];
        total &= p;
        d[x] = (p & 0xff00ff00u) | ((p >> 16) & 0xffu) | ((p & 0xffu) << 16);
    }
    return total;
}

// A cairo ARGB32 surface into straight RGBA rows. Opaque rows (most of a screen) take the
// shuffle alone; rows with translucent pixels are unpremultiplied afterwards.
void copySurfaceToRGBA(cairo_surface_t* surface, uint8_t* dst, int width, int height,
                       size_t dstStride) {
    cairo_surface_flush(surface);
    const uint8_t* src = cairo_image_surface_get_data(surface);
    const int srcStride = cairo_image_surface_get_stride(surface);
    const bool aligned = reinterpret_cast<uintptr_t>(dst) % alignof(uint32_t) == 0 &&
                         dstStride % alignof(uint32_t) == 0;
    std::vector<uint32_t> scratch(aligned ? 0 : static_cast<size_t>(width));
    for (int y = 0; y < height; ++y) {
        const auto* s = reinterpret_cast<const uint32_t*>(src + static_cast<size_t>(y) * srcStride);
        uint8_t* rowBytes = dst + static_cast<size_t>(y) * dstStride;
        auto* d = aligned ? reinterpret_cast<uint32_t*>(rowBytes) : scratch.data();
        const uint32_t all = swizzleRow(s, d, width);
        if ((all >> 24) != 0xffu) {
            auto* bytes = reinterpret_cast<uint8_t*>(d);
            for (int x = 0; x < width; ++x) {
                uint8_t* q = bytes + static_cast<size_t>(x) * 4;
                const uint32_t a = q[3];
                if (a == 255 || a == 0) continue;
                for (int c = 0; c < 3; ++c) q[c] = static_cast<uint8_t>((q[c] * 255 + a / 2) / a);
            }
        }
        if (!aligned) std::memcpy(rowBytes, scratch.data(), static_cast<size_t>(width) * 4);
    }
}

bool allOpaque(const std::vector<uint8_t>& rgba) {
    uint8_t all = 0xff;
    for (size_t i = 3; i < rgba.size(); i += 4) all &= rgba[i];
    return all == 0xff;
}

void roundedRectPath(cairo_t* cr, double w, double h, double radius) {
    radius = std::min({radius, w / 2, h / 2});
    if (radius <= 0) {
        cairo_rectangle(cr, 0, 0, w, h);
        return;
    }
    cairo_new_sub_path(cr);
    cairo_arc(cr, w - radius, radius, radius, -M_PI / 2, 0);
    cairo_arc(cr, w - radius, h - radius, radius, 0, M_PI / 2);
    cairo_arc(cr, radius, h - radius, radius, M_PI / 2, M_PI);
    cairo_arc(cr, radius, radius, radius, M_PI, 3 * M_PI / 2);
    cairo_close_path(cr);
}

void setColor(cairo_t* cr, const ui::Color& c, double alpha) {
    cairo_set_source_rgba(cr, c.red, c.green, c.blue, c.alpha * alpha);
}

// Where content of `size` goes inside bounds of w x h for a content mode.
platform::Rect placeContent(double iw, double ih, double w, double h, ui::ContentMode mode) {
    switch (mode) {
        case ui::ContentMode::ScaleAspectFit:
        case ui::ContentMode::ScaleAspectFill: {
            if (iw <= 0 || ih <= 0) return platform::makeRect(0, 0, 0, 0);
            const double s = mode == ui::ContentMode::ScaleAspectFit ? std::min(w / iw, h / ih)
                                                                     : std::max(w / iw, h / ih);
            return platform::makeRect((w - iw * s) / 2, (h - ih * s) / 2, iw * s, ih * s);
        }
        case ui::ContentMode::Center:
            return platform::makeRect((w - iw) / 2, (h - ih) / 2, iw, ih);
        case ui::ContentMode::ScaleToFill:
        default:
            return platform::makeRect(0, 0, w, h);
    }
}

// Paints a pixel surface of pw x ph into `dest` (points).
void paintSurface(cairo_t* cr, cairo_surface_t* surface, int pw, int ph, platform::Rect dest,
                  double alpha) {
    if (dest.width() <= 0 || dest.height() <= 0 || pw <= 0 || ph <= 0) return;
    cairo_save(cr);
    cairo_rectangle(cr, dest.minX(), dest.minY(), dest.width(), dest.height());
    cairo_clip(cr);
    cairo_translate(cr, dest.minX(), dest.minY());
    cairo_scale(cr, dest.width() / pw, dest.height() / ph);
    cairo_set_source_surface(cr, surface, 0, 0);
    cairo_pattern_t* pattern = cairo_get_source(cr);
    // Pad: the edge pixels of a scaled image stay opaque instead of fading into transparency.
    cairo_pattern_set_extend(pattern, CAIRO_EXTEND_PAD);
    cairo_pattern_set_filter(pattern, CAIRO_FILTER_GOOD);
    if (alpha >= 1.0)
        cairo_paint(cr);
    else
        cairo_paint_with_alpha(cr, alpha);
    cairo_restore(cr);
}

struct TextStyle {
    std::string text;
    double size = 17;
    ui::FontWeight weight = ui::FontWeight::Regular;
    ui::TextAlignment alignment = ui::TextAlignment::Left;
    int lines = 1;
    ui::LineBreakMode mode = ui::LineBreakMode::TruncatingTail;
    double width = 0;
    double height = 0;
    bool operator==(const TextStyle&) const = default;
};

}  // namespace

struct ViewRenderer::Impl {
    explicit Impl(double s) : scale(s > 0 ? s : 1.0) {
        fontMap = pango_cairo_font_map_get_default();  // owned by pango
        context = pango_font_map_create_context(fontMap);
        // Layouts measured in points must not move when the scale changes: no metric hinting.
        cairo_font_options_t* options = cairo_font_options_create();
        cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
        cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_SLIGHT);
        cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
        pango_cairo_context_set_font_options(context, options);
        cairo_font_options_destroy(options);
    }
    ~Impl() {
        if (cr) cairo_destroy(cr);
        layouts.clear();
        g_object_unref(context);
    }

    // Items kept between drawings, each with the view or image it belongs to; whatever a
    // drawing did not use is dropped after it.
    struct CachedImage {
        std::weak_ptr<const platform::Image> owner;
        SurfacePtr surface;
        uint64_t used = 0;
    };
    struct CachedVideo {
        std::weak_ptr<const platform::VideoFrame> frame;
        SurfacePtr surface;
        int width = 0, height = 0;
        uint64_t used = 0;
    };
    struct CachedLayout {
        TextStyle style;
        LayoutPtr layout;
        double logicalHeight = 0;
        int unknownGlyphs = 0;
        uint64_t used = 0;
    };

    double scale;
    PangoFontMap* fontMap = nullptr;
    PangoContext* context = nullptr;
    SurfacePtr target;
    cairo_t* cr = nullptr;
    uint64_t generation = 0;
    uint64_t framesRendered = 0;
    uint64_t unknownGlyphs = 0;  // in the last drawing
    std::unordered_map<const void*, CachedImage> images;
    std::unordered_map<const void*, CachedVideo> videos;
    std::unordered_map<const void*, CachedLayout> layouts;
    RenderedFrame frame;
    const ui::Window* lastWindow = nullptr;

    int pixels(double points) const {
        return std::max(0, static_cast<int>(std::ceil(points * scale - 1e-9)));
    }

    // The drawing surface, kept while the size stays the same.
    bool prepareTarget(int width, int height) {
        if (!target || cairo_image_surface_get_width(target.get()) != width ||
            cairo_image_surface_get_height(target.get()) != height) {
            if (cr) cairo_destroy(cr);
            cr = nullptr;
            target.reset(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height));
            if (cairo_surface_status(target.get()) != CAIRO_STATUS_SUCCESS) {
                target.reset();
                return false;
            }
            cr = cairo_create(target.get());
        }
        cairo_identity_matrix(cr);
        cairo_reset_clip(cr);
        cairo_set_operator(cr, CAIRO_OPERATOR_CLEAR);
        cairo_paint(cr);
        cairo_set_operator(cr, CAIRO_OPERATOR_OVER);
        cairo_scale(cr, scale, scale);
        pango_cairo_update_context(cr, context);
        return true;
    }

    void draw(const ui::View& root) {
        ++generation;
        unknownGlyphs = 0;
        // The root is drawn at the origin whatever its frame says: its frame places it in a
        // superview, or on a screen, that is not part of this picture.
        drawSubtree(root, 1.0, true);
        dropUnused(images);
        dropUnused(videos);
        dropUnused(layouts);
        ++framesRendered;
    }

    template <class Map>
    void dropUnused(Map& map) {
        for (auto it = map.begin(); it != map.end();) {
            if (it->second.used != generation)
                it = map.erase(it);
            else
                ++it;
        }
    }

    void drawSubtree(const ui::View& view, double inheritedAlpha, bool isRoot) {
        if (view.hidden()) return;
        const double alpha = inheritedAlpha * std::clamp(view.alpha(), 0.0, 1.0);
        if (alpha <= 0.0) return;
        const platform::Rect f = view.frame();
        const double w = f.width(), h = f.height();
        cairo_save(cr);
        if (!isRoot) cairo_translate(cr, f.origin.x, f.origin.y);
        const ui::Color bg = view.backgroundColor();
        if (bg.alpha > 0 && w > 0 && h > 0) {
            roundedRectPath(cr, w, h, view.cornerRadius());
            setColor(cr, bg, alpha);
            cairo_fill(cr);
        }
        if (view.clipsToBounds()) {
            roundedRectPath(cr, w, h, view.cornerRadius());
            cairo_clip(cr);
        }
        drawContent(view, w, h, alpha);
        for (const auto& sub : view.subviews()) drawSubtree(*sub, alpha, false);
        cairo_restore(cr);
    }

    void drawContent(const ui::View& view, double w, double h, double alpha) {
        if (const auto* label = dynamic_cast<const ui::Label*>(&view)) {
            if (!label->text() || label->text()->empty()) return;
            TextStyle style{*label->text(),
                            label->fontSize(),
                            label->fontWeight(),
                            label->textAlignment(),
                            label->numberOfLines(),
                            label->lineBreakMode(),
                            w,
                            h};
            drawText(&view, style, label->textColor(), 0, w, h, alpha);
        } else if (const auto* button = dynamic_cast<const ui::Button*>(&view)) {
            drawButton(*button, w, h, alpha);
        } else if (const auto* imageView = dynamic_cast<const ui::ImageView*>(&view)) {
            if (const auto& image = imageView->image())
                drawImage(
                    image,
                    placeContent(image->width(), image->height(), w, h, imageView->contentMode()),
                    alpha);
        } else if (const auto* layer = dynamic_cast<const ui::PlayerLayer*>(&view)) {
            drawVideo(*layer, w, h, alpha);
        } else if (dynamic_cast<const ui::WebView*>(&view)) {
            // Pages are not rendered here: a web view is a blank page.
            cairo_rectangle(cr, 0, 0, w, h);
            setColor(cr, ui::Color::white(), alpha);
            cairo_fill(cr);
        }
    }

    void drawImage(const std::shared_ptr<platform::Image>& image, platform::Rect dest,
                   double alpha) {
        if (image->pixelWidth <= 0 || image->pixelHeight <= 0) return;
        auto& cached = images[image.get()];
        if (!cached.surface || cached.owner.lock() != image) {
            const auto& rgba = image->rgba();  // decodes a deferred image now
            const size_t need = static_cast<size_t>(image->pixelWidth) *
                                static_cast<size_t>(image->pixelHeight) * 4;
            if (rgba.size() < need) {  // corrupt past its header: draws as nothing
                cached.used = generation;
                cached.surface.reset();
                cached.owner = image;
                return;
            }
            // Opaque images (most creatives) become RGB24 surfaces, which pixman scales and
            // composites without alpha arithmetic.
            cached.surface.reset(cairo_image_surface_create(
                allOpaque(rgba) ? CAIRO_FORMAT_RGB24 : CAIRO_FORMAT_ARGB32, image->pixelWidth,
                image->pixelHeight));
            if (cairo_surface_status(cached.surface.get()) != CAIRO_STATUS_SUCCESS) {
                cached.surface.reset();
                return;
            }
            copyRGBAToSurface(rgba.data(), image->pixelWidth, image->pixelHeight,
                              static_cast<size_t>(image->pixelWidth) * 4, cached.surface.get());
            cached.owner = image;
        }
        cached.used = generation;
        if (cached.surface)
            paintSurface(cr, cached.surface.get(), image->pixelWidth, image->pixelHeight, dest,
                         alpha);
    }

    void drawVideo(const ui::PlayerLayer& layer, double w, double h, double alpha) {
        // Black bars around the picture, as a player shows them.
        cairo_rectangle(cr, 0, 0, w, h);
        setColor(cr, ui::Color::black(), alpha);
        cairo_fill(cr);
        auto frame = layer.latestFrame();
        if (!frame || frame->width <= 0 || frame->height <= 0) return;
        const size_t stride = frame->stride > 0 ? static_cast<size_t>(frame->stride)
                                                : static_cast<size_t>(frame->width) * 4;
        if (stride < static_cast<size_t>(frame->width) * 4 ||
            frame->rgba.size() < stride * static_cast<size_t>(frame->height - 1) +
                                     static_cast<size_t>(frame->width) * 4)
            return;
        auto& cached = videos[&layer];
        cached.used = generation;
        if (cached.frame.lock() != frame) {
            if (!cached.surface || cached.width != frame->width || cached.height != frame->height) {
                cached.surface.reset(
                    cairo_image_surface_create(CAIRO_FORMAT_RGB24, frame->width, frame->height));
                cached.width = frame->width;
                cached.height = frame->height;
            }
            if (cairo_surface_status(cached.surface.get()) != CAIRO_STATUS_SUCCESS) {
                cached.surface.reset();
                return;
            }
            copyRGBAToSurface(frame->rgba.data(), frame->width, frame->height, stride,
                              cached.surface.get());
            cached.frame = frame;
        }
        paintSurface(
            cr, cached.surface.get(), frame->width, frame->height,
            placeContent(frame->width, frame->height, w, h, ui::ContentMode::ScaleAspectFit),
            alpha);
    }

    void drawButton(const ui::Button& button, double w, double h, double alpha) {
        // Image and title side by side, centred together, as a custom button lays them out.
        auto image = button.currentImage();
        auto title = button.currentTitle();
        double iw = 0, ih = 0;
        if (image && image->pixelWidth > 0 && image->pixelHeight > 0) {
            iw = image->width();
            ih = image->height();
            if (iw > w || ih > h) {  // too big for the button: shrink, keeping the aspect
                const double s = std::min(w / iw, h / ih);
                iw *= s;
                ih *= s;
            }
        }
        PangoLayout* layout = nullptr;
        double tw = 0, th = 0;
        if (title && !title->empty()) {
            // Alone, the title centres itself in the button; beside an image it starts
            // where the image ends.
            TextStyle style{*title,
                            button.titleFontSize(),
                            ui::FontWeight::Regular,
                            iw > 0 ? ui::TextAlignment::Left : ui::TextAlignment::Center,
                            1,
                            ui::LineBreakMode::TruncatingTail,
                            std::max(0.0, w - iw),
                            h};
            layout = layoutFor(&button, style, &th);
            PangoRectangle ink, logical;
            pango_layout_get_extents(layout, &ink, &logical);
            tw = std::min(static_cast<double>(logical.width) / PANGO_SCALE, style.width);
        }
        double x = (w - iw - tw) / 2;
        if (iw > 0) {
            drawImage(image, platform::makeRect(x, (h - ih) / 2, iw, ih), alpha);
            x += iw;
        }
        if (layout) {
            const ui::Color color =
                button.titleColorForState(button.state()).value_or(ui::Color::white());
            showLayout(layout, color, iw > 0 ? x : 0, (h - th) / 2, w, h, alpha);
        }
    }

    PangoLayout* layoutFor(const void* owner, const TextStyle& style, double* logicalHeight) {
        auto& cached = layouts[owner];
        cached.used = generation;
        if (cached.layout && cached.style == style) {
            *logicalHeight = cached.logicalHeight;
            unknownGlyphs += static_cast<uint64_t>(cached.unknownGlyphs);
            return cached.layout.get();
        }
        cached.layout.reset(pango_layout_new(context));
        PangoLayout* layout = cached.layout.get();
        PangoFontDescription* font = pango_font_description_from_string(kFontFamily);
        pango_font_description_set_absolute_size(font, style.size * PANGO_SCALE);
        pango_font_description_set_weight(
            font, style.weight == ui::FontWeight::Bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
        pango_layout_set_font_description(layout, font);
        pango_font_description_free(font);
        pango_layout_set_text(layout, style.text.data(), static_cast<int>(style.text.size()));
        pango_layout_set_alignment(
            layout, style.alignment == ui::TextAlignment::Center  ? PANGO_ALIGN_CENTER
                    : style.alignment == ui::TextAlignment::Right ? PANGO_ALIGN_RIGHT
                                                                  : PANGO_ALIGN_LEFT);
        PangoEllipsizeMode ellipsize = PANGO_ELLIPSIZE_NONE;
        PangoWrapMode wrap = PANGO_WRAP_WORD_CHAR;
        switch (style.mode) {
            case ui::LineBreakMode::WordWrap:
                wrap = PANGO_WRAP_WORD;
                break;
            case ui::LineBreakMode::CharWrap:
                wrap = PANGO_WRAP_CHAR;
                break;
            case ui::LineBreakMode::Clip:
                break;
            case ui::LineBreakMode::TruncatingHead:
                ellipsize = PANGO_ELLIPSIZE_START;
                break;
            case ui::LineBreakMode::TruncatingMiddle:
                ellipsize = PANGO_ELLIPSIZE_MIDDLE;
                break;
            case ui::LineBreakMode::TruncatingTail:
                ellipsize = PANGO_ELLIPSIZE_END;
                break;
        }
        const bool singleLineClip = style.lines == 1 && ellipsize == PANGO_ELLIPSIZE_NONE;
        pango_layout_set_width(layout,
                               singleLineClip ? -1 : static_cast<int>(style.width * PANGO_SCALE));
        pango_layout_set_wrap(layout, wrap);
        pango_layout_set_ellipsize(layout, ellipsize);
        // At most `lines` lines, and never more than fit in the bounds: the last one that
        // fits takes the ellipsis.
        if (style.lines > 0) pango_layout_set_height(layout, -style.lines);
        PangoRectangle ink, logical;
        pango_layout_get_extents(layout, &ink, &logical);
        if (style.lines == 0 || (style.lines > 1 && logical.height > style.height * PANGO_SCALE)) {
            pango_layout_set_height(layout, static_cast<int>(style.height * PANGO_SCALE));
            pango_layout_get_extents(layout, &ink, &logical);
        }
        cached.style = style;
        cached.unknownGlyphs = pango_layout_get_unknown_glyphs_count(layout);
        unknownGlyphs += static_cast<uint64_t>(cached.unknownGlyphs);
        cached.logicalHeight = static_cast<double>(logical.height) / PANGO_SCALE;
        *logicalHeight = cached.logicalHeight;
        return layout;
    }

    void drawText(const void* owner, const TextStyle& style, const ui::Color& color, double x,
                  double w, double h, double alpha) {
        double th = 0;
        PangoLayout* layout = layoutFor(owner, style, &th);
        showLayout(layout, color, x, (h - th) / 2, w, h, alpha);
    }

    // Text never draws outside the view it belongs to.
    void showLayout(PangoLayout* layout, const ui::Color& color, double x, double y, double w,
                    double h, double alpha) {
        cairo_save(cr);
        cairo_rectangle(cr, 0, 0, w, h);
        cairo_clip(cr);
        setColor(cr, color, alpha);
        cairo_move_to(cr, x, y);
        pango_cairo_show_layout(cr, layout);
        cairo_restore(cr);
    }
};

ViewRenderer::ViewRenderer(double scale) : impl_(std::make_unique<Impl>(scale)) {}
ViewRenderer::~ViewRenderer() = default;

double ViewRenderer::scale() const {
    return impl_->scale;
}

int ViewRenderer::pixelWidth(const ui::View& root) const {
    return impl_->pixels(root.bounds().width());
}

int ViewRenderer::pixelHeight(const ui::View& root) const {
    return impl_->pixels(root.bounds().height());
}

bool ViewRenderer::renderInto(const ui::View& root, uint8_t* rgba, int width, int height,
                              size_t stride) {
    if (!rgba || width <= 0 || height <= 0 || stride < static_cast<size_t>(width) * 4) return false;
    if (!impl_->prepareTarget(width, height)) return false;
    impl_->draw(root);
    copySurfaceToRGBA(impl_->target.get(), rgba, width, height, stride);
    return true;
}

bool ViewRenderer::update(const ui::Window& window) {
    auto& frame = impl_->frame;
    if (impl_->lastWindow == &window && frame.revision == window.displayRevision()) return false;
    const int width = pixelWidth(window), height = pixelHeight(window);
    if (width <= 0 || height <= 0) return false;
    frame.width = width;
    frame.height = height;
    frame.rgba.resize(static_cast<size_t>(width) * static_cast<size_t>(height) * 4);
    if (!renderInto(window, frame.rgba.data(), width, height, static_cast<size_t>(width) * 4))
        return false;
    frame.revision = window.displayRevision();
    impl_->lastWindow = &window;
    return true;
}

const RenderedFrame& ViewRenderer::frame() const {
    return impl_->frame;
}

uint64_t ViewRenderer::framesRendered() const {
    return impl_->framesRendered;
}

uint64_t ViewRenderer::unknownGlyphs() const {
    return impl_->unknownGlyphs;
}

bool ViewRenderer::writePNG(const ui::View& root, const std::string& path, std::string* error) {
    const int width = pixelWidth(root), height = pixelHeight(root);
    if (width <= 0 || height <= 0) {
        if (error) *error = "the view has no area to draw";
        return false;
    }
    if (!impl_->prepareTarget(width, height)) {
        if (error)
            *error = "cannot make a drawing surface of " + std::to_string(width) + "x" +
                     std::to_string(height) + " pixels";
        return false;
    }
    impl_->draw(root);
    cairo_surface_flush(impl_->target.get());
    cairo_status_t status = cairo_surface_write_to_png(impl_->target.get(), path.c_str());
    if (status != CAIRO_STATUS_SUCCESS) {
        if (error) *error = path + ": " + cairo_status_to_string(status);
        return false;
    }
    return true;
}

}  // namespace pelora::desktop
