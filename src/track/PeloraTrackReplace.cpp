#include "track/PeloraTrackReplace.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <type_traits>
#include <vector>

const std::string_view PeloraTrackReplace::kTokens[kMacroCount] = {
    "__REQ_WIDTH__",
    "__REQ_HEIGHT__",
    "__WIDTH__",
    "__HEIGHT__",
    "__DOWN_X__",
    "__DOWN_Y__",
    "__UP_X__",
    "__UP_Y__",
    "__TS__",
    "__ACTION_ID__",
    "__CLICK_ID__",
    "__EVENT_TIME_START__",
    "__EVENT_TIME_END__",
    "__OFFSET_X__",
    "__OFFSET_Y__",
    "__VIDEO_TIME__",
    "__VIDEO_BEHAVIOR__",
    "__VIDEO_START_TIME__",
    "__VIDEO_END_TIME__",
    "__VIDEO_PLAY_FIRSR_FRAME__",
    "__VIDEO_PLAY_LAST_FRAME__",
    "__VIDEO_SCENE__",
    "__VIDEO_PLAY_TYPE__",
    "__VIDEO_STATUS__",
};

namespace {

constexpr int64_t kUnset = -1;
constexpr int64_t kTouchFallback = -999;

void replaceAll(std::string& out, std::string_view text, std::string_view target,
                std::string_view value) {
    out.clear();
    out.reserve(text.size());
    size_t pos = 0;
    for (;;) {
        size_t hit = text.find(target, pos);
        if (hit == std::string_view::npos) break;
        out.append(text.substr(pos, hit - pos));
        out.append(value);
        pos = hit + target.size();
    }
    out.append(text.substr(pos));
}

struct Decimal {
    std::array<char, 24> buf;
    size_t len = 0;
    std::string_view view() const { return {buf.data(), len}; }
};

Decimal decimal(int64_t v) {
    Decimal d;
    auto res = std::to_chars(d.buf.data(), d.buf.data() + d.buf.size(), v);
    d.len = static_cast<size_t>(res.ptr - d.buf.data());
    return d;
}

// What one row writes in place of its token, when it writes anything. The decimal text is
// made only for tokens that occur.
struct RowValue {
    bool active;
    int64_t value;
};

struct Candidate {
    uint32_t start;
    uint16_t length;
    uint8_t row;
    bool selected;
};

// Every token starts with "__" followed by an upper-case letter; the letter narrows the rows
// that can match at a position.
struct FirstLetterIndex {
    std::array<std::array<int8_t, 10>, 26> rows{};
    FirstLetterIndex() {
        for (auto& r : rows) r.fill(-1);
        for (int row = 0; row < PeloraTrackReplace::kMacroCount; ++row) {
            int letter = PeloraTrackReplace::kTokens[row][2] - 'A';
            auto& slot = rows[static_cast<size_t>(letter)];
            for (auto& s : slot)
                if (s < 0) {
                    s = static_cast<int8_t>(row);
                    break;
                }
        }
    }
};

const FirstLetterIndex& firstLetterIndex() {
    static const FirstLetterIndex index;
    return index;
}

// The occurrences found in a text, inline up to 32 (templates hold a handful of tokens) and on
// the heap past that.
class CandidateList {
  public:
    void push(const Candidate& cand) {
        if (count_ < kInline) {
            inline_[count_] = cand;
        } else {
            if (heap_.empty()) heap_.assign(inline_.begin(), inline_.end());
            heap_.push_back(cand);
        }
        ++count_;
    }
    Candidate* data() { return count_ <= kInline ? inline_.data() : heap_.data(); }
    size_t size() const { return count_; }

