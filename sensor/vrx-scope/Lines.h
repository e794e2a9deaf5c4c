// Records as they are printed: tables, or JSON.
#pragma once

#include "Shows.h"

enum class ZTEScopeForm : unsigned char { Table, Json, JsonLines };

/// All of a fetch, as the command answers it.
std::string toText(const std::string& acrCommand, const ZTSFetched& acrFetched, ZTEScopeForm aForm,
                   bool aInUtc);

/// A line a record, as it comes. What there is to say of the agent goes to standard error.
class ZTCLines : public ZTCShow {
  public:
    ZTCLines(ZTEScopeForm aForm, bool aInUtc) : mForm(aForm), mInUtc(aInUtc) {}

    void add(const ZTSFetched& acrFetched) override;
    void tell(const std::string& acrText, bool aIsThere) override;

  private:
    const ZTEScopeForm mForm;
    const bool mInUtc;
};
