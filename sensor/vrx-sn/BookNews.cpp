#include "BookNews.h"

#include "SnBuffer.h"

void storeNews(ZTSBookNews aNews, ZTCSnBuffer& arBuffer) {
    for (ZTSChange& lrChange : aNews.mChanges) {
        arBuffer.takeChange(std::move(lrChange));
    }
    if (aNews.mRuns.empty()) {
        for (ZTSLoss& lrLoss : aNews.mLosses) {
            arBuffer.takeLoss(std::move(lrLoss));
        }
        return;
    }
    for (ZTSAgentRun& lrRun : aNews.mRuns) {
        arBuffer.takeRun(std::move(lrRun),
                         &lrRun == &aNews.mRuns.back() ? std::move(aNews.mLosses) : std::vector<ZTSLoss>());
    }
}
