// Reading JSON into records: one set of coercion rules over parsed bytes and dictionaries.

#include <locale.h>
#include <simdjson.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <unordered_map>

#include "support/PeloraYYModel.h"
#include "support/PeloraYYValueViews.h"

// ---- one set of coercion rules over two kinds of input ---------------------------------------

namespace {

struct MapContext {
    std::string* whyNot = nullptr;
    bool tooDeep = false;

    void refuseDepth() {
        if (!tooDeep && whyNot)
            *whyNot = "input nests deeper than " + std::to_string(kPeloraYYMaxDepth) + " levels";
        tooDeep = true;
    }
};

template <class V>
bool setWithObject(const _PeloraYYModelMeta& meta, void* model, V dict, int depth, MapContext& ctx,
                   bool transformed = false);

// The dictionary as the hooks take it: the dictionary route's own value, or the parsed
// bytes made into one (only records with such a hook pay for that).
const nlohmann::json& hookInput(JsonView dict, nlohmann::json&) {
    return *dict.j;
}
const nlohmann::json& hookInput(SimdView dict, nlohmann::json& holder) {
    holder = dict.toJson();
    return holder;
}

// A record made for a dictionary, before it is filled: of the requested type, or of the type
// the requested type's modelCustomClassForDictionary picks for this dictionary.
struct NewRecord {
    std::shared_ptr<void> record;    // seen as the requested type
    const _PeloraYYModelMeta* meta;  // the description of the type built
    void* target;                    // the record as that type, for its accessors
};

template <class V>
NewRecord newRecordFor(const _PeloraYYModelMeta& meta, V dict) {
    if (meta.schema.customClassForDictionary) {
        nlohmann::json holder;
        const PeloraYYClassChoice choice =
            meta.schema.customClassForDictionary(hookInput(dict, holder));
        if (choice.meta) {
            const _PeloraYYModelMeta& built = choice.meta();
            std::shared_ptr<void> made = built.schema.newInstance();
            void* target = made.get();
            // Shares ownership of the whole record, pointing at its requested-type part.
            return {std::shared_ptr<void>(made, choice.toRequested(target)), &built, target};
        }
    }
    std::shared_ptr<void> made = meta.schema.newInstance();
    void* target = made.get();
    return {std::move(made), &meta, target};
}

template <class V>
std::shared_ptr<void> newModelFrom(const _PeloraYYModelMeta& meta, V dict, int depth,
                                   MapContext& ctx) {
    if (depth >= kPeloraYYMaxDepth) {
        ctx.refuseDepth();
        return nullptr;
    }
    NewRecord one = newRecordFor(meta, dict);
    // A nested record is kept even when its own hooks refuse the input, as a fresh record.
    setWithObject(*one.meta, one.target, dict, depth + 1, ctx);
    return std::move(one.record);
}

template <class V>
PeloraYYNumber numberOf(V value) {
    PeloraYYNumber n;
    switch (value.kind()) {
        case VKind::Bool:
            n.kind = PeloraYYNumber::Int;
            n.i = value.boolean() ? 1 : 0;
            break;
        case VKind::Int:
            n.kind = PeloraYYNumber::Int;
            n.i = value.int64();
            break;
        case VKind::UInt:
            // The dictionary route holds every non-negative integer as unsigned, the parsed
            // bytes only those past the signed range: both give a number object the same kind.
            n.u = value.uint64();
            if (n.u <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
                n.kind = PeloraYYNumber::Int;
                n.i = static_cast<int64_t>(n.u);
            } else {
                n.kind = PeloraYYNumber::UInt;
            }
            break;
        case VKind::Real:
            n.kind = PeloraYYNumber::Real;
            n.d = value.real();
            if (!std::isfinite(n.d)) n.kind = PeloraYYNumber::None;
            break;
        case VKind::String:
            n = plyy_numberFromText(value.text());
            break;
        default:
            break;  // null and containers: no number, the property becomes 0
    }
    return n;
}

// Text, dates and lists of text: null clears the property, a value of another shape leaves
// it as it was (a number or a boolean given for text becomes its text).
template <class V>
void setTextProperty(const PeloraYYModelPropertyMeta& p, void* model, V value) {
    const VKind kind = value.kind();
    const auto& a = p.access;
    switch (p.type) {
        case PeloraYYEncodingType::String:
            if (kind == VKind::Null) {
                a.setText(model, std::nullopt);
            } else if (kind == VKind::String) {
                a.setText(model, std::string(value.text()));
            } else if (kind != VKind::Array && kind != VKind::Object) {
                a.setText(model, numberText(numberOf(value)));
            }
            return;
        case PeloraYYEncodingType::Date:
            if (kind == VKind::Null) {
                a.setDate(model, std::nullopt);
            } else if (kind == VKind::String) {
                a.setDate(model, plyy_dateFromString(value.text()));
            }
            return;
        case PeloraYYEncodingType::StringList:
            if (kind == VKind::Null) {
                a.setTextList(model, std::nullopt);
            } else if (kind == VKind::Array) {
                // Elements that already are text are kept; anything else is not an element of
                // this list and is dropped.
                std::vector<std::string> list;
                list.reserve(value.arraySize());
                value.eachElement([&](V one) {
                    if (one.kind() == VKind::String) list.emplace_back(one.text());
                });
                a.setTextList(model, std::move(list));
            }
            return;
        default:
            return;
    }
}

// Dictionaries and records, alone, in lists or in dictionaries: null clears the property, a
// value of another shape leaves it as it was, and nesting past the limit refuses the input.
template <class V>
void setNestedProperty(const PeloraYYModelPropertyMeta& p, void* model, V value, int depth,
                       MapContext& ctx) {
    const VKind kind = value.kind();
    const auto& a = p.access;
    switch (p.type) {
        case PeloraYYEncodingType::Dictionary:
            if (kind == VKind::Null) {
                a.setDictionary(model, std::nullopt);
            } else if (kind == VKind::Object) {
                nlohmann::json copy = value.toJson();
                if (!withinDepth(copy, depth)) return ctx.refuseDepth();
                a.setDictionary(model, std::move(copy));
            }
            return;
        case PeloraYYEncodingType::Model:
            if (kind == VKind::Null) {
                a.setModel(model, nullptr);
            } else if (kind == VKind::Object) {
                auto one = newModelFrom(a.elementMeta(), value, depth, ctx);
                if (one) a.setModel(model, std::move(one));
            }
            return;
        case PeloraYYEncodingType::ModelList:
            if (kind == VKind::Null) {
                a.setModelList(model, std::nullopt);
            } else if (kind == VKind::Array) {
                const _PeloraYYModelMeta& element = a.elementMeta();
                std::vector<std::shared_ptr<void>> list;
                list.reserve(value.arraySize());
                value.eachElement([&](V one) {
                    if (ctx.tooDeep || one.kind() != VKind::Object) return;
                    if (auto made = newModelFrom(element, one, depth + 1, ctx))
                        list.push_back(std::move(made));
                });
                if (!ctx.tooDeep) a.setModelList(model, std::move(list));
            }
            return;
        case PeloraYYEncodingType::ModelDictionary:
            if (kind == VKind::Null) {
                a.setModelDictionary(model, std::nullopt);
            } else if (kind == VKind::Object) {
                const _PeloraYYModelMeta& element = a.elementMeta();
                std::map<std::string, std::shared_ptr<void>> map;
                value.eachEntry([&](std::string_view key, V one) {
                    if (ctx.tooDeep || one.kind() != VKind::Object) return;
                    if (auto made = newModelFrom(element, one, depth + 1, ctx))
                        map.insert_or_assign(std::string(key), std::move(made));
                });
                if (!ctx.tooDeep) a.setModelDictionary(model, std::move(map));
            }
            return;
        default:
            return;
    }
}

template <class V>
void setProperty(const PeloraYYModelPropertyMeta& p, void* model, V value, int depth,
                 MapContext& ctx) {
    switch (p.type) {
        case PeloraYYEncodingType::Bool:
        case PeloraYYEncodingType::Int8:
        case PeloraYYEncodingType::UInt8:
        case PeloraYYEncodingType::Int16:
        case PeloraYYEncodingType::UInt16:
        case PeloraYYEncodingType::Int32:
        case PeloraYYEncodingType::UInt32:
        case PeloraYYEncodingType::Int64:
        case PeloraYYEncodingType::UInt64:
        case PeloraYYEncodingType::Float:
        case PeloraYYEncodingType::Double:
            p.access.setNumber(model, numberOf(value));
            return;
        case PeloraYYEncodingType::NumberObject:
            // Where a fixed width would get 0 (null, a null word, a list, a dictionary), a
            // number object gets nothing.
            p.access.setNumber(model, numberOf(value));
            return;
        case PeloraYYEncodingType::String:
        case PeloraYYEncodingType::Date:
        case PeloraYYEncodingType::StringList:
            return setTextProperty(p, model, value);
        case PeloraYYEncodingType::Dictionary:
        case PeloraYYEncodingType::Model:
        case PeloraYYEncodingType::ModelList:
        case PeloraYYEncodingType::ModelDictionary:
            return setNestedProperty(p, model, value, depth, ctx);
    }
}

template <class V>
std::optional<V> lookupPath(V dict, const std::vector<std::string>& path) {
    std::optional<V> current = dict;
    for (std::size_t i = 0; i < path.size(); ++i) {
        if (current->kind() != VKind::Object) return std::nullopt;
        current = current->find(path[i]);
        if (!current) return std::nullopt;
    }
    return current;
}

template <class V>
std::optional<V> lookup(const PeloraYYModelPropertyMeta& p, V dict) {
    if (p.isMultiKey()) {
        for (const auto& candidate : p.mappedToKeyArray) {
            if (auto v = lookupPath(dict, candidate)) return v;
        }
        return std::nullopt;
    }
    if (p.isKeyPath()) return lookupPath(dict, p.mappedToKeyPath);
    return dict.find(p.mappedToKey);
}

template <class V>
bool setWithObject(const _PeloraYYModelMeta& meta, void* model, V dict, int depth, MapContext& ctx,
                   bool transformed) {
    if (dict.kind() != VKind::Object) return false;
    if (meta.allPropertyMetas.empty()) return false;
    if (depth > kPeloraYYMaxDepth) {
        ctx.refuseDepth();
        return false;
    }
    const auto& s = meta.schema;
    if (s.willTransform && !transformed) {
        const nlohmann::json original = dict.toJson();
        nlohmann::json replaced;
        if (!s.willTransform(model, original, replaced)) return false;
        return setWithObject(meta, model, JsonView{&replaced}, depth, ctx, true) && !ctx.tooDeep;
    }

    if (meta.keyMappedCount >= dict.objectSize()) {
        dict.eachEntry([&](std::string_view key, V value) {
            if (ctx.tooDeep) return;
            for (const auto* p = meta.mapper.find(key); p != nullptr; p = p->next)
                setProperty(*p, model, value, depth, ctx);
        });
        for (const auto* p : meta.keyPathPropertyMetas) {
            if (auto v = lookup(*p, dict)) setProperty(*p, model, *v, depth, ctx);
        }
        for (const auto* p : meta.multiKeysPropertyMetas) {
            if (auto v = lookup(*p, dict)) setProperty(*p, model, *v, depth, ctx);
        }
    } else {
        for (const auto& p : meta.allPropertyMetas) {
            if (ctx.tooDeep) break;
            if (auto v = lookup(p, dict)) setProperty(p, model, *v, depth, ctx);
        }
    }
    if (ctx.tooDeep) return false;
    if (s.transformFromDictionary) return s.transformFromDictionary(model, dict.toJson());
    return true;
}

// Answers up to this size are parsed with one parser per thread whose buffers are kept
// between answers; a larger one (a host may raise the answer limit) gets buffers of its own,
// freed with the answer, so one big answer does not leave a thread holding its size for good.
constexpr std::size_t kRetainedParseBytes = 1024 * 1024;

simdjson::dom::parser& threadParser() {
    thread_local simdjson::dom::parser parser;
    return parser;
}

// Deepest nesting of arrays and objects in JSON text, brackets inside strings not counted;
// stops counting once past `limit`.
int nestingDepth(std::string_view bytes, int limit) {
    int depth = 0, deepest = 0;
    bool inString = false, escaped = false;
    for (char c : bytes) {
        if (inString) {
            if (escaped)
                escaped = false;
            else if (c == '\\')
                escaped = true;
            else if (c == '"')
                inString = false;
            continue;
        }
        if (c == '"') {
            inString = true;
        } else if (c == '{' || c == '[') {
            deepest = std::max(deepest, ++depth);
            if (deepest > limit) return deepest;
        } else if (c == '}' || c == ']') {
            --depth;
        }
    }
    return deepest;
}

// One parsed answer: the fast parser's tree, or, for text it cannot hold (integers beyond 64
// bits), the general parser's. `ownParser` holds the tree of a large answer.
struct ParsedBytes {
    std::unique_ptr<simdjson::dom::parser> ownParser;
    std::optional<simdjson::dom::element> simd;
    std::optional<nlohmann::json> general;
    explicit operator bool() const { return simd || general; }
};

std::optional<simdjson::dom::element> parseBytes(simdjson::dom::parser& parser,
                                                 std::string_view bytes, std::string* whyNot,
                                                 simdjson::error_code* failure);

// A UTF-8 byte-order mark before the text is skipped, as the platform's JSON reader does. An
// integer too large for 64 bits fails the fast parser; such text goes to the general parser,
// which reads the number as floating point (and still refuses malformed numbers), within the
// same depth limit.
ParsedBytes parseAnswer(std::string_view bytes, std::string* whyNot) {
    if (bytes.size() >= 3 && bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) bytes.remove_prefix(3);
    ParsedBytes out;
    simdjson::error_code failure = simdjson::SUCCESS;
    std::string fastWhy;
    simdjson::dom::parser* parser = &threadParser();
    if (bytes.size() > kRetainedParseBytes) {
        out.ownParser = std::make_unique<simdjson::dom::parser>();
        parser = out.ownParser.get();
    }
    out.simd = parseBytes(*parser, bytes, &fastWhy, &failure);
    if (out.simd) return out;
    out.ownParser.reset();
    // A raw NUL is never valid JSON; the general parser would stop reading at it.
    if (failure == simdjson::NUMBER_ERROR && bytes.find('\0') == std::string_view::npos) {
        if (nestingDepth(bytes, kPeloraYYMaxDepth) <= kPeloraYYMaxDepth) {
            auto general = nlohmann::json::parse(bytes.begin(), bytes.end(), nullptr,
                                                 /*allow_exceptions=*/false);
            if (!general.is_discarded()) {
                out.general = std::move(general);
                return out;
            }
        }
    }
    if (whyNot) *whyNot = fastWhy;
    return out;
}

std::optional<simdjson::dom::element> parseBytes(simdjson::dom::parser& parser,
                                                 std::string_view bytes, std::string* whyNot,
                                                 simdjson::error_code* failure) {
    if (parser.capacity() < bytes.size() || parser.max_depth() != kPeloraYYMaxDepth) {
        const std::size_t capacity = std::max<std::size_t>(bytes.size(), 4096);
        if (auto err = parser.allocate(capacity, kPeloraYYMaxDepth)) {
            if (whyNot) *whyNot = std::string("cannot parse JSON: ") + simdjson::error_message(err);
            return std::nullopt;
        }
    }
    // The parser reads a little past the end of its input, so the bytes are copied into a
    // padded buffer: one kept per thread for answers of ordinary size, one of its own (gone
    // once parsed: the tree does not point into it) for a larger one.
    thread_local std::unique_ptr<char[]> retained;
    thread_local std::size_t retainedCapacity = 0;
    const std::size_t needed = bytes.size() + simdjson::SIMDJSON_PADDING;
    std::unique_ptr<char[]> own;
    char* padded = nullptr;
    if (bytes.size() > kRetainedParseBytes) {
        own.reset(new char[needed]);
        padded = own.get();
    } else {
        if (retainedCapacity < needed) {
            retainedCapacity = std::max(
                needed,
                std::min(retainedCapacity * 2, kRetainedParseBytes + simdjson::SIMDJSON_PADDING));
            retained.reset(new char[retainedCapacity]);
        }
        padded = retained.get();
    }
    if (!bytes.empty()) std::memcpy(padded, bytes.data(), bytes.size());
    std::memset(padded + bytes.size(), 0, simdjson::SIMDJSON_PADDING);
    simdjson::dom::element root;
    if (auto err = parser.parse(padded, bytes.size(), false).get(root)) {
        if (failure) *failure = err;
        if (whyNot) {
            *whyNot =
                err == simdjson::DEPTH_ERROR
                    ? "input nests deeper than " + std::to_string(kPeloraYYMaxDepth) + " levels"
                    : std::string("not valid JSON: ") + simdjson::error_message(err);
        }
        return std::nullopt;
    }
    return root;
}

}  // namespace

