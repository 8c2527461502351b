#pragma once

// JSON <-> record mapping driven by a small per-record schema.
//
// A record type opts in with a static member
//     static PeloraYYModelSchema plyy_schema();
// that lists its mapped properties, e.g.
//     return plyy_makeSchema<PeloraRespVideoObject>({PLYY_PROPERTY(PeloraRespVideoObject,
//     videoUrl), ...});
// The kind of each property (number width, number object, text, list of text, nested record,
// list or dictionary of records, date, raw dictionary) follows from the member's C++ type; a
// number object is a std::optional<PeloraYYNumber>, kept as the integer or floating-point
// number it came as. Optional hooks are ordinary members of the record, found at compile time
// when the schema is made:
//   static M modelCustomPropertyMapper();           M: map name -> text | list of texts | variant
//   static std::map<std::string, std::type_index> modelContainerPropertyGenericClass();
//   static std::set<std::string> modelPropertyBlacklist();
//   static std::set<std::string> modelPropertyWhitelist();
//   static PeloraYYModelClass<T> modelCustomClassForDictionary(const nlohmann::json& dic);
//                                                    T or a derived record to build instead
//   nlohmann::json modelCustomWillTransformFromDictionary(const nlohmann::json& dic);
//   bool modelCustomTransformFromDictionary(const nlohmann::json& dic);
//   bool modelCustomTransformToDictionary(nlohmann::json& dic) const;
//   static std::shared_ptr<T> init();                used instead of make_shared to create one
//
// Byte input is parsed once and mapped straight from the parser's tree; dictionary input and
// dictionary output use nlohmann::json. Both inputs go through the same coercion rules. Byte
// output is written straight from the records, with exactly the bytes of dumping the
// dictionary (records with key paths or a write hook are written through it).
//
// Files: PeloraYYTypes.h (numbers, dates, class descriptions), PeloraYYSchema.h (declaring a
// record's schema), PeloraYYNumbers.cpp, PeloraYYDates.cpp, PeloraYYMeta.cpp,
// PeloraYYReading.cpp with PeloraYYValueViews.h (the two inputs), PeloraYYWriting.cpp.

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeindex>
#include <variant>
#include <vector>

#include "support/PeloraYYSchema.h"
#include "support/PeloraYYTypes.h"

// ---- untyped entry points (PeloraYYReading.cpp, PeloraYYWriting.cpp)
// -------------------------------------------------
std::shared_ptr<void> plyyImpl_modelWithBytes(const _PeloraYYModelMeta& meta,
                                              std::string_view bytes, std::string* whyNot);
std::shared_ptr<void> plyyImpl_modelWithDictionary(const _PeloraYYModelMeta& meta,
                                                   const nlohmann::json& dict, std::string* whyNot);
bool plyyImpl_modelSetWithBytes(const _PeloraYYModelMeta& meta, void* model, std::string_view bytes,
                                std::string* whyNot);
bool plyyImpl_modelSetWithDictionary(const _PeloraYYModelMeta& meta, void* model,
                                     const nlohmann::json& dict, std::string* whyNot);
std::vector<std::shared_ptr<void>> plyyImpl_modelArrayWithBytes(const _PeloraYYModelMeta& meta,
                                                                std::string_view bytes);
std::vector<std::shared_ptr<void>> plyyImpl_modelArrayWithJSON(const _PeloraYYModelMeta& meta,
                                                               const nlohmann::json& array);
std::map<std::string, std::shared_ptr<void>> plyyImpl_modelDictionaryWithBytes(
    const _PeloraYYModelMeta& meta, std::string_view bytes);
std::map<std::string, std::shared_ptr<void>> plyyImpl_modelDictionaryWithJSON(
    const _PeloraYYModelMeta& meta, const nlohmann::json& dict);
nlohmann::json plyyImpl_modelToJSONObject(const _PeloraYYModelMeta& meta, const void* model);
// The bytes of dumping plyyImpl_modelToJSONObject, written without building the dictionary
// wherever the record allows; nothing when the dictionary would be null.
std::optional<std::string> plyyImpl_modelToJSONBytes(const _PeloraYYModelMeta& meta,
                                                     const void* model);
