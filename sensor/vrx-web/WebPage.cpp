#include "WebPage.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "SensorFiles.h"

namespace {

constexpr std::size_t sLargest = std::size_t{4} << 20;

struct Type {
    std::string_view mEnd;
    const char* mpType;
};
constexpr Type sTypes[] = {{".html", "text/html; charset=utf-8"},
                           {".js", "text/javascript; charset=utf-8"},
                           {".css", "text/css; charset=utf-8"},
                           {".svg", "image/svg+xml"}};

const char* sTypeOf(std::string_view aName) {
    const auto* const lpType = std::find_if(std::begin(sTypes), std::end(sTypes), [&](const Type& acrType) {
        return aName.ends_with(acrType.mEnd);
    });
    return lpType != std::end(sTypes) ? lpType->mpType : "application/octet-stream";
}

// Nothing but whether it is another one.
std::string sHashOf(std::string_view aBytes) {
    return fmt::format("{:x}-{:x}", aBytes.size(), std::hash<std::string_view>{}(aBytes));
}

// Empty, with errno: it cannot be read.
std::string sRead(const std::string& acrPath) {
    const ZTCSensorDescriptor lFile(open(acrPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    std::string lBytes(lFile.isOpen() ? sLargest : 0, '\0');
    std::size_t lSize = 0;
    for (ssize_t lRead = 1; lRead > 0 && lSize < lBytes.size(); lSize += static_cast<std::size_t>(lRead)) {
        lRead = std::max<ssize_t>(read(lFile.get(), lBytes.data() + lSize, lBytes.size() - lSize), 0);
    }
    lBytes.resize(lSize);
    lBytes.shrink_to_fit();
    return lBytes;
}

}  // namespace

ZTCWebPage::ZTCWebPage(const std::string& acrCurves) {
    for (std::size_t lFile = 0; lFile < ZTWebBuiltInCount; ++lFile) {
        const ZTSWebBuiltIn& lrFile = ZTWebBuiltIns[lFile];
        const std::string_view lName = lrFile.mpName;
        add(lName == "index.html" ? "/" : fmt::format("/page/{}", lName),
            {reinterpret_cast<const char*>(lrFile.mpBytes), lrFile.mSize}, lrFile.mpHash);
    }
    addCurves(acrCurves, "dygraph.min.js");
    addCurves(acrCurves, "dygraph.css");
}

void ZTCWebPage::add(std::string aPath, std::string aBody, const std::string& acrHash) {
    const char* const lpType = aPath == "/" ? sTypes[0].mpType : sTypeOf(aPath);
    mFiles.push_back({std::move(aPath), lpType, std::make_shared<const std::string>(std::move(aBody)),
                      '"' + acrHash + '"'});
}

void ZTCWebPage::addCurves(const std::string& acrFolder, const char* apName) {
    const std::string lPath = fmt::format("{}/{}", acrFolder, apName);
    std::string lBody = sRead(lPath);
    if (lBody.empty()) {
        mTrouble = fmt::format("{}: {}", lPath, strerror(errno));
        return;
    }
    const std::string lHash = sHashOf(lBody);
    add(fmt::format("/page/{}", apName), std::move(lBody), lHash);
}

const ZTCWebPage::File* ZTCWebPage::find(std::string_view aPath) const {
    const auto lAt = std::find_if(mFiles.begin(), mFiles.end(),
                                  [&](const File& acrFile) { return acrFile.mPath == aPath; });
    return lAt != mFiles.end() ? &*lAt : nullptr;
}

ZTSWebAnswer answerPageFile(const ZTCWebPage::File& acrFile, std::string_view aKnownTag) {
    ZTSWebAnswer lAnswer;
    lAnswer.mpType = acrFile.mpType;
    lAnswer.mHeaders = {{"ETag", acrFile.mTag}, {"Cache-Control", "no-cache"}};
    if (aKnownTag.find(acrFile.mTag) != std::string_view::npos) {
        lAnswer.mStatus = 304;
    } else {
        lAnswer.mpBody = acrFile.mpBody;
    }
    return lAnswer;
}
