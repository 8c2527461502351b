#pragma once

// Percent-escaping and its reverse for every URL text the SDK writes or reads: the query
// encoder of the transport, PeloraTool's URL helpers and the video cache's file URLs. Each
// caller keeps its own set of characters that stay as they are.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

class PeloraPercentEncoder {
  public:
    // ASCII letters and digits stay, and so does every character of `keptMarks`; every other
    // byte becomes "%XY" in upper-case hex. Built at compile time, so an encoder can be a
    // constant that is ready before any static initialiser runs.
    explicit constexpr PeloraPercentEncoder(std::string_view keptMarks) {
        constexpr char kHex[] = "0123456789ABCDEF";
        std::array<bool, 256> keep{};
        for (int c = 'a'; c <= 'z'; ++c) keep[c] = true;
        for (int c = 'A'; c <= 'Z'; ++c) keep[c] = true;
        for (int c = '0'; c <= '9'; ++c) keep[c] = true;
        for (char c : keptMarks) keep[static_cast<unsigned char>(c)] = true;
        for (int c = 0; c < 256; ++c) {
            if (keep[c]) {
                code_[c] = {static_cast<char>(c), 0, 0, 0};
                width_[c] = 1;
            } else {
                code_[c] = {'%', kHex[c >> 4], kHex[c & 0xF], 0};
                width_[c] = 3;
            }
        }
    }

    // Appends the escaped text to `out`.
    void append(std::string& out, std::string_view text) const;

    // The same bytes as append(), reached by walking the text in batches of at most 50
    // UTF-16 units widened to whole composed character sequences, the way the query encoders
    // are defined (a batch never ends inside a character). Escaping goes byte by byte, so the
    // batches never change the result; pure ASCII, almost every URL, is escaped whole.
    void appendInBatches(std::string& out, std::string_view text) const;

    std::string encode(std::string_view text) const {
        std::string out;
        append(out, text);
        return out;
    }

  private:
    char* escapeInto(std::string_view piece, char* dst) const;

    // What each byte becomes, padded to four bytes, and how many of them count: writing all
    // four and advancing by the width keeps the loop free of branches.
    std::array<std::array<char, 4>, 256> code_{};
    std::array<uint8_t, 256> width_{};
};

// The value of a hex digit of either case, or -1 for any other character.
int pl_hexDigitValue(char c);

// What a decoder does with a "%" that is not followed by two hex digits.
enum class PeloraBadEscape {
    Refuse,      // the whole text is refused
    KeepAsText,  // the "%" stays as it is and the characters after it are read as usual
};

// Every "%XY" becomes the byte it names; everything else is copied. The bytes produced are not
// checked (callers that want UTF-8 check it themselves). Nothing only when a bad escape is
// refused.
std::optional<std::string> pl_percentDecode(std::string_view text, PeloraBadEscape badEscape);
