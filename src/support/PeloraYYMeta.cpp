// The mapping's class descriptions: properties, their keys and the key table.

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

// ---- mapping descriptions --------------------------------------------------------------------

namespace {

std::vector<std::string> splitKeyPath(const std::string& text) {
    std::vector<std::string> pieces;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t dot = text.find('.', start);
        if (dot == std::string::npos) dot = text.size();
        if (dot > start) pieces.push_back(text.substr(start, dot - start));
        start = dot + 1;
    }
    return pieces;
}

}  // namespace

void PeloraYYKeyTable::reserve(std::size_t keys) {
    std::size_t size = 8;
    while (size < keys * 2) size *= 2;
    entries_.assign(size, Entry{});
    mask_ = size - 1;
}

const PeloraYYModelPropertyMeta*& PeloraYYKeyTable::slot(const std::string& key) {
    for (std::size_t i = hashOf(key) & mask_;; i = (i + 1) & mask_) {
        Entry& e = entries_[i];
        if (!e.used) {
            e.used = true;
            e.key = key;
            return e.first;
        }
        if (e.key == key) return e.first;
    }
}

const PeloraYYModelPropertyMeta* PeloraYYKeyTable::find(std::string_view key) const {
    if (entries_.empty()) return nullptr;
    for (std::size_t i = hashOf(key) & mask_;; i = (i + 1) & mask_) {
        const Entry& e = entries_[i];
        if (!e.used) return nullptr;
        if (e.key.size() == key.size() && e.key == key) return e.first;
    }
}

namespace {

// The declared properties that count: later declarations of a name replace earlier ones (a
// subclass over its base), then the black and white lists apply.
std::vector<PeloraYYPropertyDecl> effectiveProperties(const PeloraYYModelSchema& schema) {
    std::vector<PeloraYYPropertyDecl> properties;
    for (const auto& decl : schema.properties) {
        auto same = std::find_if(properties.begin(), properties.end(),
                                 [&](const auto& p) { return p.name == decl.name; });
        if (same != properties.end()) {
            *same = decl;
        } else {
            properties.push_back(decl);
        }
    }
    if (schema.blacklist) {
        std::erase_if(properties, [&](const auto& p) { return schema.blacklist->count(p.name); });
    }
    if (schema.whitelist) {
        std::erase_if(properties, [&](const auto& p) { return !schema.whitelist->count(p.name); });
    }
    return properties;
}

// The key, key path or list of keys the custom mapper gives a property.
void applyKeyMapping(PeloraYYModelPropertyMeta& p, const PeloraYYKeyMapping& mapping) {
    if (const auto* key = std::get_if<std::string>(&mapping)) {
        auto path = splitKeyPath(*key);
        if (path.size() == 1) {
            p.mappedToKey = path.front();
        } else if (path.size() > 1) {
            p.mappedToKey = *key;
            p.mappedToKeyPath = std::move(path);
        }
        return;
    }
    bool first = true;
    for (const auto& one : std::get<std::vector<std::string>>(mapping)) {
        auto path = splitKeyPath(one);
        if (path.empty()) continue;
        if (first) {
            p.mappedToKey = path.size() == 1 ? path.front() : one;
            if (path.size() > 1) p.mappedToKeyPath = path;
            first = false;
        }
        p.mappedToKeyArray.push_back(std::move(path));
    }
}

// The order and pre-quoted keys of the direct byte writer: by key, as a dumped dictionary.
void buildWriteOrder(_PeloraYYModelMeta& meta) {
    meta.writeOrder.reserve(meta.allPropertyMetas.size());
    for (const auto& p : meta.allPropertyMetas)
        meta.writeOrder.push_back({&p, plyyImpl_dumpJSON(p.mappedToKey) + ':', false});
    std::stable_sort(meta.writeOrder.begin(), meta.writeOrder.end(),
                     [](const auto& a, const auto& b) {
                         return a.property->mappedToKey < b.property->mappedToKey;
                     });
    for (std::size_t i = 1; i < meta.writeOrder.size(); ++i) {
        meta.writeOrder[i].sameKeyAsPrevious = meta.writeOrder[i].property->mappedToKey ==
                                               meta.writeOrder[i - 1].property->mappedToKey;
    }
}

}  // namespace

_PeloraYYModelMeta _PeloraYYModelMeta::build(PeloraYYModelSchema schema) {
    _PeloraYYModelMeta meta;
    meta.cls = schema.cls;
    meta.className = schema.className;

    const auto properties = effectiveProperties(schema);
    meta.allPropertyMetas.reserve(properties.size());
    for (const auto& decl : properties) {
        PeloraYYModelPropertyMeta p;
        p.name = decl.name;
        p.type = decl.type;
        p.elementClass = decl.elementClass;
        p.access = decl.access;
        p.mappedToKey = decl.name;
        if (schema.customPropertyMapper) {
            auto it = schema.customPropertyMapper->find(decl.name);
            if (it != schema.customPropertyMapper->end()) applyKeyMapping(p, it->second);
        }
        meta.allPropertyMetas.push_back(std::move(p));
    }
    // Pointers into allPropertyMetas are taken only now that it no longer grows; the vector
    // is moved with the description, which keeps its buffer.
    meta.mapper.reserve(meta.allPropertyMetas.size());
    bool anyKeyPath = false;
    for (auto& p : meta.allPropertyMetas) {
        anyKeyPath = anyKeyPath || p.isKeyPath();
        if (p.isMultiKey()) {
            meta.multiKeysPropertyMetas.push_back(&p);
        } else if (p.isKeyPath()) {
            meta.keyPathPropertyMetas.push_back(&p);
        } else {
            auto& slot = meta.mapper.slot(p.mappedToKey);
            p.next = slot;
            slot = &p;
            ++meta.keyMappedCount;
        }
    }
    buildWriteOrder(meta);
    meta.writesDirectly = !anyKeyPath && schema.transformToDictionary == nullptr;
    meta.schema = std::move(schema);
    meta.schema.properties.clear();
    return meta;
}

const _PeloraYYModelMeta& _PeloraYYModelMeta::cachedMeta(std::type_index cls,
                                                         PeloraYYModelSchema (*schema)()) {
    static std::mutex lock;
    static std::unordered_map<std::type_index, std::unique_ptr<_PeloraYYModelMeta>> cache;
    std::lock_guard<std::mutex> guard(lock);
    auto& slot = cache[cls];
    if (!slot) slot = std::make_unique<_PeloraYYModelMeta>(build(schema()));
    return *slot;
}