// One top-level value of a record as its dictionary would hold it: texts and numbers as they
// are, anything else (dates, lists, records, dictionaries) as the dictionary's value.
struct PeloraYYValueRef {
    PeloraYYEncodingType type{};
    const std::string* text = nullptr;  // String
    PeloraYYNumber number;              // Bool and the number widths
    nlohmann::json other;               // everything else
};
using PeloraYYValueVisitor = void (*)(void* context, std::string_view key,
                                      const PeloraYYValueRef& value);
// Visits the values the record's dictionary would hold, in the dictionary's key order,
// without building it. False, having visited nothing, when the record cannot be read this way
// (key paths or a write hook): then build the dictionary instead.
bool plyyImpl_modelVisitValues(const _PeloraYYModelMeta& meta, const void* model,
                               PeloraYYValueVisitor visit, void* context);
// Serialises without options; never throws (text that is not UTF-8 is replaced).
std::string plyyImpl_dumpJSON(const nlohmann::json& value);

// Date text in the fixed formats the mapping accepts (chosen by length), UTC unless the text
// carries a zone; nothing when the text fits none.
std::optional<PeloraYYDate> plyy_dateFromString(std::string_view text);
// "yyyy-MM-dd'T'HH:mm:ssZ" in UTC, as dates are written back.
std::string plyy_stringFromDate(PeloraYYDate date);
// The number a text stands for when it lands in a numeric property (word table, decimal with
// ".", else leading integer); kind None for the null words, NaN and infinities.
PeloraYYNumber plyy_numberFromText(std::string_view text);
// What a text's integer reading gives: leading blanks, an optional sign, then the leading
// digits, 0 without any; saturates at the 64-bit limits.
int64_t plyy_integerPrefix(std::string_view text);
// Whether the bytes are one well-formed JSON text (any value, not only an object).
bool plyy_isValidJSON(std::string_view bytes, std::string* whyNot = nullptr);

// ---- typed API ------------------------------------------------------------------------------

// JSON intake: bytes are parsed (only an object yields a record); a dictionary is mapped as
// it is; a JSON string value is parsed as JSON text; anything else gives nothing.
template <class T>
std::shared_ptr<T> plyy_modelWithJSON(std::string_view bytes, std::string* whyNot = nullptr) {
    return std::static_pointer_cast<T>(
        plyyImpl_modelWithBytes(_PeloraYYModelMeta::metaWithClass<T>(), bytes, whyNot));
}
template <class T>
std::shared_ptr<T> plyy_modelWithJSON(const std::string& bytes, std::string* whyNot = nullptr) {
    return plyy_modelWithJSON<T>(std::string_view(bytes), whyNot);
}
template <class T>
std::shared_ptr<T> plyy_modelWithJSON(const char* bytes, std::string* whyNot = nullptr) {
    if (bytes == nullptr) return nullptr;
    return plyy_modelWithJSON<T>(std::string_view(bytes), whyNot);
}
template <class T>
std::shared_ptr<T> plyy_modelWithDictionary(const nlohmann::json& dict,
                                            std::string* whyNot = nullptr) {
    return std::static_pointer_cast<T>(
        plyyImpl_modelWithDictionary(_PeloraYYModelMeta::metaWithClass<T>(), dict, whyNot));
}
template <class T>
std::shared_ptr<T> plyy_modelWithJSON(const nlohmann::json& value, std::string* whyNot = nullptr) {
    if (value.is_string())
        return plyy_modelWithJSON<T>(value.get_ref<const std::string&>(), whyNot);
    if (!value.is_object()) {
        if (whyNot) *whyNot = "input is not a JSON object";
        return nullptr;
    }
    return plyy_modelWithDictionary<T>(value, whyNot);
}

template <class T>
bool plyy_modelSetWithJSON(T& model, std::string_view bytes, std::string* whyNot = nullptr) {
    return plyyImpl_modelSetWithBytes(_PeloraYYModelMeta::metaWithClass<T>(), &model, bytes,
                                      whyNot);
}
template <class T>
bool plyy_modelSetWithJSON(T& model, const std::string& bytes, std::string* whyNot = nullptr) {
    return plyy_modelSetWithJSON(model, std::string_view(bytes), whyNot);
}
template <class T>
bool plyy_modelSetWithJSON(T& model, const char* bytes, std::string* whyNot = nullptr) {
    return bytes != nullptr && plyy_modelSetWithJSON(model, std::string_view(bytes), whyNot);
}
template <class T>
bool plyy_modelSetWithDictionary(T& model, const nlohmann::json& dict,
                                 std::string* whyNot = nullptr) {
    return plyyImpl_modelSetWithDictionary(_PeloraYYModelMeta::metaWithClass<T>(), &model, dict,
                                           whyNot);
}
template <class T>
bool plyy_modelSetWithJSON(T& model, const nlohmann::json& value, std::string* whyNot = nullptr) {
    if (value.is_string())
        return plyy_modelSetWithJSON(model, value.get_ref<const std::string&>(), whyNot);
    return plyy_modelSetWithDictionary(model, value, whyNot);
}

