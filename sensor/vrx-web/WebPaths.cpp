#include "Units.h"
#include "WebRoutes.h"

ZTSWebAnswer answerPaths(ZTCWebHistory& arHistory, const ZTSWebRequest& /*acrRequest*/) {
    return answerJson(unitsJson(readUnits(arHistory.getReader(), {}), false));
}
