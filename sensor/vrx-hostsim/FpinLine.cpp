#include "FpinLine.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <span>

namespace {

struct EventRow {
    std::uint32_t mNumber;
    const char* mpName;
    const char* mpCount;  // the statistic that the kernel has for it
};
constexpr EventRow sLinkEvents[] = {{0, "unknown", "fpin_li_failure_unknown"},
                                    {1, "link_failure", "fpin_li_link_failure_count"},
                                    {2, "loss_of_synchronization", "fpin_li_loss_of_sync_count"},
                                    {3, "loss_of_signal", "fpin_li_loss_of_signals_count"},
                                    {4, "primitive_sequence_protocol_error", "fpin_li_prim_seq_err_count"},
                                    {5, "invalid_transmission_word", "fpin_li_invalid_tx_word_count"},
                                    {6, "invalid_crc", "fpin_li_invalid_crc_count"},
                                    {15, "device_specific", "fpin_li_device_specific"}};
constexpr EventRow sReasons[] = {{0, "unknown", "fpin_dn_unknown"},
                                 {1, "timeout", "fpin_dn_timeout"},
                                 {2, "unable_to_route", "fpin_dn_unable_to_route"},
                                 {15, "device_specific", "fpin_dn_device_specific"}};
constexpr EventRow sCongestionEvents[] = {{0, "clear", "fpin_cn_clear"},
                                          {1, "lost_credit", "fpin_cn_lost_credit"},
                                          {2, "credit_stall", "fpin_cn_credit_stall"},
                                          {3, "oversubscription", "fpin_cn_oversubscription"},
                                          {15, "device_specific", "fpin_cn_device_specific"}};

enum class Field : unsigned char {
    Detecting,
    Attached,
    Event,
    Modifier,
    Threshold,
    Count,
    Period,
    Severity,
    Ports
};
struct FieldRow {
    Field mField;
    unsigned int mSize;
};
constexpr FieldRow sLinkFields[] = {{Field::Detecting, 8}, {Field::Attached, 8},  {Field::Event, 2},
                                    {Field::Modifier, 2},  {Field::Threshold, 4}, {Field::Count, 4},
                                    {Field::Ports, 8}};
constexpr FieldRow sDeliveryFields[] = {{Field::Detecting, 8}, {Field::Attached, 8}, {Field::Event, 4}};
constexpr FieldRow sPeerFields[] = {{Field::Detecting, 8}, {Field::Attached, 8}, {Field::Event, 2},
                                    {Field::Modifier, 2},  {Field::Period, 4},   {Field::Ports, 8}};
constexpr FieldRow sCongestionFields[] = {
    {Field::Event, 2}, {Field::Modifier, 2}, {Field::Period, 4}, {Field::Severity, 4}};

struct DescriptorRow {
    const char* mpName;
    std::uint32_t mTag;
    std::span<const FieldRow> mFields;
    std::span<const EventRow> mEvents;
    const char* mpCount;
};
constexpr DescriptorRow sDescriptors[] = {
    {"link-integrity", 0x20001, sLinkFields, sLinkEvents, "fpin_li"},
    {"delivery", 0x20002, sDeliveryFields, sReasons, "fpin_dn"},
    {"peer-congestion", 0x20003, sPeerFields, sCongestionEvents, "fpin_cn"},
    {"congestion", 0x20004, sCongestionFields, sCongestionEvents, "fpin_cn"},
};

using Bytes = std::vector<unsigned char>;

void sPut(Bytes& arBytes, std::uint64_t aNumber, unsigned int aSize) {
    for (unsigned int lByte = aSize; lByte > 0; --lByte) {
        arBytes.push_back(static_cast<unsigned char>(aNumber >> 8 * (lByte - 1)));
    }
}

void sPut(Bytes& arBytes, const ZTSWwn& acrName) {
    arBytes.insert(arBytes.end(), acrName.mBytes.begin(), acrName.mBytes.end());
}

using NameOf = std::function<ZTSWwn(const std::string&)>;

// A descriptor's fields as its line has them.
class Descriptor {
  public:
    Descriptor(const DescriptorRow& acrRow, ZTCHostWords& arWords, const NameOf& acrName)
        : mrRow(acrRow), mrWords(arWords), mrName(acrName) {
        for (const FieldRow& lrField : acrRow.mFields) {
            put(lrField);
        }
        arWords.end();
        mCount.mNames.push_back(acrRow.mpCount);
    }

    Bytes mValue;
    ZTSFpinCount mCount;

