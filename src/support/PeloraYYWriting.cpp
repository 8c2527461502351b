// Writing records back: to a dictionary, and to JSON bytes directly.

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

// ---- writing ---------------------------------------------------------------------------------

namespace {

nlohmann::json numberJson(PeloraYYEncodingType type, const PeloraYYNumber& n) {
    if (type == PeloraYYEncodingType::Bool) return n.i != 0;
    switch (n.kind) {
        case PeloraYYNumber::Int:
            return n.i;
        case PeloraYYNumber::UInt:
            return n.u;
        case PeloraYYNumber::Real:
            return n.d;
        case PeloraYYNumber::None:
            break;
    }
    return 0;
}

nlohmann::json toObject(const _PeloraYYModelMeta& meta, const void* model, int depth);

// Null json: the property has no value and is left out.
nlohmann::json propertyJson(const PeloraYYModelPropertyMeta& p, const void* model, int depth) {
    const auto& a = p.access;
    switch (p.type) {
        case PeloraYYEncodingType::NumberObject: {
            const PeloraYYNumber n = a.getNumber(model);
            return n.kind == PeloraYYNumber::None ? nlohmann::json() : numberJson(p.type, n);
        }
        case PeloraYYEncodingType::String: {
            const auto& v = a.getText(model);
            return v ? nlohmann::json(*v) : nlohmann::json();
        }
        case PeloraYYEncodingType::Date: {
            const auto v = a.getDate(model);
            return v ? nlohmann::json(plyy_stringFromDate(*v)) : nlohmann::json();
        }
        case PeloraYYEncodingType::StringList: {
            const auto& v = a.getTextList(model);
            return v ? nlohmann::json(*v) : nlohmann::json();
        }
        case PeloraYYEncodingType::Dictionary: {
            const auto& v = a.getDictionary(model);
            return v ? *v : nlohmann::json();
        }
        case PeloraYYEncodingType::Model: {
            const void* one = a.getModel(model);
            return one ? toObject(a.elementMeta(), one, depth + 1) : nlohmann::json();
        }
        case PeloraYYEncodingType::ModelList: {
            std::vector<const void*> list;
            if (!a.getModelList(model, list)) return nullptr;
            auto out = nlohmann::json::array();
            const auto& element = a.elementMeta();
            for (const void* one : list) {
                if (!one) continue;
                auto j = toObject(element, one, depth + 1);
                if (!j.is_null()) out.push_back(std::move(j));
            }
            return out;
        }
        case PeloraYYEncodingType::ModelDictionary: {
            std::vector<std::pair<const std::string*, const void*>> map;
            if (!a.getModelDictionary(model, map)) return nullptr;
            auto out = nlohmann::json::object();
            const auto& element = a.elementMeta();
            for (const auto& [key, one] : map) {
                if (!one) continue;
                auto j = toObject(element, one, depth + 1);
                if (!j.is_null()) out[*key] = std::move(j);
            }
            return out;
        }
        default:
            return numberJson(p.type, a.getNumber(model));
    }
}

nlohmann::json toObject(const _PeloraYYModelMeta& meta, const void* model, int depth) {
    // Records that hold themselves (through shared pointers) would otherwise recurse forever.
    if (depth > kPeloraYYMaxDepth || meta.allPropertyMetas.empty()) return nullptr;
    auto dic = nlohmann::json::object();
    for (const auto& p : meta.allPropertyMetas) {
        nlohmann::json value = propertyJson(p, model, depth);
        if (value.is_null()) continue;
        if (p.isKeyPath()) {
            // Build the intermediate dictionaries; a key already holding something else stops
            // the walk, and an existing value is never overwritten.
            nlohmann::json* super = &dic;
            const auto& path = p.mappedToKeyPath;
            for (std::size_t i = 0; i + 1 < path.size(); ++i) {
                auto& sub = (*super)[path[i]];
                if (sub.is_null()) sub = nlohmann::json::object();
                if (!sub.is_object()) {
                    super = nullptr;
                    break;
                }
                super = &sub;
            }
            if (super && !super->contains(path.back())) (*super)[path.back()] = std::move(value);
        } else if (!dic.contains(p.mappedToKey)) {
            dic[p.mappedToKey] = std::move(value);
        }
    }
    if (meta.schema.transformToDictionary && !meta.schema.transformToDictionary(model, dic))
        return nullptr;
    return dic;
}

}  // namespace

nlohmann::json plyyImpl_modelToJSONObject(const _PeloraYYModelMeta& meta, const void* model) {
    if (model == nullptr) return nullptr;
    nlohmann::json out = toObject(meta, model, 0);
    if (!out.is_object() && !out.is_array()) return nullptr;
    return out;
}

