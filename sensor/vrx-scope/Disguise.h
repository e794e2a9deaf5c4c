// What a history tells, with pseudonyms in place of a site's names.
#pragma once

#include "HistoryPrinter.h"
#include "Pseudonyms.h"

/// What is known of the site is taken from the store first, so that its names are found in texts too. One
/// thread.
class ZTCDisguise {
  public:
    /// Throws ZTCStoreError.
    ZTCDisguise(ZTCStoreReader& arReader, const ZTSIncident& acrIncident);

    std::string hostOf(const std::string& acrHost) { return mPseudonyms.of(ZTENamed::Host, acrHost); }
    ZTPortLabels labelsOf(const ZTPortLabels& acrLabels);

    ZTSIncident of(ZTSIncident aIncident);
    ZTSStoredRecord of(ZTSStoredRecord aRecord);
    ZTSChange of(ZTSChange aChange);
    ZTSStoredFpin of(ZTSStoredFpin aFpin);
    ZTSStoredStall of(ZTSStoredStall aStall);

  private:
    void learnPorts(ZTCStoreReader& arReader);
    void learnStorage(ZTCStoreReader& arReader);
    void replace(ZTSWwn& arName) { arName = mPseudonyms.of(arName); }
    void replace(std::optional<ZTSWwn>& arName);
    void replace(ZTSPortNames& arNames);
    void replace(ZTSIncidentCause& arCause);
    void replace(ZTENamed aWhat, std::string& arText) { arText = mPseudonyms.of(aWhat, arText); }
    void replace(ZTENamed aWhat, std::vector<std::string>& arTexts);
    void replaceDisk(ZTENamed aWhat, std::string& arText);
    void replaceLun(std::string& arText);
    void replaceHits(ZTSIncidentHits& arHits);
    void replaceValue(const ZTSChange& acrChange, std::string& arValue);
    std::string hitsOf(const std::string& acrHits);

    ZTCPseudonyms mPseudonyms;
};

/// Passes on to another what is printed, with pseudonyms.
class ZTCDisguisedPrinter : public ZTCHistoryPrinter {
  public:
    ZTCDisguisedPrinter(ZTCDisguise& arDisguise, ZTCHistoryPrinter& arPrinter)
        : ZTCHistoryPrinter({}, [](const std::string&) {}), mrDisguise(arDisguise), mrPrinter(arPrinter) {}

    bool isMixed() const override { return mrPrinter.isMixed(); }
    void add(const ZTSStoredRecord& acrRecord) override { mrPrinter.add(mrDisguise.of(acrRecord)); }
    void add(const ZTSLoss& acrLoss) override { mrPrinter.add(acrLoss); }
    void add(const ZTSChange& acrChange) override { mrPrinter.add(mrDisguise.of(acrChange)); }
    void add(const ZTSStoredFpin& acrFpin) override { mrPrinter.add(mrDisguise.of(acrFpin)); }
    void add(const ZTSStoredStall& acrStall) override { mrPrinter.add(mrDisguise.of(acrStall)); }
    void finish() override { mrPrinter.finish(); }

  private:
    ZTCDisguise& mrDisguise;
    ZTCHistoryPrinter& mrPrinter;
};