bool plyy_isValidJSON(std::string_view bytes, std::string* whyNot) {
    return static_cast<bool>(parseAnswer(bytes, whyNot));
}

std::shared_ptr<void> plyyImpl_modelWithBytes(const _PeloraYYModelMeta& meta,
                                              std::string_view bytes, std::string* whyNot) {
    auto parsed = parseAnswer(bytes, whyNot);
    if (!parsed) return nullptr;
    if (parsed.general) {
        if (!parsed.general->is_object()) {
            if (whyNot) *whyNot = "the JSON text is not an object";
            return nullptr;
        }
        return plyyImpl_modelWithDictionary(meta, *parsed.general, whyNot);
    }
    SimdView view{*parsed.simd};
    if (view.kind() != VKind::Object) {
        if (whyNot) *whyNot = "the JSON text is not an object";
        return nullptr;
    }
    NewRecord one = newRecordFor(meta, view);
    MapContext ctx{whyNot};
    if (!setWithObject(*one.meta, one.target, view, 0, ctx)) {
        if (whyNot && !ctx.tooDeep) *whyNot = "the object does not map onto " + one.meta->className;
        return nullptr;
    }
    return std::move(one.record);
}

std::shared_ptr<void> plyyImpl_modelWithDictionary(const _PeloraYYModelMeta& meta,
                                                   const nlohmann::json& dict,
                                                   std::string* whyNot) {
    if (!dict.is_object()) {
        if (whyNot) *whyNot = "input is not a JSON object";
        return nullptr;
    }
    NewRecord one = newRecordFor(meta, JsonView{&dict});
    if (!plyyImpl_modelSetWithDictionary(*one.meta, one.target, dict, whyNot)) return nullptr;
    return std::move(one.record);
}

