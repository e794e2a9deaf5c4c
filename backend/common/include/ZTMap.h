// An ordered map. A missing or doubled key is an exception of the hierarchy. No locking of its own.
#pragma once

#include <map>

#include "Exception.h"
#include "Log.h"

inline constexpr char ZTMapFile[] = "backend/common/include/ZTMap";

/// Ordered by Key's operator<; ZTCString keys by their bytes.
template <class Key, class Value>
class ZTMap {
  public:
    /// Throws ZTCExistsEx, the map unchanged, when the key is present; ZTCNoMemoryEx.
    void insert(const Key& acrKey, const Value& acrValue) {
        const bool lInserted = orNoMemory([&] { return mMap.emplace(acrKey, acrValue).second; });
        if (!lInserted) {
            PrintLogMessageWithTimeStamp(ZTLL_Error.mBit, ZTLL_Error.mpTag, 139, __func__, ZTMapFile,
                                         "Element already existed in the map");
            throw ZTCExistsEx("Element already exists in map.. can't insert");
        }
    }

    bool contains(const Key& acrKey) const { return mMap.find(acrKey) != mMap.end(); }

    /// The key's value. Throws ZTCNotFoundEx when the key is absent.
    const Value& get(const Key& acrKey) const { return valueOf(mMap, acrKey, 168, __func__); }
    Value& get(const Key& acrKey) { return valueOf(mMap, acrKey, 181, __func__); }

    /// The key's value, or null.
    const Value* find(const Key& acrKey) const {
        const auto lFound = mMap.find(acrKey);
        return lFound != mMap.end() ? &lFound->second : nullptr;
    }

    /// The pairs of key and value, in the order of the keys.
    auto begin() const { return mMap.begin(); }
    auto end() const { return mMap.end(); }
    unsigned int size() const { return static_cast<unsigned int>(mMap.size()); }
    void clear() { mMap.clear(); }
    void swap(ZTMap& arOther) noexcept { mMap.swap(arOther.mMap); }

  private:
    template <class Map>
    static auto& valueOf(Map& arMap, const Key& acrKey, unsigned int aLine, const char* apFunction) {
        const auto lFound = arMap.find(acrKey);
        if (lFound == arMap.end()) {
            PrintLogMessageWithTimeStamp(ZTLL_Information.mBit, ZTLL_Information.mpTag, aLine, apFunction,
                                         ZTMapFile, "Element does not exist in the map");
            throw ZTCNotFoundEx("No element for the key exists in map");
        }
        return lFound->second;
    }

    std::map<Key, Value> mMap;
};
