// Reads values from bytes that came from outside: every overrun is caught in one place.
#pragma once

#include <cstdint>
#include <span>

#include "SensorError.h"
#include "Wwn.h"

/// A cursor over bytes that it does not own. Integers are big-endian. Reading beyond the end throws
/// ZTCMalformedAnswerError. One thread.
class ZTCWireReader {
  public:
    explicit ZTCWireReader(std::span<const std::uint8_t> aBytes) : mBytes(aBytes) {}

    bool isAtEnd() const { return mAt == mBytes.size(); }
    std::size_t getLeft() const { return mBytes.size() - mAt; }

    std::span<const std::uint8_t> take(std::size_t aCount) {
        if (aCount > getLeft()) {
            fail("ends too early");
        }
        mAt += aCount;
        return mBytes.subspan(mAt - aCount, aCount);
    }

    template <class Value>
    Value integer() {
        Value lValue = 0;
        for (const std::uint8_t lByte : take(sizeof(Value))) {
            lValue = static_cast<Value>(std::uint64_t{lValue} << 8 | lByte);
        }
        return lValue;
    }
    std::uint8_t u8() { return integer<std::uint8_t>(); }
    std::uint16_t u16() { return integer<std::uint16_t>(); }
    std::uint32_t u32() { return integer<std::uint32_t>(); }

    ZTSWwn name() {
        ZTSWwn lName;
        const auto lBytes = take(ZTSWwn::Size);
        std::copy(lBytes.begin(), lBytes.end(), lName.mBytes.begin());
        return lName;
    }

    [[noreturn]] void fail(const std::string& acrWhat) const {
        throw ZTCMalformedAnswerError("malformed answer: it " + acrWhat + " at byte " + std::to_string(mAt) +
                                      " of its body");
    }

  private:
    std::span<const std::uint8_t> mBytes;
    std::size_t mAt = 0;
};
