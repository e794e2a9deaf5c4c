#include "Lines.h"

#include "Terminal.h"

ZTCLines::ZTCLines(ZTEScopeForm aForm, bool aInUtc)
    : mPrinter(makeLinePrinter(aForm, "watch", aInUtc, put)) {}

void ZTCLines::add(const ZTSFetched& acrFetched) {
    mPrinter->add(acrFetched);
    mPrinter->finish();
}

void ZTCLines::tell(const std::string& acrText, bool /*aIsThere*/) {
    complain(acrText);
}