  private:
    static constexpr size_t kInline = 32;
    std::array<Candidate, kInline> inline_;
    std::vector<Candidate> heap_;
    size_t count_ = 0;
};

// Every occurrence of an active token of rows [lo, hi) in `text`, left to right.
void findOccurrences(std::string_view text, const RowValue* values, int lo, int hi,
                     CandidateList& cands) {
    const auto& index = firstLetterIndex();
    const size_t n = text.size();
    const char* data = text.data();
    size_t pos = 0;
    while (n >= 2 && pos + 1 < n) {
        const void* hit = std::memchr(data + pos, '_', n - pos - 1);
        if (!hit) break;
        size_t p = static_cast<size_t>(static_cast<const char*>(hit) - data);
        if (data[p + 1] != '_') {
            pos = p + 2;  // no "__" can start at p + 1 either
            continue;
        }
        size_t next = p + 1;
        if (p + 2 < n) {
            char c = data[p + 2];
            if (c >= 'A' && c <= 'Z') {
                for (int8_t row : index.rows[static_cast<size_t>(c - 'A')]) {
                    if (row < 0) break;
                    if (row < lo || row >= hi || !values[row].active) continue;
                    auto token = PeloraTrackReplace::kTokens[row];
                    if (n - p >= token.size() &&
                        std::memcmp(data + p, token.data(), token.size()) == 0) {
                        cands.push({static_cast<uint32_t>(p), static_cast<uint16_t>(token.size()),
                                    static_cast<uint8_t>(row), false});
                        // A token has no "__" inside: the next occurrence can start no
                        // earlier than on its closing underscores.
                        next = p + token.size() - 2;
                        break;  // no token is a prefix of another
                    }
                }
            }
        }
        pos = next;
    }
}

// Marks the occurrences the replace-all passes would rewrite: row by row, leftmost first,
// skipping any that overlaps one already selected.
void selectLikePasses(Candidate* cands, size_t count, int lo, int hi) {
    bool overlaps = false;
    for (size_t i = 1; i < count; ++i)
        if (cands[i].start < cands[i - 1].start + cands[i - 1].length) overlaps = true;
    if (!overlaps) {
        for (size_t i = 0; i < count; ++i) cands[i].selected = true;
        return;
    }
    // Occurrences overlap only when they are close, so the neighbour checks stop after a few
    // steps.
    for (int row = lo; row < hi; ++row) {
        for (size_t i = 0; i < count; ++i) {
            if (cands[i].row != row) continue;
            bool blocked = false;
            const uint32_t s = cands[i].start, e = s + cands[i].length;
            for (size_t j = i; j-- > 0 && cands[j].start + 64 > s;) {
                if (cands[j].selected && cands[j].start + cands[j].length > s) {
                    blocked = true;
                    break;
                }
            }
            for (size_t j = i + 1; !blocked && j < count && cands[j].start < e; ++j)
                if (cands[j].selected) blocked = true;
            cands[i].selected = !blocked;
        }
    }
}

// Applies rows [lo, hi) -- all numeric -- to `text` exactly as consecutive replace-all passes
// would. Inserted values are decimal digits and "-", which no token contains, so a pass can
// neither create an occurrence of a later token nor split one; what a pass can do is consume
// characters that a later token shares with it. Tokens have no "__" inside, so two
// occurrences can only share their boundary underscores. Hence: find every occurrence of an
// active token in the original text, then select them row by row, leftmost first, skipping
// any that overlaps one already selected -- the passes' outcome -- and write the result once.
void applyNumericRows(std::string& out, std::string_view text, const RowValue* values, int lo,
                      int hi) {
    CandidateList found;
    findOccurrences(text, values, lo, hi, found);
    if (found.size() == 0) {
        out.assign(text);
        return;
    }
    Candidate* cands = found.data();
    const size_t count = found.size();
    selectLikePasses(cands, count, lo, hi);

    out.clear();
    out.reserve(text.size() + 16);
    size_t last = 0;
    for (size_t i = 0; i < count; ++i) {
        if (!cands[i].selected) continue;
        out.append(text.data() + last, cands[i].start - last);
        out.append(decimal(values[cands[i].row].value).view());
        last = cands[i].start + cands[i].length;
    }
    out.append(text.data() + last, text.size() - last);
}

}  // namespace

