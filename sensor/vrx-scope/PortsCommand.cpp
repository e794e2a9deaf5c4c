#include "Commands.h"
#include "PortsText.h"
#include "Terminal.h"

int runPorts(const ZTSScopeOptions& acrOptions) {
    ZTCStoreReader lReader(acrOptions.mHistory.mStore);
    const ZTSPortsView lPorts = readPortsView(lReader);
    put(acrOptions.getForm() == ZTEScopeForm::Table ? portsText(lPorts, acrOptions.mInUtc)
                                                    : portsJson(lPorts));
    return 0;
}
