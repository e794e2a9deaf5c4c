// The page's files: built into the program, so that no path of a request ever reaches a file system.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "WebAnswer.h"

/// A file of page/, as the build puts it into a source.
struct ZTSWebBuiltIn {
    const char* mpName;
    const unsigned char* mpBytes;
    std::size_t mSize;
    const char* mpHash;
};
extern const ZTSWebBuiltIn ZTWebBuiltIns[];
extern const std::size_t ZTWebBuiltInCount;

/// Never changes: any thread.
class ZTCWebPage {
  public:
    struct File {
        std::string mPath;  ///< "/" or "/page/app.js"
        const char* mpType = "";
        std::shared_ptr<const std::string> mpBody;
        std::string mTag;  ///< as ETag has it
    };

    /// aCurves: the folder of the library that draws curves, which is read once.
    explicit ZTCWebPage(const std::string& acrCurves);

    const File* find(std::string_view aPath) const;
    /// Why there are no curves; empty: there are.
    const std::string& getTrouble() const { return mTrouble; }

  private:
    void add(std::string aPath, std::string aBody, const std::string& acrHash);
    void addCurves(const std::string& acrFolder, const char* apName);

    std::vector<File> mFiles;
    std::string mTrouble;
};

/// aKnownTag: If-None-Match of the request; what is known is not sent again.
ZTSWebAnswer answerPageFile(const ZTCWebPage::File& acrFile, std::string_view aKnownTag);