namespace plyy_detail {
template <class T>
std::vector<std::shared_ptr<T>> castAll(std::vector<std::shared_ptr<void>>&& in) {
    std::vector<std::shared_ptr<T>> out;
    out.reserve(in.size());
    for (auto& e : in) out.push_back(std::static_pointer_cast<T>(std::move(e)));
    return out;
}
template <class T>
std::map<std::string, std::shared_ptr<T>> castAll(
    std::map<std::string, std::shared_ptr<void>>&& in) {
    std::map<std::string, std::shared_ptr<T>> out;
    for (auto& [k, e] : in) out.emplace(k, std::static_pointer_cast<T>(std::move(e)));
    return out;
}
}  // namespace plyy_detail

// A JSON array of dictionaries -> records; elements that do not map are skipped.
template <class T>
std::vector<std::shared_ptr<T>> plyy_modelArrayWithClass(std::string_view bytes) {
    return plyy_detail::castAll<T>(
        plyyImpl_modelArrayWithBytes(_PeloraYYModelMeta::metaWithClass<T>(), bytes));
}
template <class T>
std::vector<std::shared_ptr<T>> plyy_modelArrayWithClass(const std::string& bytes) {
    return plyy_modelArrayWithClass<T>(std::string_view(bytes));
}
template <class T>
std::vector<std::shared_ptr<T>> plyy_modelArrayWithClass(const nlohmann::json& array) {
    if (array.is_string()) return plyy_modelArrayWithClass<T>(array.get_ref<const std::string&>());
    return plyy_detail::castAll<T>(
        plyyImpl_modelArrayWithJSON(_PeloraYYModelMeta::metaWithClass<T>(), array));
}

// A dictionary of dictionaries -> records under the same keys.
template <class T>
std::map<std::string, std::shared_ptr<T>> plyy_modelDictionaryWithClass(std::string_view bytes) {
    return plyy_detail::castAll<T>(
        plyyImpl_modelDictionaryWithBytes(_PeloraYYModelMeta::metaWithClass<T>(), bytes));
}
template <class T>
std::map<std::string, std::shared_ptr<T>> plyy_modelDictionaryWithClass(const std::string& bytes) {
    return plyy_modelDictionaryWithClass<T>(std::string_view(bytes));
}
template <class T>
std::map<std::string, std::shared_ptr<T>> plyy_modelDictionaryWithClass(
    const nlohmann::json& dict) {
    if (dict.is_string())
        return plyy_modelDictionaryWithClass<T>(dict.get_ref<const std::string&>());
    return plyy_detail::castAll<T>(
        plyyImpl_modelDictionaryWithJSON(_PeloraYYModelMeta::metaWithClass<T>(), dict));
}

// Writing: a record becomes a dictionary (null json when a hook vetoes it).
template <class T>
nlohmann::json plyy_modelToJSONObject(const T& model) {
    return plyyImpl_modelToJSONObject(_PeloraYYModelMeta::metaWithClass<T>(), &model);
}
// See plyyImpl_modelVisitValues; `visit(std::string_view key, const PeloraYYValueRef& value)`.
template <class T, class F>
bool plyy_modelVisitValues(const T& model, F&& visit) {
    return plyyImpl_modelVisitValues(
        _PeloraYYModelMeta::metaWithClass<T>(), &model,
        [](void* context, std::string_view key, const PeloraYYValueRef& value) {
            (*static_cast<std::remove_reference_t<F>*>(context))(key, value);
        },
        &visit);
}
template <class T>
std::optional<std::string> plyy_modelToJSONData(const T& model) {
    return plyyImpl_modelToJSONBytes(_PeloraYYModelMeta::metaWithClass<T>(), &model);
}
template <class T>
std::optional<std::string> plyy_modelToJSONString(const T& model) {
    return plyy_modelToJSONData(model);
}
