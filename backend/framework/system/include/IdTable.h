// Objects addressed by a number: the first is 0, the next 1, and so on.
#pragma once

#include <vector>

#include "Exception.h"
#include "Pointer.h"

/// Filled while one thread runs, read by any afterwards.
template <class T>
class ZTCIdTable {
  public:
    unsigned int numberOfElements() const { return static_cast<unsigned int>(mElements.size()); }

    /// Returns the object's id. Throws ZTCNoMemoryEx.
    unsigned int append(const ZTCPointer<T>& acrElement) {
        orNoMemory([&] { mElements.push_back(acrElement); });
        return numberOfElements() - 1;
    }

    /// Throws ZTCInvalidEx for an id that is not there.
    ZTCPointer<T>& operator[](unsigned int aId) {
        if (aId >= mElements.size()) {
            throwInvalidValue();
        }
        return mElements[aId];
    }

    const ZTCPointer<T>& operator[](unsigned int aId) const { return const_cast<ZTCIdTable&>(*this)[aId]; }

    void clear() { mElements.clear(); }

    auto begin() { return mElements.begin(); }
    auto end() { return mElements.end(); }

  private:
    std::vector<ZTCPointer<T>> mElements;
};
