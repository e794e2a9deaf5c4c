#include "EventNames.h"

#include <algorithm>
#include <iterator>

namespace {

struct NameRow {
    std::uint32_t mNumber;
    const char* mpName;
};

template <std::size_t Size>
const char* sFind(const NameRow (&acrRows)[Size], std::uint32_t aNumber) {
    const auto* const lpRow = std::find_if(std::begin(acrRows), std::end(acrRows),
                                           [=](const NameRow& acrRow) { return acrRow.mNumber == aNumber; });
    return lpRow != std::end(acrRows) ? lpRow->mpName : nullptr;
}

constexpr NameRow sElsCommands[] = {
    {0x01, "LS_RJT"}, {0x02, "LS_ACC"}, {0x03, "PLOGI"},    {0x04, "FLOGI"},      {0x05, "LOGO"},
    {0x06, "ABTX"},   {0x07, "RCS"},    {0x08, "RES"},      {0x09, "RSS"},        {0x0a, "RSI"},
    {0x0b, "ESTS"},   {0x0c, "ESTC"},   {0x0d, "ADVC"},     {0x0e, "RTV"},        {0x0f, "RLS"},
    {0x10, "ECHO"},   {0x11, "TEST"},   {0x12, "RRQ"},      {0x13, "REC"},        {0x14, "SRR"},
    {0x20, "PRLI"},   {0x21, "PRLO"},   {0x22, "SCN"},      {0x23, "TPLS"},       {0x24, "TPRLO"},
    {0x25, "LCLM"},   {0x30, "GAID"},   {0x31, "FACT"},     {0x32, "FDACT"},      {0x33, "NACT"},
    {0x34, "NDACT"},  {0x40, "QOSR"},   {0x41, "RVCS"},     {0x50, "PDISC"},      {0x51, "FDISC"},
    {0x52, "ADISC"},  {0x53, "RNC"},    {0x54, "FARP-REQ"}, {0x55, "FARP-REPLY"}, {0x56, "RPS"},
    {0x57, "RPL"},    {0x60, "FAN"},    {0x61, "RSCN"},     {0x62, "SCR"},        {0x63, "RNFT"},
    {0x68, "CSR"},    {0x69, "CSU"},    {0x70, "LINIT"},    {0x71, "LPC"},        {0x72, "LSTS"},
    {0x78, "RNID"},   {0x79, "RLIR"},   {0x7a, "LIRR"},     {0x7b, "SRL"},        {0x7c, "SBRP"},
    {0x7d, "RPSC"},   {0x7e, "QSA"},    {0x7f, "EVFP"},     {0x80, "LKA"},
};

constexpr NameRow sRejectReasons[] = {
    {0x01, "invalid LS command code"},
    {0x03, "logical error"},
    {0x05, "logical busy"},
    {0x07, "protocol error"},
    {0x09, "unable to perform command request"},
    {0x0b, "command not supported"},
    {0x0e, "command already in progress"},
    {0xff, "vendor specific error"},
};

constexpr NameRow sRejectExplanations[] = {
    {0x00, "no additional explanation"},
    {0x01, "service parameter error, options"},
    {0x03, "service parameter error, initiator control"},
    {0x05, "service parameter error, recipient control"},
    {0x07, "service parameter error, receive data field size"},
    {0x09, "service parameter error, concurrent sequences"},
    {0x0b, "service parameter error, credit"},
    {0x0d, "invalid port name"},
    {0x0e, "invalid node name"},
    {0x0f, "invalid common service parameters"},
    {0x11, "invalid association header"},
    {0x13, "association header required"},
    {0x15, "invalid originator S_ID"},
    {0x17, "invalid OX_ID and RX_ID combination"},
    {0x19, "command already in progress"},
    {0x1e, "port login required"},
    {0x1f, "invalid port identifier"},
    {0x29, "insufficient resources to support login"},
    {0x2a, "unable to supply requested data"},
    {0x2c, "request not supported"},
    {0x2d, "invalid payload length"},
};

constexpr NameRow sSenseKeys[] = {
    {0x0, "no sense"},        {0x1, "recovered error"}, {0x2, "not ready"},      {0x3, "medium error"},
    {0x4, "hardware error"},  {0x5, "illegal request"}, {0x6, "unit attention"}, {0x7, "data protect"},
    {0x8, "blank check"},     {0x9, "vendor specific"}, {0xa, "copy aborted"},   {0xb, "aborted command"},
    {0xd, "volume overflow"}, {0xe, "miscompare"},      {0xf, "completed"},
};

constexpr NameRow sScsiOperations[] = {
    {0x00, "TEST UNIT READY"},
    {0x03, "REQUEST SENSE"},
    {0x08, "READ(6)"},
    {0x0a, "WRITE(6)"},
    {0x12, "INQUIRY"},
    {0x15, "MODE SELECT(6)"},
    {0x16, "RESERVE(6)"},
    {0x17, "RELEASE(6)"},
    {0x1a, "MODE SENSE(6)"},
    {0x1b, "START STOP UNIT"},
    {0x25, "READ CAPACITY(10)"},
    {0x28, "READ(10)"},
    {0x2a, "WRITE(10)"},
    {0x2e, "WRITE AND VERIFY(10)"},
    {0x2f, "VERIFY(10)"},
    {0x35, "SYNCHRONIZE CACHE(10)"},
    {0x3c, "READ BUFFER"},
    {0x3b, "WRITE BUFFER"},
    {0x41, "WRITE SAME(10)"},
    {0x42, "UNMAP"},
    {0x4d, "LOG SENSE"},
    {0x55, "MODE SELECT(10)"},
    {0x5a, "MODE SENSE(10)"},
    {0x5e, "PERSISTENT RESERVE IN"},
    {0x5f, "PERSISTENT RESERVE OUT"},
    {0x83, "EXTENDED COPY"},
    {0x84, "RECEIVE COPY RESULTS"},
    {0x88, "READ(16)"},
    {0x89, "COMPARE AND WRITE"},
    {0x8a, "WRITE(16)"},
    {0x8e, "WRITE AND VERIFY(16)"},
    {0x8f, "VERIFY(16)"},
    {0x91, "SYNCHRONIZE CACHE(16)"},
    {0x93, "WRITE SAME(16)"},
    {0x9e, "SERVICE ACTION IN(16)"},
    {0xa0, "REPORT LUNS"},
    {0xa3, "MAINTENANCE IN"},
    {0xa4, "MAINTENANCE OUT"},
    {0xa8, "READ(12)"},
    {0xaa, "WRITE(12)"},
};

constexpr NameRow sAddressFormats[] = {{0, "port"}, {1, "area"}, {2, "domain"}, {3, "fabric"}};

}  // namespace

const char* nameElsCommand(std::uint32_t aCommand) {
    return sFind(sElsCommands, aCommand);
}
const char* nameRejectReason(std::uint32_t aReason) {
    return sFind(sRejectReasons, aReason);
}
const char* nameRejectExplanation(std::uint32_t aExplanation) {
    return sFind(sRejectExplanations, aExplanation);
}
const char* nameSenseKey(std::uint32_t aKey) {
    return sFind(sSenseKeys, aKey);
}
const char* nameScsiOperation(std::uint32_t aOperation) {
    return sFind(sScsiOperations, aOperation);
}
const char* nameAddressFormat(std::uint32_t aFormat) {
    return sFind(sAddressFormats, aFormat);
}