  private:
    void put(const FieldRow& acrField) {
        switch (acrField.mField) {
            case Field::Detecting:
                sPut(mValue, nameOf("detecting"));
                break;
            case Field::Attached:
                mCount.mPorts.push_back(nameOf("port"));
                sPut(mValue, mCount.mPorts.back());
                break;
            case Field::Event:
                sPut(mValue, event(), acrField.mSize);
                break;
            case Field::Modifier:
                sPut(mValue, mrWords.getNumber("modifier", 0), acrField.mSize);
                break;
            case Field::Threshold:
                sPut(mValue, mrWords.getNumber("threshold", 0), acrField.mSize);
                break;
            case Field::Count:
                sPut(mValue, mrWords.getNumber("count", 1), acrField.mSize);
                break;
            case Field::Period:
                sPut(mValue, mrWords.getNumber("period", 0), acrField.mSize);
                break;
            case Field::Severity:
                sPut(mValue, severity(), acrField.mSize);
                break;
            case Field::Ports:
                putPorts();
                break;
        }
    }

    ZTSWwn nameOf(const char* apKey) {
        const auto lText = mrWords.find(apKey);
        return lText ? mrName(*lText) : ZTSWwn();
    }

    std::uint64_t event() {
        const std::string lText = mrWords.get("event", "unknown");
        const auto lFound = std::ranges::find_if(
            mrRow.mEvents, [&](const EventRow& acrEvent) { return lText == acrEvent.mpName; });
        if (lFound == mrRow.mEvents.end()) {
            return readHostNumber(lText, "event, a name of one or");
        }
        mCount.mNames.push_back(lFound->mpCount);
        return lFound->mNumber;
    }

    // In the first of its four bytes.
    std::uint64_t severity() {
        const std::string lText = mrWords.get("severity", "warning");
        const std::uint64_t lNumber = lText == "warning" ? 0xf1
                                      : lText == "alarm"
                                          ? 0xf7
                                          : readHostNumber(lText, "severity, warning, alarm or");
        return lNumber << 24;
    }

    void putPorts() {
        const auto lPorts = mrWords.getList("ports");
        sPut(mValue, lPorts.size(), 4);
        for (const std::string& lrPort : lPorts) {
            mCount.mPorts.push_back(mrName(lrPort));
            sPut(mValue, mCount.mPorts.back());
        }
    }

    const DescriptorRow& mrRow;
    ZTCHostWords& mrWords;
    const NameOf& mrName;
};

void sPutDescriptor(Bytes& arBytes, std::uint64_t aTag, const Bytes& acrValue) {
    sPut(arBytes, aTag, 4);
    sPut(arBytes, acrValue.size(), 4);
    arBytes.insert(arBytes.end(), acrValue.begin(), acrValue.end());
}

Bytes sReadBytes(const std::string& acrText) {
    Bytes lBytes;
    if (acrText.size() % 2 != 0) {
        throw ZTCHostSimError(fmt::format("bytes '{}', expected two hexadecimal digits each", acrText));
    }
    for (std::size_t lAt = 0; lAt < acrText.size(); lAt += 2) {
        lBytes.push_back(static_cast<unsigned char>(readHostNumber("0x" + acrText.substr(lAt, 2), "bytes")));
    }
    return lBytes;
}

}  // namespace

ZTSFpinLine readFpinLine(ZTCHostWords& arWords, const NameOf& acrName) {
    ZTSFpinLine lLine;
    Bytes lAll;
    std::string lName = arWords.next("link-integrity, delivery, peer-congestion, congestion or a tag");
    for (std::optional<std::string> lNext = lName; lNext; lNext = arWords.tryNext()) {
        ZTCHostWords lKeys = arWords.takeKeys();
        const auto* const lpRow = std::ranges::find_if(
            sDescriptors, [&](const DescriptorRow& acrRow) { return *lNext == acrRow.mpName; });
        if (lpRow != std::end(sDescriptors)) {
            Descriptor lDescriptor(*lpRow, lKeys, acrName);
            sPutDescriptor(lAll, lpRow->mTag, lDescriptor.mValue);
            lLine.mCounts.push_back(std::move(lDescriptor.mCount));
        } else {
            sPutDescriptor(lAll, readHostNumber(*lNext, "descriptor, a name of one or its tag"),
                           sReadBytes(lKeys.get("bytes", "")));
            lKeys.end();
        }
    }
    sPut(lLine.mEls, 0x16000000, 4);
    sPut(lLine.mEls, lAll.size(), 4);
    lLine.mEls.insert(lLine.mEls.end(), lAll.begin(), lAll.end());
    return lLine;
}
