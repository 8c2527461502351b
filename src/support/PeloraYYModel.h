#pragma once

// JSON <-> record mapping driven by a small per-record schema.
//
// A record type opts in with a static member
//     static _PeloraYYModelSchema plyy_schema();
// that lists its mapped properties, e.g.
//     return plyy_makeSchema<PeloraRespVideoObject>({PLYY_PROPERTY(PeloraRespVideoObject,
//     videoUrl), ...});
// The kind of each property (number width, text, list of text, nested record, list or
// dictionary of records, date, raw dictionary) follows from the member's C++ type. Optional
// hooks are ordinary members of the record, found at compile time when the schema is made:
//   static M modelCustomPropertyMapper();           M: map name -> text | list of texts | variant
//   static std::map<std::string, std::type_index> modelContainerPropertyGenericClass();
//   static std::set<std::string> modelPropertyBlacklist();
//   static std::set<std::string> modelPropertyWhitelist();
//   nlohmann::json modelCustomWillTransformFromDictionary(const nlohmann::json& dic);
//   bool modelCustomTransformFromDictionary(const nlohmann::json& dic);
//   bool modelCustomTransformToDictionary(nlohmann::json& dic) const;
//   static std::shared_ptr<T> init();                used instead of make_shared to create one
//
// Byte input is parsed once and mapped straight from the parser's tree; dictionary input and
// dictionary output use nlohmann::json. Both inputs go through the same coercion rules. Byte
// output is written straight from the records, with exactly the bytes of dumping the
// dictionary (records with key paths or a write hook are written through it).

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

using PeloraYYDate = std::chrono::system_clock::time_point;

// Inputs nested deeper than this are refused (whyNot says so) instead of risking the stack.
inline constexpr int kPeloraYYMaxDepth = 128;

enum class PeloraYYEncodingType : uint8_t {
    Bool,
    Int8,
    UInt8,
    Int16,
    UInt16,
    Int32,
    UInt32,
    Int64,
    UInt64,
    Float,
    Double,
    String,
    Date,
    StringList,
    ModelList,
    Model,
    ModelDictionary,
    Dictionary,
};

// A number taken from JSON or from text, before it is narrowed to a property's width.
struct PeloraYYNumber {
    enum Kind : uint8_t { None, Int, UInt, Real };
    Kind kind = None;
    int64_t i = 0;
    uint64_t u = 0;
    double d = 0.0;
};

class _PeloraYYModelMeta;
using PeloraYYKeyMapping = std::variant<std::string, std::vector<std::string>>;

// Type-erased access to one property. Only the members of the property's kind are set.
struct _PeloraYYPropertyAccess {
    void (*setNumber)(void*, const PeloraYYNumber&) = nullptr;
    PeloraYYNumber (*getNumber)(const void*) = nullptr;
    void (*setText)(void*, std::optional<std::string>&&) = nullptr;
    const std::optional<std::string>& (*getText)(const void*) = nullptr;
    void (*setDate)(void*, std::optional<PeloraYYDate>) = nullptr;
    std::optional<PeloraYYDate> (*getDate)(const void*) = nullptr;
    void (*setTextList)(void*, std::optional<std::vector<std::string>>&&) = nullptr;
    const std::optional<std::vector<std::string>>& (*getTextList)(const void*) = nullptr;
    void (*setDictionary)(void*, std::optional<nlohmann::json>&&) = nullptr;
    const std::optional<nlohmann::json>& (*getDictionary)(const void*) = nullptr;
    // Records: the element (or nested) record's description, and lists of type-erased
    // records (each created by that description's newInstance).
    const _PeloraYYModelMeta& (*elementMeta)() = nullptr;
    void (*setModel)(void*, std::shared_ptr<void>&&) = nullptr;
    const void* (*getModel)(const void*) = nullptr;
    void (*setModelList)(void*, std::optional<std::vector<std::shared_ptr<void>>>&&) = nullptr;
    bool (*getModelList)(const void*, std::vector<const void*>&) = nullptr;
    void (*setModelDictionary)(
        void*, std::optional<std::map<std::string, std::shared_ptr<void>>>&&) = nullptr;
    bool (*getModelDictionary)(const void*,
                               std::vector<std::pair<const std::string*, const void*>>&) = nullptr;
};

