#pragma once

// The two kinds of input the mapping reads, behind one interface: simdjson's parsed bytes
// (SimdView) and nlohmann dictionaries (JsonView). The coercion rules in PeloraYYReading.cpp
// are written once against this interface. Included by PeloraYYReading.cpp only.

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "support/PeloraYYModel.h"

namespace {

enum class VKind : uint8_t { Null, Bool, Int, UInt, Real, String, Array, Object };

std::string numberText(const PeloraYYNumber& n) {
    char buf[40];
    std::to_chars_result r{};
    switch (n.kind) {
        case PeloraYYNumber::Int:
            r = std::to_chars(buf, buf + sizeof buf, n.i);
            break;
        case PeloraYYNumber::UInt:
            r = std::to_chars(buf, buf + sizeof buf, n.u);
            break;
        case PeloraYYNumber::Real:
            r = std::to_chars(buf, buf + sizeof buf, n.d);
            break;
        case PeloraYYNumber::None:
            return "0";
    }
    return std::string(buf, r.ptr);
}

// A parsed value of the byte route.
struct SimdView {
    simdjson::dom::element e;

    VKind kind() const {
        switch (e.type()) {
            case simdjson::dom::element_type::NULL_VALUE:
                return VKind::Null;
            case simdjson::dom::element_type::BOOL:
                return VKind::Bool;
            case simdjson::dom::element_type::INT64:
                return VKind::Int;
            case simdjson::dom::element_type::UINT64:
                return VKind::UInt;
            case simdjson::dom::element_type::DOUBLE:
                return VKind::Real;
            case simdjson::dom::element_type::STRING:
                return VKind::String;
            case simdjson::dom::element_type::ARRAY:
                return VKind::Array;
            case simdjson::dom::element_type::OBJECT:
                return VKind::Object;
        }
        return VKind::Null;
    }
    bool boolean() const {
        bool v = false;
        if (e.get(v) != simdjson::SUCCESS) return {};
        return v;
    }
    int64_t int64() const {
        int64_t v = 0;
        if (e.get(v) != simdjson::SUCCESS) return {};
        return v;
    }
    uint64_t uint64() const {
        uint64_t v = 0;
        if (e.get(v) != simdjson::SUCCESS) return {};
        return v;
    }
    double real() const {
        double v = 0;
        if (e.get(v) != simdjson::SUCCESS) return {};
        return v;
    }
    std::string_view text() const {
        std::string_view v;
        if (e.get(v) != simdjson::SUCCESS) return {};
        return v;
    }
    simdjson::dom::object object() const {
        simdjson::dom::object o;
        if (e.get(o)) return {};
        return o;
    }
    std::size_t objectSize() const { return object().size(); }
    std::size_t arraySize() const {
        simdjson::dom::array a;
        if (e.get(a) != simdjson::SUCCESS) return 0;
        return a.size();
    }
    template <class F>
    void eachElement(F&& f) const {
        simdjson::dom::array a;
        if (e.get(a)) return;
        for (simdjson::dom::element child : a) f(SimdView{child});
    }
    // Walks the entries as a dictionary made from the text holds them: of duplicate keys only
    // the last is seen, so a property a later duplicate clears or ignores is not left set by an
    // earlier one (the dictionary route never sees the earlier one at all). Records have few
    // keys: up to 64 are compared in place, with nothing allocated; larger objects are indexed.
    template <class F>
    void eachEntry(F&& f) const {
        simdjson::dom::object o;
        if (e.get(o)) return;
        const std::size_t n = o.size();
        if (n <= 64) {
            std::array<std::string_view, 64> keys;
            std::size_t k = 0;
            for (auto field : o) keys[k++] = field.key;
            k = 0;
            for (auto field : o) {
                const std::size_t i = k++;
                if (std::find(keys.begin() + i + 1, keys.begin() + n, keys[i]) == keys.begin() + n)
                    f(field.key, SimdView{field.value});
            }
            return;
        }
        std::unordered_map<std::string_view, std::size_t> last;
        last.reserve(n);
        std::size_t k = 0;
        for (auto field : o) last[field.key] = k++;
        k = 0;
        for (auto field : o)
            if (last[field.key] == k++) f(field.key, SimdView{field.value});
    }
    // The last of duplicate keys, as a dictionary made from the text keeps it: both ways
    // of mapping an object (walking its entries, or looking its keys up) then agree.
    std::optional<SimdView> find(std::string_view key) const {
        simdjson::dom::object o;
        if (e.get(o)) return std::nullopt;
        std::optional<SimdView> last;
        for (auto field : o)
            if (field.key == key) last = SimdView{field.value};
        return last;
    }
    nlohmann::json toJson() const;
};

nlohmann::json SimdView::toJson() const {
    switch (kind()) {
        case VKind::Null:
            return nullptr;
        case VKind::Bool:
            return boolean();
        case VKind::Int:
            return int64();
        case VKind::UInt:
            return uint64();
        case VKind::Real:
            return real();
        case VKind::String:
            return std::string(text());
        case VKind::Array: {
            auto out = nlohmann::json::array();
            eachElement([&](SimdView v) { out.push_back(v.toJson()); });
            return out;
        }
        case VKind::Object: {
            auto out = nlohmann::json::object();
            eachEntry([&](std::string_view k, SimdView v) {
                out[std::string(k)] = v.toJson();  // the last duplicate wins, as when parsing
            });
            return out;
        }
    }
    return nullptr;
}

// A value of the dictionary route.
struct JsonView {
    const nlohmann::json* j;

    VKind kind() const {
        switch (j->type()) {
            case nlohmann::json::value_t::boolean:
                return VKind::Bool;
            case nlohmann::json::value_t::number_integer:
                return VKind::Int;
            case nlohmann::json::value_t::number_unsigned:
                return VKind::UInt;
            case nlohmann::json::value_t::number_float:
                return VKind::Real;
            case nlohmann::json::value_t::string:
                return VKind::String;
            case nlohmann::json::value_t::array:
                return VKind::Array;
            case nlohmann::json::value_t::object:
                return VKind::Object;
            default:
                return VKind::Null;  // null, discarded, binary
        }
    }
    bool boolean() const { return j->get<bool>(); }
    int64_t int64() const { return j->get<int64_t>(); }
    uint64_t uint64() const { return j->get<uint64_t>(); }
    double real() const { return j->get<double>(); }
    std::string_view text() const { return j->get_ref<const std::string&>(); }
    std::size_t objectSize() const { return j->size(); }
    std::size_t arraySize() const { return j->size(); }
    template <class F>
    void eachElement(F&& f) const {
        for (const auto& child : *j) f(JsonView{&child});
    }
    template <class F>
    void eachEntry(F&& f) const {
        for (auto it = j->begin(); it != j->end(); ++it)
            f(std::string_view(it.key()), JsonView{&it.value()});
    }
    std::optional<JsonView> find(std::string_view key) const {
        auto it = j->find(key);
        if (it == j->end()) return std::nullopt;
        return JsonView{&*it};
    }
    nlohmann::json toJson() const { return *j; }
};

// Depth of a dictionary-route value, counted only as far as the limit.
bool withinDepth(const nlohmann::json& value, int depth) {
    if (!value.is_structured()) return true;
    if (depth >= kPeloraYYMaxDepth) return false;
    for (const auto& child : value)
        if (!withinDepth(child, depth + 1)) return false;
    return true;
}

}  // namespace