namespace {

// Reading and writing the field behind one numeric row, at the field's own width.
struct NumericRow {
    int64_t (*get)(const PeloraTrackReplace&);
    void (*set)(PeloraTrackReplace&, int64_t);
};

template <auto Field>
constexpr NumericRow numericRow() {
    return {[](const PeloraTrackReplace& r) -> int64_t { return r.*Field; },
            [](PeloraTrackReplace& r, int64_t v) {
                r.*Field = static_cast<std::remove_reference_t<decltype(r.*Field)>>(v);
            }};
}

// The fields in table order (kTokens); the click id's row is text and has none.
constexpr NumericRow kNumericRows[PeloraTrackReplace::kMacroCount] = {
    numericRow<&PeloraTrackReplace::__REQ_WIDTH__>(),
    numericRow<&PeloraTrackReplace::__REQ_HEIGHT__>(),
    numericRow<&PeloraTrackReplace::__WIDTH__>(),
    numericRow<&PeloraTrackReplace::__HEIGHT__>(),
    numericRow<&PeloraTrackReplace::__DOWN_X__>(),
    numericRow<&PeloraTrackReplace::__DOWN_Y__>(),
    numericRow<&PeloraTrackReplace::__UP_X__>(),
    numericRow<&PeloraTrackReplace::__UP_Y__>(),
    numericRow<&PeloraTrackReplace::__TS__>(),
    numericRow<&PeloraTrackReplace::__ACTION_ID__>(),
    {nullptr, nullptr},  // __CLICK_ID__
    numericRow<&PeloraTrackReplace::__EVENT_TIME_START__>(),
    numericRow<&PeloraTrackReplace::__EVENT_TIME_END__>(),
    numericRow<&PeloraTrackReplace::__OFFSET_X__>(),
    numericRow<&PeloraTrackReplace::__OFFSET_Y__>(),
    numericRow<&PeloraTrackReplace::__VIDEO_TIME__>(),
    numericRow<&PeloraTrackReplace::__VIDEO_BEHAVIOR__>(),
    numericRow<&PeloraTrackReplace::__VIDEO_START_TIME__>(),
    numericRow<&PeloraTrackReplace::__VIDEO_END_TIME__>(),
    numericRow<&PeloraTrackReplace::__VIDEO_PLAY_FIRSR_FRAME__>(),
    numericRow<&PeloraTrackReplace::__VIDEO_PLAY_LAST_FRAME__>(),
    numericRow<&PeloraTrackReplace::__VIDEO_SCENE__>(),
    numericRow<&PeloraTrackReplace::__VIDEO_PLAY_TYPE__>(),
    numericRow<&PeloraTrackReplace::__VIDEO_STATUS__>(),
};

const NumericRow* numericRowAt(int row) {
    if (row < 0 || row >= PeloraTrackReplace::kMacroCount || !kNumericRows[row].get) return nullptr;
    return &kNumericRows[row];
}

}  // namespace

int64_t PeloraTrackReplace::numericValue(int row) const {
    const NumericRow* numeric = numericRowAt(row);
    return numeric ? numeric->get(*this) : kUnset;
}

void PeloraTrackReplace::setNumericValue(int row, int64_t v) {
    if (const NumericRow* numeric = numericRowAt(row)) numeric->set(*this, v);
}

int PeloraTrackReplace::rowOfToken(std::string_view token) {
    for (int row = 0; row < kMacroCount; ++row)
        if (kTokens[row] == token) return row;
    return -1;
}

std::string PeloraTrackReplace::replacedString(std::string_view text, std::string_view target,
                                               int64_t value, int64_t defalutV, bool useDefault) {
    if (target.empty() || text.find(target) == std::string_view::npos) return std::string(text);
    std::string out;
    if (value != kUnset) {
        replaceAll(out, text, target, decimal(value).view());
        return out;
    }
    if (useDefault) {
        replaceAll(out, text, target, decimal(defalutV).view());
        return out;
    }
    return std::string(text);
}

std::string PeloraTrackReplace::replacedString(std::string_view text, std::string_view target,
                                               const std::string& str_value,
                                               const std::string& defalutV, bool useDefault) {
    if (target.empty() || text.find(target) == std::string_view::npos) return std::string(text);
    std::string out;
    if (str_value == "-1") {
        if (!useDefault) return std::string(text);
        replaceAll(out, text, target, defalutV);
        return out;
    }
    replaceAll(out, text, target, str_value);
    return out;
}

std::string PeloraTrackReplace::replacedString(std::string_view text) const {
    RowValue values[kMacroCount];
    for (int row = 0; row < kMacroCount; ++row) {
        const int64_t v = row == kClickIdRow ? kUnset : numericValue(row);
        const bool touch = row >= 4 && row <= 7;
        if (v != kUnset) {
            values[row] = {true, v};
        } else if (touch) {
            values[row] = {true, kTouchFallback};
        } else {
            values[row] = {false, kUnset};
        }
    }

    std::string out;
    if (__CLICK_ID__ == "-1") {
        // The click id stays literal (the case of every event this SDK sends): all remaining
        // rows are numeric and resolve in one scan.
        applyNumericRows(out, text, values, 0, kMacroCount);
        return out;
    }
    // A click id is arbitrary text that may hold (or, with its neighbours, form) later
    // tokens, so the rows after it must see the text with the click id in place.
    std::string stage;
    applyNumericRows(stage, text, values, 0, kClickIdRow);
    std::string withClick;
    if (stage.find(kTokens[kClickIdRow]) != std::string::npos) {
        replaceAll(withClick, stage, kTokens[kClickIdRow], __CLICK_ID__);
    } else {
        withClick = std::move(stage);
    }
    applyNumericRows(out, withClick, values, kClickIdRow + 1, kMacroCount);
    return out;
}