// One entry of a record's schema (see PLYY_PROPERTY / PLYY_ACCESSOR).
struct _PeloraYYPropertyDecl {
    std::string name;
    PeloraYYEncodingType type{};
    std::type_index elementClass = typeid(void);  // record or std::string for containers
    _PeloraYYPropertyAccess access;
};

struct _PeloraYYModelSchema {
    std::type_index cls = typeid(void);
    std::string className;
    std::vector<_PeloraYYPropertyDecl> properties;
    std::shared_ptr<void> (*newInstance)() = nullptr;
    std::optional<std::map<std::string, PeloraYYKeyMapping>> customPropertyMapper;
    std::optional<std::map<std::string, std::type_index>> containerGenericClass;
    std::optional<std::set<std::string>> blacklist;
    std::optional<std::set<std::string>> whitelist;
    // Absent unless the record has the hook. willTransform: false when the hook's answer is
    // not a dictionary.
    bool (*willTransform)(void* model, const nlohmann::json& in, nlohmann::json& out) = nullptr;
    bool (*transformFromDictionary)(void* model, const nlohmann::json& dic) = nullptr;
    bool (*transformToDictionary)(const void* model, nlohmann::json& dic) = nullptr;
};

// How one property is found in a dictionary.
struct _PeloraYYModelPropertyMeta {
    std::string name;
    PeloraYYEncodingType type{};
    std::type_index elementClass = typeid(void);
    std::string mappedToKey;                                 // plain key (or the first key)
    std::vector<std::string> mappedToKeyPath;                // more than one piece: a key path
    std::vector<std::vector<std::string>> mappedToKeyArray;  // candidate keys, each a path
    _PeloraYYPropertyAccess access;
    const _PeloraYYModelPropertyMeta* next = nullptr;  // next property mapped to the same key
    bool isKeyPath() const { return mappedToKeyPath.size() > 1; }
    bool isMultiKey() const { return !mappedToKeyArray.empty(); }
};

// A small open-addressing table from key text to the first property mapped to it, sized once
// for a record's keys. The hash reads only the length and the two end bytes: record keys are
// few and short, and a full hash or a tree walk cost more than the rare extra comparison.
class _PeloraYYKeyTable {
  public:
    void reserve(std::size_t keys);
    // The entry for the key, added when missing (reserve first).
    const _PeloraYYModelPropertyMeta*& slot(const std::string& key);
    const _PeloraYYModelPropertyMeta* find(std::string_view key) const;

  private:
    struct Entry {
        std::string key;
        const _PeloraYYModelPropertyMeta* first = nullptr;
        bool used = false;
    };
    static std::size_t hashOf(std::string_view key) {
        if (key.empty()) return 0;
        return key.size() * 131 + static_cast<unsigned char>(key.front()) * 31 +
               static_cast<unsigned char>(key.back());
    }
    std::vector<Entry> entries_;
    std::size_t mask_ = 0;
};

// A record's mapping description, built once per type and cached for the process.
class _PeloraYYModelMeta {
  public:
    std::type_index cls = typeid(void);
    std::string className;
    std::vector<_PeloraYYModelPropertyMeta> allPropertyMetas;
    // Plain key -> first property mapped to it (the rest follow through `next`). Looked up
    // once per key of every mapped dictionary, by the parser's key text.
    _PeloraYYKeyTable mapper;
    std::vector<const _PeloraYYModelPropertyMeta*> keyPathPropertyMetas;
    std::vector<const _PeloraYYModelPropertyMeta*> multiKeysPropertyMetas;
    std::size_t keyMappedCount = 0;
    // Writing: the properties in the order their keys come out (byte order of the key, ties
    // in declaration order), and whether the record can be written as bytes directly (no key
    // paths and no write hook; otherwise it goes through a dictionary).
    struct WriteSlot {
        const _PeloraYYModelPropertyMeta* property = nullptr;
        std::string key;                 // the key as written, quoted, with its colon
        bool sameKeyAsPrevious = false;  // then the earlier property holds the key if it can
    };
    std::vector<WriteSlot> writeOrder;
    bool writesDirectly = false;
    _PeloraYYModelSchema schema;  // hooks and factory

