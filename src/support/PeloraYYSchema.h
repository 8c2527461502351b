#pragma once

// How a record declares its schema: the property macros, the access of each member kind
// and the compile-time discovery of a record's optional hooks.

#include <chrono>
#include <concepts>
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

#include "support/PeloraYYTypes.h"

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
    } else if constexpr (std::is_same_v<V, std::optional<PeloraYYNumber>>) {
        return PeloraYYEncodingType::NumberObject;
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
PeloraYYPropertyAccess accessFor() {
    using V = typename Field::Value;
    constexpr PeloraYYEncodingType kind = encodingOf<V>();
    PeloraYYPropertyAccess a;
    if constexpr (kind <= PeloraYYEncodingType::Double) {
        a.setNumber = [](void* o, const PeloraYYNumber& n) { Field::set(o, narrow<V>(n)); };
        a.getNumber = [](const void* o) { return widen<V>(Field::get(o)); };
    } else if constexpr (kind == PeloraYYEncodingType::NumberObject) {
        // Kind None crosses as "nothing" both ways, so a number object is never set to a
        // number that is not one.
        a.setNumber = [](void* o, const PeloraYYNumber& n) {
            Field::set(o, n.kind == PeloraYYNumber::None ? V() : V(n));
        };
        a.getNumber = [](const void* o) {
            const V& v = Field::get(o);
            return v ? *v : PeloraYYNumber{};
        };
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
PeloraYYPropertyDecl declare(std::string name) {
    using V = typename Field::Value;
    PeloraYYPropertyDecl d;
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

// The record type to build in place of T for one dictionary: T or a type derived from it,
// which has a schema of its own. What a record's modelCustomClassForDictionary answers; a
// default-made one (nothing) builds T.
template <class T>
class PeloraYYModelClass {
  public:
    PeloraYYModelClass() = default;

    template <class D>
    requires std::derived_from<D, T>
    static PeloraYYModelClass of() {
        PeloraYYModelClass c;
        c.choice_.meta = &_PeloraYYModelMeta::metaWithClass<D>;
        c.choice_.toRequested = [](void* d) -> void* {
            return static_cast<T*>(static_cast<D*>(d));
        };
        return c;
    }

    explicit operator bool() const { return choice_.meta != nullptr; }
    const PeloraYYClassChoice& choice() const { return choice_; }

  private:
    PeloraYYClassChoice choice_;
};

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
PeloraYYModelSchema plyy_makeSchema(std::vector<PeloraYYPropertyDecl> properties,
                                    std::string className = {}) {
    PeloraYYModelSchema s;
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
    // Only a hook answering for T itself counts: one inherited from a base answers with the
    // base's types, which need not derive from T.
    if constexpr (requires(const nlohmann::json& j) {
                      {
                          T::modelCustomClassForDictionary(j)
                          } -> std::convertible_to<PeloraYYModelClass<T>>;
                  }) {
        s.customClassForDictionary = [](const nlohmann::json& dic) {
            return PeloraYYModelClass<T>(T::modelCustomClassForDictionary(dic)).choice();
        };
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