bool plyyImpl_modelSetWithBytes(const _PeloraYYModelMeta& meta, void* model, std::string_view bytes,
                                std::string* whyNot) {
    auto parsed = parseAnswer(bytes, whyNot);
    if (!parsed) return false;
    if (parsed.general)
        return plyyImpl_modelSetWithDictionary(meta, model, *parsed.general, whyNot);
    MapContext ctx{whyNot};
    if (!setWithObject(meta, model, SimdView{*parsed.simd}, 0, ctx)) {
        if (whyNot && !ctx.tooDeep) *whyNot = "the JSON text does not map onto " + meta.className;
        return false;
    }
    return true;
}

bool plyyImpl_modelSetWithDictionary(const _PeloraYYModelMeta& meta, void* model,
                                     const nlohmann::json& dict, std::string* whyNot) {
    MapContext ctx{whyNot};
    if (!setWithObject(meta, model, JsonView{&dict}, 0, ctx)) {
        if (whyNot && !ctx.tooDeep) *whyNot = "the dictionary does not map onto " + meta.className;
        return false;
    }
    return true;
}

namespace {

template <class V>
std::vector<std::shared_ptr<void>> arrayOf(const _PeloraYYModelMeta& meta, V array) {
    std::vector<std::shared_ptr<void>> out;
    if (array.kind() != VKind::Array) return out;
    array.eachElement([&](V one) {
        if (one.kind() != VKind::Object) return;
        NewRecord made = newRecordFor(meta, one);
        MapContext ctx;
        if (setWithObject(*made.meta, made.target, one, 1, ctx))
            out.push_back(std::move(made.record));
    });
    return out;
}

template <class V>
std::map<std::string, std::shared_ptr<void>> dictionaryOf(const _PeloraYYModelMeta& meta, V dict) {
    std::map<std::string, std::shared_ptr<void>> out;
    if (dict.kind() != VKind::Object) return out;
    dict.eachEntry([&](std::string_view key, V one) {
        if (one.kind() != VKind::Object) return;
        NewRecord made = newRecordFor(meta, one);
        MapContext ctx;
        if (setWithObject(*made.meta, made.target, one, 1, ctx))
            out.insert_or_assign(std::string(key), std::move(made.record));
    });
    return out;
}

}  // namespace

