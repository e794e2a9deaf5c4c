#include "ConfigFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "SensorFiles.h"
#include "ServiceUsage.h"

namespace {

constexpr std::size_t sLargest = std::size_t{1} << 20;

[[noreturn]] void sRefuse(const char* apWhat, const std::string& acrPath, const std::string& acrWhy) {
    throw ZTCServiceUsage("the " + std::string(apWhat) + " " + acrPath + " cannot be read: " + acrWhy);
}

}  // namespace

std::string readConfigFile(const std::string& acrPath, const char* apWhat) {
    const ZTCSensorDescriptor lFile(
        open(acrPath.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));  // it may be a pipe
    struct stat lStatus {};
    if (!lFile.isOpen() || fstat(lFile.get(), &lStatus) != 0) {
        sRefuse(apWhat, acrPath, strerror(errno));
    }
    if (!S_ISREG(lStatus.st_mode)) {
        sRefuse(apWhat, acrPath, "it is no regular file");
    }
    std::string lText(sLargest + 1, '\0');
    std::size_t lSize = 0;
    for (ssize_t lRead = 1; lRead > 0 && lSize < lText.size(); lSize += static_cast<std::size_t>(lRead)) {
        lRead = read(lFile.get(), lText.data() + lSize, lText.size() - lSize);
        if (lRead < 0) {
            sRefuse(apWhat, acrPath, strerror(errno));
        }
    }
    if (lSize > sLargest) {
        sRefuse(apWhat, acrPath, "it is larger than 1 MiB");
    }
    lText.resize(lSize);
    return lText;
}
