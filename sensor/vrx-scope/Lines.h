// What is collected, a line a record.
#pragma once

#include "RecordPrinter.h"
#include "Shows.h"

/// As it comes. What there is to say of the agent goes to standard error.
class ZTCLines : public ZTCShow {
  public:
    ZTCLines(ZTEScopeForm aForm, bool aInUtc);

    void add(const ZTSFetched& acrFetched) override;
    void tell(const std::string& acrText, bool aIsThere) override;

  private:
    const std::unique_ptr<ZTCRecordPrinter> mPrinter;
};