    template <class T>
    static const _PeloraYYModelMeta& metaWithClass() {
        // The shared cache (one lock) is the source; the local static saves the lock on the
        // hot path of large answers.
        static const _PeloraYYModelMeta* meta = &cachedMeta(typeid(T), &T::plyy_schema);
        return *meta;
    }
    // Looks the type up in the process-wide cache, building its description on first use.
    static const _PeloraYYModelMeta& cachedMeta(std::type_index cls,
                                                _PeloraYYModelSchema (*schema)());
    static _PeloraYYModelMeta build(_PeloraYYModelSchema schema);
};

namespace plyy_detail {

template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};
template <class T>
struct SharedElement {
    using type = void;
};
template <class T>
struct SharedElement<std::shared_ptr<T>> {
    using type = T;
};
template <class T>
struct ListOfShared : std::false_type {};
template <class T>
struct ListOfShared<std::optional<std::vector<std::shared_ptr<T>>>> : std::true_type {
    using element = T;
};
template <class T>
struct MapOfShared : std::false_type {};
template <class T>
struct MapOfShared<std::optional<std::map<std::string, std::shared_ptr<T>>>> : std::true_type {
    using element = T;
};

template <class V>
constexpr PeloraYYEncodingType encodingOf() {
    if constexpr (std::is_same_v<V, bool>) {
        return PeloraYYEncodingType::Bool;
    } else if constexpr (std::is_integral_v<V>) {
        constexpr bool s = std::is_signed_v<V>;
        if constexpr (sizeof(V) == 1)
            return s ? PeloraYYEncodingType::Int8 : PeloraYYEncodingType::UInt8;
        if constexpr (sizeof(V) == 2)
            return s ? PeloraYYEncodingType::Int16 : PeloraYYEncodingType::UInt16;
        if constexpr (sizeof(V) == 4)
            return s ? PeloraYYEncodingType::Int32 : PeloraYYEncodingType::UInt32;
        if constexpr (sizeof(V) == 8)
            return s ? PeloraYYEncodingType::Int64 : PeloraYYEncodingType::UInt64;
    } else if constexpr (std::is_same_v<V, float>) {
        return PeloraYYEncodingType::Float;
    } else if constexpr (std::is_same_v<V, double>) {
        return PeloraYYEncodingType::Double;
    } else if constexpr (std::is_same_v<V, std::optional<std::string>>) {
        return PeloraYYEncodingType::String;
    } else if constexpr (std::is_same_v<V, std::optional<PeloraYYDate>>) {
        return PeloraYYEncodingType::Date;
    } else if constexpr (std::is_same_v<V, std::optional<std::vector<std::string>>>) {
        return PeloraYYEncodingType::StringList;
    } else if constexpr (std::is_same_v<V, std::optional<nlohmann::json>>) {
        return PeloraYYEncodingType::Dictionary;
    } else if constexpr (ListOfShared<V>::value) {
        return PeloraYYEncodingType::ModelList;
    } else if constexpr (MapOfShared<V>::value) {
        return PeloraYYEncodingType::ModelDictionary;
    } else if constexpr (!std::is_void_v<typename SharedElement<V>::type>) {
        return PeloraYYEncodingType::Model;
    } else {
        static_assert(sizeof(V) == 0, "property type is not supported by the mapping");
    }
}

template <class To>
To narrow(const PeloraYYNumber& n);  // defined in PeloraYYModel.cpp for every width
template <>
bool narrow<bool>(const PeloraYYNumber& n);

template <class V>
PeloraYYNumber widen(V v) {
    PeloraYYNumber n;
    if constexpr (std::is_same_v<V, bool>) {
        n.kind = PeloraYYNumber::Int;
        n.i = v ? 1 : 0;
    } else if constexpr (std::is_floating_point_v<V>) {
        n.kind = PeloraYYNumber::Real;
        n.d = static_cast<double>(v);
    } else if constexpr (std::is_signed_v<V>) {
        n.kind = PeloraYYNumber::Int;
        n.i = static_cast<int64_t>(v);
    } else {
        n.kind = PeloraYYNumber::UInt;
        n.u = static_cast<uint64_t>(v);
    }
    return n;
}

