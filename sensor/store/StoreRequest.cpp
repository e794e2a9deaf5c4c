#include "StoreRequest.h"

#include <algorithm>

#include "HostRows.h"
#include "StoreFile.h"

void addStoreRequest(const std::string& acrPath, const ZTSStoreRequest& acrRequest) {
    const std::size_t lPart =
        std::max({acrRequest.mWho.size(), acrRequest.mWhat.size(), acrRequest.mSubject.size()});
    if (acrRequest.mText.size() > ZTRequestText || lPart > ZTRequestPart) {
        throw ZTCStoreError(ZTEStoreFault::Unusable,
                            "that is too long: a text may have 4,096 bytes, and what "
                            "it is about 256");
    }
    ZTSStoreAddition lStore = openStoreToAdd(acrPath);
    storeCall(acrPath, [&] {
        SQLite::Statement lAdd(
            lStore.mDatabase,
            "INSERT INTO requests (time, who, what, subject, text, done) VALUES (?, ?, ?, ?, ?, 0)");
        lAdd.bind(1, acrRequest.mTime);
        lAdd.bind(2, acrRequest.mWho);
        lAdd.bind(3, acrRequest.mWhat);
        lAdd.bind(4, acrRequest.mSubject);
        lAdd.bind(5, acrRequest.mText);
        lAdd.exec();
    });
}