std::string plyyImpl_dumpJSON(const nlohmann::json& value) {
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// ---- writing bytes directly --------------------------------------------------------------------
//
// Produces exactly the bytes of building the dictionary and dumping it: keys in the
// dictionary's (byte) order, no spaces, text kept as UTF-8 with only quotes, backslashes and
// control characters escaped. The rare values whose dumped form has subtleties (text that is
// not valid UTF-8, fractional or huge reals, raw dictionaries) are handed to the dumper
// itself, so the two ways can never disagree.

namespace {

void appendDumped(std::string& out, const nlohmann::json& value) {
    out += plyyImpl_dumpJSON(value);
}

void appendText(std::string& out, std::string_view text) {
    // Nearly every text is ASCII with nothing to escape: one scan, one copy.
    unsigned char high = 0;
    bool verbatim = true;
    for (unsigned char c : text) {
        high |= c;
        verbatim &= (c >= 0x20) & (c != '"') & (c != '\\');
    }
    if ((high & 0x80) && !simdjson::validate_utf8(text.data(), text.size())) {
        appendDumped(out, nlohmann::json(std::string(text)));
        return;
    }
    if (verbatim) {
        const std::size_t at = out.size();
        out.resize(at + text.size() + 2);
        char* dst = out.data() + at;
        dst[0] = '"';
        std::memcpy(dst + 1, text.data(), text.size());
        dst[text.size() + 1] = '"';
        return;
    }
    out.push_back('"');
    std::size_t plain = 0;  // start of the run not yet copied
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x20 && c != '"' && c != '\\') continue;
        out.append(text.data() + plain, i - plain);
        plain = i + 1;
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\b':
                out += "\\b";
                break;
            case '\f':
                out += "\\f";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default: {
                static constexpr char kLowerHex[] = "0123456789abcdef";
                const char escaped[] = {'\\', 'u', '0', '0', kLowerHex[c >> 4], kLowerHex[c & 0xF]};
                out.append(escaped, sizeof escaped);
            }
        }
    }
    out.append(text.data() + plain, text.size() - plain);
    out.push_back('"');
}

template <class I>
void appendInteger(std::string& out, I value) {
    char buf[24];
    auto r = std::to_chars(buf, buf + sizeof buf, value);
    out.append(buf, r.ptr);
}

void appendNumber(std::string& out, PeloraYYEncodingType type, const PeloraYYNumber& n) {
    if (type == PeloraYYEncodingType::Bool) {
        out += n.i != 0 ? "true" : "false";
        return;
    }
    switch (n.kind) {
        case PeloraYYNumber::Int:
            return appendInteger(out, n.i);
        case PeloraYYNumber::UInt:
            return appendInteger(out, n.u);
        case PeloraYYNumber::Real:
            // Whole numbers below 1e15 are dumped as their digits and ".0"; other reals use
            // the dumper's shortest form and exponent rules.
            if (std::isfinite(n.d) && n.d == std::trunc(n.d) && std::fabs(n.d) < 1e15 &&
                !(n.d == 0 && std::signbit(n.d))) {
                appendInteger(out, static_cast<int64_t>(n.d));
                out += ".0";
                return;
            }
            return appendDumped(out, nlohmann::json(n.d));
        case PeloraYYNumber::None:
            break;
    }
    out.push_back('0');
}

bool writeObject(const _PeloraYYModelMeta& meta, const void* model, int depth, std::string& out);

// One record of a list or a dictionary, after a comma unless it is the first written and
// after its key in a dictionary. A record that writes nothing (nested too deep) is taken back
// with its comma and key, so the container stays valid.
void appendElement(std::string& out, const _PeloraYYModelMeta& element, const void* one, int depth,
                   const std::string* key, bool& first) {
    const std::size_t mark = out.size();
    if (!first) out.push_back(',');
    if (key) {
        appendText(out, *key);
        out.push_back(':');
    }
    if (writeObject(element, one, depth + 1, out)) {
        first = false;
    } else {
        out.resize(mark);
    }
}

// A list of records, absent ones left out. False when the list itself is absent.
bool writeModelList(const PeloraYYModelPropertyMeta& p, const void* model, int depth,
                    std::string& out) {
    std::vector<const void*> list;
    if (!p.access.getModelList(model, list)) return false;
    const auto& element = p.access.elementMeta();
    out.push_back('[');
    bool first = true;
    for (const void* one : list)
        if (one) appendElement(out, element, one, depth, nullptr, first);
    out.push_back(']');
    return true;
}