// Field policies: a public data member, or a getter/setter pair.
template <class T, auto Member>
struct MemberField {
    using Value = std::remove_cvref_t<decltype(std::declval<T&>().*Member)>;
    static const Value& get(const void* o) { return static_cast<const T*>(o)->*Member; }
    static void set(void* o, Value&& v) { static_cast<T*>(o)->*Member = std::move(v); }
};
template <class T, auto Getter, auto Setter>
struct AccessorField {
    using Value = std::remove_cvref_t<decltype((std::declval<const T&>().*Getter)())>;
    static const Value& get(const void* o) { return (static_cast<const T*>(o)->*Getter)(); }
    static void set(void* o, Value&& v) { (static_cast<T*>(o)->*Setter)(std::move(v)); }
};

template <class Field>
_PeloraYYPropertyAccess accessFor() {
    using V = typename Field::Value;
    constexpr PeloraYYEncodingType kind = encodingOf<V>();
    _PeloraYYPropertyAccess a;
    if constexpr (kind <= PeloraYYEncodingType::Double) {
        a.setNumber = [](void* o, const PeloraYYNumber& n) { Field::set(o, narrow<V>(n)); };
        a.getNumber = [](const void* o) { return widen<V>(Field::get(o)); };
    } else if constexpr (kind == PeloraYYEncodingType::String) {
        a.setText = [](void* o, std::optional<std::string>&& v) { Field::set(o, std::move(v)); };
        a.getText = [](const void* o) -> const std::optional<std::string>& {
            return Field::get(o);
        };
    } else if constexpr (kind == PeloraYYEncodingType::Date) {
        a.setDate = [](void* o, std::optional<PeloraYYDate> v) { Field::set(o, std::move(v)); };
        a.getDate = [](const void* o) { return Field::get(o); };
    } else if constexpr (kind == PeloraYYEncodingType::StringList) {
        a.setTextList = [](void* o, std::optional<std::vector<std::string>>&& v) {
            Field::set(o, std::move(v));
        };
        a.getTextList = [](const void* o) -> const std::optional<std::vector<std::string>>& {
            return Field::get(o);
        };
    } else if constexpr (kind == PeloraYYEncodingType::Dictionary) {
        a.setDictionary = [](void* o, std::optional<nlohmann::json>&& v) {
            Field::set(o, std::move(v));
        };
        a.getDictionary = [](const void* o) -> const std::optional<nlohmann::json>& {
            return Field::get(o);
        };
    } else if constexpr (kind == PeloraYYEncodingType::Model) {
        using E = typename SharedElement<V>::type;
        a.elementMeta = &_PeloraYYModelMeta::metaWithClass<E>;
        a.setModel = [](void* o, std::shared_ptr<void>&& v) {
            Field::set(o, std::static_pointer_cast<E>(std::move(v)));
        };
        a.getModel = [](const void* o) -> const void* { return Field::get(o).get(); };
    } else if constexpr (kind == PeloraYYEncodingType::ModelList) {
        using E = typename ListOfShared<V>::element;
        a.elementMeta = &_PeloraYYModelMeta::metaWithClass<E>;
        a.setModelList = [](void* o, std::optional<std::vector<std::shared_ptr<void>>>&& v) {
            if (!v) return Field::set(o, std::nullopt);
            std::vector<std::shared_ptr<E>> list;
            list.reserve(v->size());
            for (auto& e : *v) list.push_back(std::static_pointer_cast<E>(std::move(e)));
            Field::set(o, std::move(list));
        };
        a.getModelList = [](const void* o, std::vector<const void*>& out) {
            const V& v = Field::get(o);
            if (!v) return false;
            for (const auto& e : *v) out.push_back(e.get());
            return true;
        };
    } else if constexpr (kind == PeloraYYEncodingType::ModelDictionary) {
        using E = typename MapOfShared<V>::element;
        a.elementMeta = &_PeloraYYModelMeta::metaWithClass<E>;
        a.setModelDictionary = [](void* o,
                                  std::optional<std::map<std::string, std::shared_ptr<void>>>&& v) {
            if (!v) return Field::set(o, std::nullopt);
            std::map<std::string, std::shared_ptr<E>> map;
            for (auto& [k, e] : *v) map.emplace(k, std::static_pointer_cast<E>(std::move(e)));
            Field::set(o, std::move(map));
        };
        a.getModelDictionary = [](const void* o,
                                  std::vector<std::pair<const std::string*, const void*>>& out) {
            const V& v = Field::get(o);
            if (!v) return false;
            for (const auto& [k, e] : *v) out.emplace_back(&k, e.get());
            return true;
        };
    }
    return a;
}