std::vector<std::shared_ptr<void>> plyyImpl_modelArrayWithBytes(const _PeloraYYModelMeta& meta,
                                                                std::string_view bytes) {
    auto parsed = parseAnswer(bytes, nullptr);
    if (!parsed) return {};
    if (parsed.general) return arrayOf(meta, JsonView{&*parsed.general});
    return arrayOf(meta, SimdView{*parsed.simd});
}

std::vector<std::shared_ptr<void>> plyyImpl_modelArrayWithJSON(const _PeloraYYModelMeta& meta,
                                                               const nlohmann::json& array) {
    return arrayOf(meta, JsonView{&array});
}

std::map<std::string, std::shared_ptr<void>> plyyImpl_modelDictionaryWithBytes(
    const _PeloraYYModelMeta& meta, std::string_view bytes) {
    auto parsed = parseAnswer(bytes, nullptr);
    if (!parsed) return {};
    if (parsed.general) return dictionaryOf(meta, JsonView{&*parsed.general});
    return dictionaryOf(meta, SimdView{*parsed.simd});
}

std::map<std::string, std::shared_ptr<void>> plyyImpl_modelDictionaryWithJSON(
    const _PeloraYYModelMeta& meta, const nlohmann::json& dict) {
    return dictionaryOf(meta, JsonView{&dict});
}
