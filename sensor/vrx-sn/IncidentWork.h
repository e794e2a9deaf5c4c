// Rows in, incidents out: what reads signs from rows and what finds incidents, as a pair.
#pragma once

#include "IncidentFeed.h"
#include "IncidentFinder.h"
#include "SignReader.h"

/// One thread at a time.
class ZTCIncidentWork {
  public:
    explicit ZTCIncidentWork(const ZTSIncidentRules& acrRules) : mTimes(acrRules.mTimes), mFinder(acrRules) {}

    ZTCIncidentFinder& getFinder() { return mFinder; }
    const ZTPortLabels& getLabels() const { return mLabels; }
    void takeLabels(const ZTPortLabels& acrLabels);

    /// What stood when the history was last written.
    void takeStart(const ZTSIncidentStart& acrStart, const std::optional<ZTSHostPorts>& acrPorts,
                   const std::optional<ZTSHostStorage>& acrStorage, ZTNanoseconds aTime);
    /// What came before that start has been read again: whatever comes now is new, however late it is.
    void endStart(const ZTSIncidentStart& acrStart);
    /// All but what is asked. What there is no memory for is told by its number of rows.
    std::uint64_t take(const ZTSIncidentInput& acrInput, ZTNanoseconds aNow);
    /// Has the reader read something, and the finder take what it says. Throws std::bad_alloc.
    template <class... Row>
    void read(const Row&... acrRow) {
        mSigns.clear();
        mReader.read(acrRow..., mSigns);
        for (const ZTSSign& lrSign : mSigns) {
            mFinder.take(lrSign);
        }
    }

  private:
    void takeWhatStands(const ZTSIncidentInput& acrInput, ZTNanoseconds aNow);

    const ZTSIncidentTimes mTimes;
    ZTCSignReader mReader;
    ZTCIncidentFinder mFinder;
    ZTCSignReader::Signs mSigns;
    ZTPortLabels mLabels;
};
