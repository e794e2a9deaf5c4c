// A store that has what a story tells (SignStory.h), with the incidents that are found in it.
#pragma once

#include "SignStory.h"
#include "StoreBatch.h"
#include "StoreFile.h"
#include "StoreWriter.h"

/// As vrx-sn would have written it in one go.
inline ZTSStoreBatch ZTBatchOf(const ZTCSignStory& acrStory) {
    ZTSStoreBatch lBatch;
    const auto lTake = [&](const auto& acrWhat) {
        using What = std::decay_t<decltype(acrWhat)>;
        ZTSHostNews lNews;
        if constexpr (std::is_same_v<What, ZTSRecord>) {
            lBatch.mRows.push_back({lBatch.mRows.size() + 1, true, acrWhat, acrWhat.mOccurrences});
        } else if constexpr (std::is_same_v<What, ZTSChange>) {
            lBatch.mChanges.push_back(acrWhat);
        } else if constexpr (std::is_same_v<What, ZTSLoss>) {
            lBatch.mLosses.push_back(acrWhat);
        } else if constexpr (std::is_same_v<What, ZTSFpin>) {
            lNews.mFpins = {acrWhat};
        } else if constexpr (std::is_same_v<What, ZTSStall>) {
            lNews.mStalls = {acrWhat};
        } else if constexpr (std::is_same_v<What, ZTSStoryCount>) {
            lNews.mMeasures.add(acrWhat.mMinute, acrWhat.mWhose, acrWhat.mName, acrWhat.mValue);
        } else if constexpr (std::is_same_v<What, std::shared_ptr<const ZTSHostPorts>>) {
            lBatch.mPorts = *acrWhat;
        } else if constexpr (std::is_same_v<What, std::shared_ptr<const ZTSHostStorage>>) {
            lNews.mStorage = *acrWhat;
        }
        lBatch.mHost.join(std::move(lNews));
    };
    lTake(std::make_shared<const ZTSHostPorts>(acrStory.getSite().makePorts()));
    lTake(std::make_shared<const ZTSHostStorage>(acrStory.getSite().makeStorage()));
    for (const ZTSStoryNews& lrNews : acrStory.listNews()) {
        std::visit(lTake, lrNews.mWhat);
    }
    lBatch.mClosedTo = lBatch.mRows.size();
    lBatch.mLabels = acrStory.getSite().getLabels();
    lBatch.mIncidents.mIncidents = acrStory.play().mIncidents;
    return lBatch;
}

/// A store that anybody can be shown: nothing in it depends on when, or where, it is written. It was written
/// last when the story ended.
inline void ZTWriteStory(const std::string& acrPath, const ZTCSignStory& acrStory,
                         const ZTSStoreBatch& acrBatch) {
    ZTSStoreOptions lOptions;
    lOptions.mPath = acrPath;
    lOptions.mHostName = "db7";
    {
        ZTCStoreWriter lWriter(lOptions);
        lWriter.write(acrBatch);
        lWriter.finish();
    }
    const std::string lEnd = std::to_string(acrStory.getEnd());
    openStoreToWrite(acrPath).mDatabase.exec(
        "UPDATE ports SET seen = " + lEnd + "; UPDATE remote_ports SET seen = " + lEnd +
        "; UPDATE luns SET seen = " + lEnd + "; UPDATE maps SET seen = " + lEnd +
        "; UPDATE meta SET value = " + lEnd + " WHERE name IN ('last_write', 'storage')");
}

/// A controller loses its port on a fabric, and later the other one is slow: most of what there is to answer.
inline constexpr char ZTShownStory[] = R"(
fabric left
fabric right
host hba0 fabric=left wwpn=10:00:00:25:b5:01:00:00
host hba1 fabric=right wwpn=10:00:00:25:b5:01:00:01
target array1-A0 fabric=left array=array1 controller=A wwpn=50:06:01:60:3b:20:11:0c
target array1-A1 fabric=right array=array1 controller=A wwpn=50:06:01:61:3b:20:11:0c
target array1-B0 fabric=left array=array1 controller=B wwpn=50:06:01:68:3b:20:11:0c
target array1-B1 fabric=right array=array1 controller=B wwpn=50:06:01:69:3b:20:11:0c
map mpatha array=array1 volume=vg0-data mount=/data
at 2026-11-19 14:00
+0s   change note mueller array1 "" "new zoning" event=noted
at 2026-11-21 08:00
+0s   rscn            host=hba1 from=array1-B1
+1s   logo            host=hba1 from=array1-B1 x2 for=1s
+1s   target-lost     host=hba1 from=array1-B1
+30s  paths-lost      host=hba1 from=array1-B1
+60s  count commands 54000        host=hba0 from=array1-A0
+60s  count command_us 81000000   host=hba0 from=array1-A0
+61s  fpin congestion credit_stall host=hba0 attached=array1-A0 x4 for=3s
+65s  queue_full      host=hba0 from=array1-A0 x120 for=5s
+70s  check_condition host=hba0 from=array1-A0 sense=2/04/0a x12 for=4s
+80s  stall           vg0-data
+90s  loss agent/limit x77 for=2s
+3m   stall-over      vg0-data
+4m   plogi           host=hba1 from=array1-B1
+4m   target-back     host=hba1 from=array1-B1
+5m   paths-back      host=hba1 from=array1-B1
+3h   end
)";

inline void ZTWriteShownStory(const std::string& acrPath) {
    const ZTCSignStory lStory(ZTShownStory);
    ZTSStoreBatch lBatch = ZTBatchOf(lStory);
    lBatch.mHost.mBlindSpots = {{"fpins", "host2", "the driver posts none", true}};
    ZTWriteStory(acrPath, lStory, lBatch);
}