// A dictionary of records, absent ones left out. False when the dictionary itself is absent.
bool writeModelDictionary(const PeloraYYModelPropertyMeta& p, const void* model, int depth,
                          std::string& out) {
    std::vector<std::pair<const std::string*, const void*>> map;
    if (!p.access.getModelDictionary(model, map)) return false;
    const auto& element = p.access.elementMeta();
    out.push_back('{');
    bool first = true;
    for (const auto& [key, one] : map)
        if (one) appendElement(out, element, one, depth, key, first);
    out.push_back('}');
    return true;
}

// False (and nothing written) when the property has no value and is left out.
bool writeValue(const PeloraYYModelPropertyMeta& p, const void* model, int depth,
                std::string& out) {
    const auto& a = p.access;
    switch (p.type) {
        case PeloraYYEncodingType::NumberObject: {
            const PeloraYYNumber n = a.getNumber(model);
            if (n.kind == PeloraYYNumber::None) return false;
            appendNumber(out, p.type, n);
            return true;
        }
        case PeloraYYEncodingType::String: {
            const auto& v = a.getText(model);
            if (!v) return false;
            appendText(out, *v);
            return true;
        }
        case PeloraYYEncodingType::Date: {
            const auto v = a.getDate(model);
            if (!v) return false;
            appendText(out, plyy_stringFromDate(*v));
            return true;
        }
        case PeloraYYEncodingType::StringList: {
            const auto& v = a.getTextList(model);
            if (!v) return false;
            out.push_back('[');
            for (std::size_t i = 0; i < v->size(); ++i) {
                if (i) out.push_back(',');
                appendText(out, (*v)[i]);
            }
            out.push_back(']');
            return true;
        }
        case PeloraYYEncodingType::Dictionary: {
            const auto& v = a.getDictionary(model);
            if (!v || v->is_null()) return false;
            appendDumped(out, *v);
            return true;
        }
        case PeloraYYEncodingType::Model: {
            const void* one = a.getModel(model);
            return one && writeObject(a.elementMeta(), one, depth + 1, out);
        }
        case PeloraYYEncodingType::ModelList:
            return writeModelList(p, model, depth, out);
        case PeloraYYEncodingType::ModelDictionary:
            return writeModelDictionary(p, model, depth, out);
        default:
            appendNumber(out, p.type, a.getNumber(model));
            return true;
    }
}

bool writeObject(const _PeloraYYModelMeta& meta, const void* model, int depth, std::string& out) {
    if (depth > kPeloraYYMaxDepth || meta.allPropertyMetas.empty()) return false;
    if (!meta.writesDirectly) {
        nlohmann::json dic = toObject(meta, model, depth);
        if (dic.is_null()) return false;
        appendDumped(out, dic);
        return true;
    }
    out.push_back('{');
    bool first = true;
    bool keyTaken = false;
    for (const auto& slot : meta.writeOrder) {
        // Properties sharing a key sit side by side; the first one with a value holds it.
        if (!slot.sameKeyAsPrevious) keyTaken = false;
        if (keyTaken) continue;
        const std::size_t mark = out.size();
        if (!first) out.push_back(',');
        out += slot.key;
        if (writeValue(*slot.property, model, depth, out)) {
            first = false;
            keyTaken = true;
        } else {
            out.resize(mark);
        }
    }
    out.push_back('}');
    return true;
}

}  // namespace

bool plyyImpl_modelVisitValues(const _PeloraYYModelMeta& meta, const void* model,
                               PeloraYYValueVisitor visit, void* context) {
    if (model == nullptr || !meta.writesDirectly || meta.allPropertyMetas.empty()) return false;
    bool keyTaken = false;
    for (const auto& slot : meta.writeOrder) {
        if (!slot.sameKeyAsPrevious) keyTaken = false;
        if (keyTaken) continue;
        const auto& p = *slot.property;
        PeloraYYValueRef value;
        value.type = p.type;
        if (p.type == PeloraYYEncodingType::String) {
            const auto& text = p.access.getText(model);
            if (!text) continue;
            value.text = &*text;
        } else if (p.type <= PeloraYYEncodingType::Double) {
            value.number = p.access.getNumber(model);
        } else {
            value.other = propertyJson(p, model, 0);
            if (value.other.is_null()) continue;
        }
        keyTaken = true;
        visit(context, p.mappedToKey, value);
    }
    return true;
}

std::optional<std::string> plyyImpl_modelToJSONBytes(const _PeloraYYModelMeta& meta,
                                                     const void* model) {
    if (model == nullptr) return std::nullopt;
    std::string out;
    out.reserve(512);
    if (!writeObject(meta, model, 0, out)) return std::nullopt;
    return out;
}
