#pragma once

// Small helpers the rest of the SDK calls instead of repeating checks: emptiness tests that
// also reject values of the wrong type, first-match filtering, delegate calls that skip dead
// delegates, the carrier code, version-to-integer conversion, URL escaping and the resource
// bundle. Stateless apart from the bundle cache.

#include <any>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

struct PeloraResourceBundle;
namespace pelora::ui {
class View;
}
namespace pelora::platform {
class Image;
}

class PeloraTool {
  public:
    PeloraTool() = delete;

    // Removes every "." and reads the rest as a decimal integer (leading digits, 0 without
    // any): "1.2.3" -> 123, "3.1a" -> 31. Absent text gives 0.
    static int64_t toInt(const std::optional<std::string>& text);

    // Mobile country code followed by mobile network code; each missing part reads "(null)",
    // so a machine without a carrier yields "(null)(null)".
    static std::string imsi();

    // Emptiness tests: false only for a present value of the right type with at least one
    // element / character / byte. The std::any forms accept anything; a value of another
    // type counts as empty.
    static bool arrayIsEmpty(const std::any& object);
    template <class T>
    static bool arrayIsEmpty(const std::vector<T>& array) {
        return array.empty();
    }
    template <class T>
    static bool arrayIsEmpty(const std::optional<std::vector<T>>& array) {
        return !array || array->empty();
    }
    static bool stringIsEmpty(const std::any& object);
    static bool stringIsEmpty(const std::optional<std::string>& text) {
        return !text || text->empty();
    }
    static bool stringIsEmpty(const std::string& text) { return text.empty(); }
    static bool stringIsEmpty(const char* text) { return text == nullptr || *text == '\0'; }
    // Byte buffers: std::vector of uint8_t / char / std::byte inside a std::any; bytes carried
    // in a std::string (HTTP bodies) through the typed form.
    static bool dataIsEmpty(const std::any& object);
    static bool dataIsEmpty(const std::vector<uint8_t>& bytes) { return bytes.empty(); }
    static bool dataIsEmpty(const std::optional<std::string>& bytes) {
        return !bytes || bytes->empty();
    }

    // The first element the predicate accepts, or nothing. Changing the array from inside the
    // predicate is a programming error and aborts.
    template <class T, class Pred>
    static std::optional<T> arrayFilter(const std::vector<T>& array, Pred&& filter) {
        const std::size_t count = array.size();
        for (std::size_t i = 0; i < count; ++i) {
            const bool match = static_cast<bool>(filter(array[i]));
            if (array.size() != count) {
                std::fprintf(stderr,
                             "PeloraTool::arrayFilter: array was mutated while being walked\n");
                std::abort();
            }
            if (match) return array[i];
        }
        return std::nullopt;
    }
    template <class T, class Pred>
    static std::optional<T> arrayFilter(const std::optional<std::vector<T>>& array, Pred&& filter) {
        if (!array) return std::nullopt;
        return arrayFilter(*array, std::forward<Pred>(filter));
    }

    // Delegate calls. The target is held weakly by its owner; it is locked for the call and
    // skipped when gone. Callbacks are virtual with empty default bodies, so a delegate that
    // does not override one is "not implementing" it and the call does nothing. Runs on the
    // calling thread.
    template <class T, class C, class... Params, class A>
    requires std::is_base_of_v<C, T>
    static void safeTarget(const std::weak_ptr<T>& target, void (C::*perform)(Params...),
                           A&& para) {
        if (perform == nullptr) return;
        if (auto strong = target.lock()) ((*strong).*perform)(std::forward<A>(para));
    }
    template <class T, class C, class... Params, class A1, class A2>
    requires std::is_base_of_v<C, T>
    static void safeTarget(const std::weak_ptr<T>& target, void (C::*perform)(Params...),
                           A1&& para1, A2&& para2) {
        if (perform == nullptr) return;
        if (auto strong = target.lock())
            ((*strong).*perform)(std::forward<A1>(para1), std::forward<A2>(para2));
    }

    // The whole main screen in pixels (points times the scale, truncated), in the orientation
    // the screen reports now; 0 x 0 without a screen. What full-screen slots ask ads for.
    static void screenPixels(int64_t& width, int64_t& height);

    // The SDK's resource bundle, its interface files and images (PeloraToolBundle.cpp).
    static std::shared_ptr<PeloraResourceBundle> apiBundle();
    static std::shared_ptr<pelora::ui::View> loadNib(const std::string& name);
    static std::shared_ptr<pelora::platform::Image> imageWithName(const std::string& name);

    // URL escaping. The default (modern) encoder keeps query delimiters such as & = ? / : @;
    // the legacy encoder escapes them as well. The modern decoder keeps "+"; the legacy one
    // turns "+" into a blank first. Both decoders give nothing for a bad escape or for bytes
    // that are not UTF-8.
    static std::string stringByURLEncode(const std::string& text, bool legacyPath = false);
    static std::optional<std::string> stringByURLDecode(const std::string& text,
                                                        bool legacyPath = false);
    static std::string stringByURLEncodeLegacy(const std::string& text) {
        return stringByURLEncode(text, true);
    }
    static std::optional<std::string> stringByURLDecodeLegacy(const std::string& text) {
        return stringByURLDecode(text, true);
    }

    // Splits UTF-8 text into consecutive pieces of at most `maxUnits` UTF-16 code units, each
    // widened to whole composed character sequences (a surrogate pair, a base with its
    // combining marks, variation selectors, emoji modifiers, zero-width-joiner sequences and
    // regional-indicator pairs are never split), so a piece may exceed `maxUnits`. Bytes that
    // are not UTF-8 count as one unit each. Joining the pieces gives the text back.
    static std::vector<std::string_view> composedBatches(std::string_view utf8,
                                                         std::size_t maxUnits = 50);
    // Number of UTF-16 code units of UTF-8 text (invalid bytes count one each).
    static std::size_t utf16Length(std::string_view utf8);
};
