#include "Commands.h"
#include "Terminal.h"
#include "TimeText.h"
#include "UnitsText.h"

int runPaths(const ZTSScopeOptions& acrOptions) {
    ZTCStoreReader lReader(acrOptions.mHistory.mStore);
    const ZTSUnits lUnits = readUnits(lReader, acrOptions.mHistory);
    if (acrOptions.getForm() != ZTEScopeForm::Table) {
        put(unitsJson(lUnits, acrOptions.getForm() == ZTEScopeForm::JsonLines));
        return 0;
    }
    const bool lIsFull = acrOptions.mHistory.mIsFull || !acrOptions.mHistory.mMaps.empty();
    put(unitsText(lUnits, lIsFull, acrOptions.mInUtc,
                  toNanoseconds(toSensorTime(std::chrono::system_clock::now()))));
    return 0;
}
