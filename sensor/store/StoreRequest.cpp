#include "StoreRequest.h"

#include "StoreFile.h"
#include "StoreRows.h"

void addStoreRequest(const std::string& acrPath, const ZTSStoreRequest& acrRequest) {
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
