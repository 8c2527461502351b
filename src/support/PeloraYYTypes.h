#pragma once

// The mapping's vocabulary: numbers, dates, encoding kinds, and the class description a
// record's schema becomes (properties, their keys, the key table).

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
    NumberObject,  // an integer or a floating-point number kept as it came, or nothing
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
struct PeloraYYPropertyAccess {
    // Numbers of a fixed width, and number objects (for which kind None means nothing).
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
struct PeloraYYPropertyDecl {
    std::string name;
    PeloraYYEncodingType type{};
    std::type_index elementClass = typeid(void);  // record or std::string for containers
    PeloraYYPropertyAccess access;
};

// The record type modelCustomClassForDictionary picks for one dictionary: its description,
// and how a pointer to it becomes a pointer to the requested type's part of the same record.
// Without a description the requested type is built.
struct PeloraYYClassChoice {
    const _PeloraYYModelMeta& (*meta)() = nullptr;
    void* (*toRequested)(void*) = nullptr;
};

struct PeloraYYModelSchema {
    std::type_index cls = typeid(void);
    std::string className;
    std::vector<PeloraYYPropertyDecl> properties;
    std::shared_ptr<void> (*newInstance)() = nullptr;
    std::optional<std::map<std::string, PeloraYYKeyMapping>> customPropertyMapper;
    std::optional<std::map<std::string, std::type_index>> containerGenericClass;
    std::optional<std::set<std::string>> blacklist;
    std::optional<std::set<std::string>> whitelist;
    // Absent unless the record has the hook. willTransform: false when the hook's answer is
    // not a dictionary.
    PeloraYYClassChoice (*customClassForDictionary)(const nlohmann::json& dic) = nullptr;
    bool (*willTransform)(void* model, const nlohmann::json& in, nlohmann::json& out) = nullptr;
    bool (*transformFromDictionary)(void* model, const nlohmann::json& dic) = nullptr;
    bool (*transformToDictionary)(const void* model, nlohmann::json& dic) = nullptr;
};

// How one property is found in a dictionary.
struct PeloraYYModelPropertyMeta {
    std::string name;
    PeloraYYEncodingType type{};
    std::type_index elementClass = typeid(void);
    std::string mappedToKey;                                 // plain key (or the first key)
    std::vector<std::string> mappedToKeyPath;                // more than one piece: a key path
    std::vector<std::vector<std::string>> mappedToKeyArray;  // candidate keys, each a path
    PeloraYYPropertyAccess access;
    const PeloraYYModelPropertyMeta* next = nullptr;  // next property mapped to the same key
    bool isKeyPath() const { return mappedToKeyPath.size() > 1; }
    bool isMultiKey() const { return !mappedToKeyArray.empty(); }
};

// A small open-addressing table from key text to the first property mapped to it, sized once
// for a record's keys. The hash reads only the length and the two end bytes: record keys are
// few and short, and a full hash or a tree walk cost more than the rare extra comparison.
class PeloraYYKeyTable {
  public:
    void reserve(std::size_t keys);
    // The entry for the key, added when missing (reserve first).
    const PeloraYYModelPropertyMeta*& slot(const std::string& key);
    const PeloraYYModelPropertyMeta* find(std::string_view key) const;

  private:
    struct Entry {
        std::string key;
        const PeloraYYModelPropertyMeta* first = nullptr;
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
    std::vector<PeloraYYModelPropertyMeta> allPropertyMetas;
    // Plain key -> first property mapped to it (the rest follow through `next`). Looked up
    // once per key of every mapped dictionary, by the parser's key text.
    PeloraYYKeyTable mapper;
    std::vector<const PeloraYYModelPropertyMeta*> keyPathPropertyMetas;
    std::vector<const PeloraYYModelPropertyMeta*> multiKeysPropertyMetas;
    std::size_t keyMappedCount = 0;
    // Writing: the properties in the order their keys come out (byte order of the key, ties
    // in declaration order), and whether the record can be written as bytes directly (no key
    // paths and no write hook; otherwise it goes through a dictionary).
    struct WriteSlot {
        const PeloraYYModelPropertyMeta* property = nullptr;
        std::string key;                 // the key as written, quoted, with its colon
        bool sameKeyAsPrevious = false;  // then the earlier property holds the key if it can
    };
    std::vector<WriteSlot> writeOrder;
    bool writesDirectly = false;
    PeloraYYModelSchema schema;  // hooks and factory

    // A record's schema: its static member plyy_schema(), or, for the records a host sees in
    // the public headers (which carry nothing of the mapping), a free function
    // plyy_schema(const T*) found by argument-dependent lookup.
    template <class T>
    static PeloraYYModelSchema plyy_schemaOf() {
        if constexpr (requires { T::plyy_schema(); })
            return T::plyy_schema();
        else
            return plyy_schema(static_cast<const T*>(nullptr));
    }

    template <class T>
    static const _PeloraYYModelMeta& metaWithClass() {
        // The shared cache (one lock) is the source; the local static saves the lock on the
        // hot path of large answers.
        static const _PeloraYYModelMeta* meta = &cachedMeta(typeid(T), &plyy_schemaOf<T>);
        return *meta;
    }
    // Looks the type up in the process-wide cache, building its description on first use.
    static const _PeloraYYModelMeta& cachedMeta(std::type_index cls,
                                                PeloraYYModelSchema (*schema)());
    static _PeloraYYModelMeta build(PeloraYYModelSchema schema);
};
