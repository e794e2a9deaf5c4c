#include "PortsView.h"
#include "WebRoutes.h"

ZTSWebAnswer answerPorts(ZTCWebHistory& arHistory, const ZTSWebRequest& /*acrRequest*/) {
    return answerJson(portsJson(readPortsView(arHistory.getReader())));
}