template <class Field>
_PeloraYYPropertyDecl declare(std::string name) {
    using V = typename Field::Value;
    _PeloraYYPropertyDecl d;
    d.name = std::move(name);
    d.type = encodingOf<V>();
    if constexpr (ListOfShared<V>::value) {
        d.elementClass = typeid(typename ListOfShared<V>::element);
    } else if constexpr (MapOfShared<V>::value) {
        d.elementClass = typeid(typename MapOfShared<V>::element);
    } else if constexpr (std::is_same_v<V, std::optional<std::vector<std::string>>>) {
        d.elementClass = typeid(std::string);
    } else if constexpr (!std::is_void_v<typename SharedElement<V>::type>) {
        d.elementClass = typeid(typename SharedElement<V>::type);
    }
    d.access = accessFor<Field>();
    return d;
}

template <class M>
std::map<std::string, PeloraYYKeyMapping> normalizeMapper(const M& m) {
    std::map<std::string, PeloraYYKeyMapping> out;
    for (const auto& [k, v] : m) out.emplace(k, PeloraYYKeyMapping(v));
    return out;
}

}  // namespace plyy_detail

// Schema entry for a public data member: PLYY_PROPERTY(PeloraApiAd, adId).
#define PLYY_PROPERTY(T, member) \
    plyy_detail::declare<plyy_detail::MemberField<T, &T::member>>(#member)
// Schema entries for several public data members: PLYY_PROPERTIES(T, adId, title, images)
// is PLYY_PROPERTY(T, adId), PLYY_PROPERTY(T, title), PLYY_PROPERTY(T, images).
#define PLYY_PROPERTIES(T, ...) __VA_OPT__(PLYY_DETAIL_EXPAND(PLYY_DETAIL_EACH(T, __VA_ARGS__)))
#define PLYY_DETAIL_PARENS ()
#define PLYY_DETAIL_EXPAND(...) \
    PLYY_DETAIL_EXPAND3(PLYY_DETAIL_EXPAND3(PLYY_DETAIL_EXPAND3(PLYY_DETAIL_EXPAND3(__VA_ARGS__))))
#define PLYY_DETAIL_EXPAND3(...) \
    PLYY_DETAIL_EXPAND2(PLYY_DETAIL_EXPAND2(PLYY_DETAIL_EXPAND2(PLYY_DETAIL_EXPAND2(__VA_ARGS__))))
#define PLYY_DETAIL_EXPAND2(...) \
    PLYY_DETAIL_EXPAND1(PLYY_DETAIL_EXPAND1(PLYY_DETAIL_EXPAND1(PLYY_DETAIL_EXPAND1(__VA_ARGS__))))
#define PLYY_DETAIL_EXPAND1(...) __VA_ARGS__
#define PLYY_DETAIL_EACH(T, member, ...) \
    PLYY_PROPERTY(T, member) __VA_OPT__(, PLYY_DETAIL_EACH_AGAIN PLYY_DETAIL_PARENS(T, __VA_ARGS__))
#define PLYY_DETAIL_EACH_AGAIN() PLYY_DETAIL_EACH
// Schema entry for a property kept behind accessors: PLYY_ACCESSOR(T, name, getter, setter).
#define PLYY_ACCESSOR(T, name, getter, setter) \
    plyy_detail::declare<plyy_detail::AccessorField<T, &T::getter, &T::setter>>(#name)

// Builds T's schema from its property list and whatever hooks T declares. Later entries of
// the same name replace earlier ones, so a record can list inherited properties first.
template <class T>
_PeloraYYModelSchema plyy_makeSchema(std::vector<_PeloraYYPropertyDecl> properties,
                                     std::string className = {}) {
    _PeloraYYModelSchema s;
    s.cls = typeid(T);
    s.className = className.empty() ? typeid(T).name() : std::move(className);
    s.properties = std::move(properties);
    if constexpr (requires {
                      { T::init() } -> std::convertible_to<std::shared_ptr<T>>;
                  }) {
        s.newInstance = []() -> std::shared_ptr<void> { return T::init(); };
    } else {
        s.newInstance = []() -> std::shared_ptr<void> { return std::make_shared<T>(); };
    }
    if constexpr (requires { T::modelCustomPropertyMapper(); }) {
        s.customPropertyMapper = plyy_detail::normalizeMapper(T::modelCustomPropertyMapper());
    }
    if constexpr (requires { T::modelContainerPropertyGenericClass(); }) {
        s.containerGenericClass = T::modelContainerPropertyGenericClass();
    }
    if constexpr (requires { T::modelPropertyBlacklist(); }) {
        s.blacklist = T::modelPropertyBlacklist();
    }
    if constexpr (requires { T::modelPropertyWhitelist(); }) {
        s.whitelist = T::modelPropertyWhitelist();
    }
    if constexpr (requires(T & t, const nlohmann::json& j) {
                      {
                          t.modelCustomWillTransformFromDictionary(j)
                          } -> std::convertible_to<nlohmann::json>;
                  }) {
        s.willTransform = [](void* m, const nlohmann::json& in, nlohmann::json& out) {
            out = static_cast<T*>(m)->modelCustomWillTransformFromDictionary(in);
            return out.is_object();
        };
    }
    if constexpr (requires(T & t, const nlohmann::json& j) {
                      { t.modelCustomTransformFromDictionary(j) } -> std::convertible_to<bool>;
                  }) {
        s.transformFromDictionary = [](void* m, const nlohmann::json& dic) {
            return static_cast<bool>(static_cast<T*>(m)->modelCustomTransformFromDictionary(dic));
        };
    }
    if constexpr (requires(const T& t, nlohmann::json& j) {
                      { t.modelCustomTransformToDictionary(j) } -> std::convertible_to<bool>;
                  }) {
        s.transformToDictionary = [](const void* m, nlohmann::json& dic) {
            return static_cast<bool>(
                static_cast<const T*>(m)->modelCustomTransformToDictionary(dic));
        };
    }
    return s;
}

// ---- untyped entry points (PeloraYYModel.cpp) -------------------------------------------------
std::shared_ptr<void> _plyy_modelWithBytes(const _PeloraYYModelMeta& meta, std::string_view bytes,
                                           std::string* whyNot);
std::shared_ptr<void> _plyy_modelWithDictionary(const _PeloraYYModelMeta& meta,
                                                const nlohmann::json& dict, std::string* whyNot);
bool _plyy_modelSetWithBytes(const _PeloraYYModelMeta& meta, void* model, std::string_view bytes,
                             std::string* whyNot);
bool _plyy_modelSetWithDictionary(const _PeloraYYModelMeta& meta, void* model,
                                  const nlohmann::json& dict, std::string* whyNot);
std::vector<std::shared_ptr<void>> _plyy_modelArrayWithBytes(const _PeloraYYModelMeta& meta,
                                                             std::string_view bytes);
std::vector<std::shared_ptr<void>> _plyy_modelArrayWithJSON(const _PeloraYYModelMeta& meta,
                                                            const nlohmann::json& array);
std::map<std::string, std::shared_ptr<void>> _plyy_modelDictionaryWithBytes(
    const _PeloraYYModelMeta& meta, std::string_view bytes);
std::map<std::string, std::shared_ptr<void>> _plyy_modelDictionaryWithJSON(
    const _PeloraYYModelMeta& meta, const nlohmann::json& dict);
nlohmann::json _plyy_modelToJSONObject(const _PeloraYYModelMeta& meta, const void* model);
// The bytes of dumping _plyy_modelToJSONObject, written without building the dictionary
// wherever the record allows; nothing when the dictionary would be null.
std::optional<std::string> _plyy_modelToJSONBytes(const _PeloraYYModelMeta& meta,
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
bool _plyy_modelVisitValues(const _PeloraYYModelMeta& meta, const void* model,
                            PeloraYYValueVisitor visit, void* context);
// Serialises without options; never throws (text that is not UTF-8 is replaced).
std::string _plyy_dumpJSON(const nlohmann::json& value);

// Date text in the fixed formats the mapping accepts (chosen by length), UTC unless the text
// carries a zone; nothing when the text fits none.
std::optional<PeloraYYDate> plyy_dateFromString(std::string_view text);
// "yyyy-MM-dd'T'HH:mm:ssZ" in UTC, as dates are written back.
std::string plyy_stringFromDate(PeloraYYDate date);
// The number a text stands for when it lands in a numeric property (word table, decimal with
// ".", else leading integer); kind None for the null words, NaN and infinities.
PeloraYYNumber plyy_numberFromText(std::string_view text);
// Whether the bytes are one well-formed JSON text (any value, not only an object).
bool plyy_isValidJSON(std::string_view bytes, std::string* whyNot = nullptr);

// ---- typed API ------------------------------------------------------------------------------

// JSON intake: bytes are parsed (only an object yields a record); a dictionary is mapped as
// it is; a JSON string value is parsed as JSON text; anything else gives nothing.
template <class T>
std::shared_ptr<T> plyy_modelWithJSON(std::string_view bytes, std::string* whyNot = nullptr) {
    return std::static_pointer_cast<T>(
        _plyy_modelWithBytes(_PeloraYYModelMeta::metaWithClass<T>(), bytes, whyNot));
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
        _plyy_modelWithDictionary(_PeloraYYModelMeta::metaWithClass<T>(), dict, whyNot));
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
    return _plyy_modelSetWithBytes(_PeloraYYModelMeta::metaWithClass<T>(), &model, bytes, whyNot);
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
    return _plyy_modelSetWithDictionary(_PeloraYYModelMeta::metaWithClass<T>(), &model, dict,
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
        _plyy_modelArrayWithBytes(_PeloraYYModelMeta::metaWithClass<T>(), bytes));
}
template <class T>
std::vector<std::shared_ptr<T>> plyy_modelArrayWithClass(const std::string& bytes) {
    return plyy_modelArrayWithClass<T>(std::string_view(bytes));
}
template <class T>
std::vector<std::shared_ptr<T>> plyy_modelArrayWithClass(const nlohmann::json& array) {
    if (array.is_string()) return plyy_modelArrayWithClass<T>(array.get_ref<const std::string&>());
    return plyy_detail::castAll<T>(
        _plyy_modelArrayWithJSON(_PeloraYYModelMeta::metaWithClass<T>(), array));
}

// A dictionary of dictionaries -> records under the same keys.
template <class T>
std::map<std::string, std::shared_ptr<T>> plyy_modelDictionaryWithClass(std::string_view bytes) {
    return plyy_detail::castAll<T>(
        _plyy_modelDictionaryWithBytes(_PeloraYYModelMeta::metaWithClass<T>(), bytes));
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
        _plyy_modelDictionaryWithJSON(_PeloraYYModelMeta::metaWithClass<T>(), dict));
}

// Writing: a record becomes a dictionary (null json when a hook vetoes it).
template <class T>
nlohmann::json plyy_modelToJSONObject(const T& model) {
    return _plyy_modelToJSONObject(_PeloraYYModelMeta::metaWithClass<T>(), &model);
}
// See _plyy_modelVisitValues; `visit(std::string_view key, const PeloraYYValueRef& value)`.
template <class T, class F>
bool plyy_modelVisitValues(const T& model, F&& visit) {
    return _plyy_modelVisitValues(
        _PeloraYYModelMeta::metaWithClass<T>(), &model,
        [](void* context, std::string_view key, const PeloraYYValueRef& value) {
            (*static_cast<std::remove_reference_t<F>*>(context))(key, value);
        },
        &visit);
}
template <class T>
std::optional<std::string> plyy_modelToJSONData(const T& model) {
    return _plyy_modelToJSONBytes(_PeloraYYModelMeta::metaWithClass<T>(), &model);
}
template <class T>
std::optional<std::string> plyy_modelToJSONString(const T& model) {
    return plyy_modelToJSONData(model);
}
