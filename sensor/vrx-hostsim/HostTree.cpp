#include "HostTree.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unordered_set>

#include "HostWords.h"

namespace {

// Beside sys and proc, so that what is made there is renamed to its place; its names end with it.
constexpr char sAside[] = ".aside";

[[noreturn]] void sRefuse(const std::string& acrPath) {
    throw ZTCHostSimError(fmt::format("{}: {}, expected to be able to write it", acrPath, strerror(errno)));
}

void sWriteFile(const std::string& acrPath, std::string_view aBytes, int aFlags) {
    const int lFile = open(acrPath.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW | aFlags, 0644);
    const bool lIsWritten =
        lFile >= 0 && pwrite(lFile, aBytes.data(), aBytes.size(), 0) == static_cast<ssize_t>(aBytes.size());
    const int lError = errno;
    if (lFile >= 0) {
        close(lFile);
    }
    if (!lIsWritten) {
        errno = lError;
        sRefuse(acrPath);
    }
}

}  // namespace

ZTCHostTree::ZTCHostTree(std::string aRoot) : mRoot(std::move(aRoot)) {
    while (mRoot.size() > 1 && mRoot.back() == '/') {
        mRoot.pop_back();
    }
    if (mRoot.empty() || mRoot == "/") {
        throw ZTCHostSimError("the root of this host itself, expected another folder");
    }
    mRoot += '/';
    std::error_code lError;
    std::filesystem::create_directories(mRoot, lError);
    remove(sAside);
}

std::string ZTCHostTree::pathOf(std::string_view aPath) const {
    return mRoot + std::string(aPath);
}

void ZTCHostTree::makeParent(const std::string& acrPath) {
    std::error_code lError;
    std::filesystem::create_directories(std::filesystem::path(pathOf(acrPath)).parent_path(), lError);
    if (lError) {
        errno = lError.value();
        sRefuse(pathOf(acrPath));
    }
}

void ZTCHostTree::addFolder(const std::string& acrPath, const Files& acrFiles) {
    const std::string lAside = pathOf(sAside) + "/made";
    std::unordered_set<std::string> lMade;
    const auto lMake = [&](const std::string& acrFolder) {
        if (lMade.insert(acrFolder).second) {
            std::filesystem::create_directories(acrFolder);
        }
    };
    lMake(lAside);
    for (const auto& [lrName, lrText] : acrFiles) {
        const std::string lPath = std::string(lAside).append("/").append(lrName);
        lMake(lPath.substr(0, lPath.rfind('/')));
        if (!lrName.ends_with('/')) {
            sWriteFile(lPath, lrText, O_CREAT | O_EXCL);
        }
    }
    makeParent(acrPath);
    remove(acrPath);
    if (rename(lAside.c_str(), pathOf(acrPath).c_str()) != 0) {
        sRefuse(pathOf(acrPath));
    }
}

void ZTCHostTree::setText(const std::string& acrPath, std::string_view aText) {
    const std::string lPath = pathOf(acrPath);
    struct stat lState {};
    std::string lText(aText);
    lText += '\n';
    if (lstat(lPath.c_str(), &lState) != 0 || !S_ISREG(lState.st_mode)) {
        replace(acrPath, lText);
        return;
    }
    lText.resize(std::max(lText.size(), static_cast<std::size_t>(lState.st_size)), '\n');
    sWriteFile(lPath, lText, 0);
}

void ZTCHostTree::replace(const std::string& acrPath, std::string_view aBytes) {
    makeParent(acrPath);
    std::error_code lError;
    std::filesystem::create_directories(pathOf(sAside), lError);
    const std::string lAside = pathOf(sAside) + "/file";
    sWriteFile(lAside, aBytes, O_CREAT | O_TRUNC);
    if (rename(lAside.c_str(), pathOf(acrPath).c_str()) != 0) {
        sRefuse(pathOf(acrPath));
    }
}

void ZTCHostTree::link(const std::string& acrPath, const std::string& acrTarget) {
    makeParent(acrPath);
    remove(acrPath);
    std::string lWay;
    std::string_view lRest(acrTarget);
    std::string_view lFrom(acrPath);
    for (std::size_t lEnd = lFrom.find('/');
         lEnd != std::string_view::npos && lRest.substr(0, lEnd + 1) == lFrom.substr(0, lEnd + 1);
         lEnd = lFrom.find('/')) {
        lRest.remove_prefix(lEnd + 1);
        lFrom.remove_prefix(lEnd + 1);
    }
    for (std::ptrdiff_t lUp = std::ranges::count(lFrom, '/'); lUp > 0; --lUp) {
        lWay += "../";
    }
    lWay += lRest;
    if (symlink(lWay.c_str(), pathOf(acrPath).c_str()) != 0) {
        sRefuse(pathOf(acrPath));
    }
}

void ZTCHostTree::remove(const std::string& acrPath) {
    const std::string lPath = pathOf(acrPath);
    struct stat lState {};
    if (lstat(lPath.c_str(), &lState) != 0) {
        return;
    }
    std::error_code lError;
    if (!S_ISDIR(lState.st_mode) || acrPath == sAside) {
        std::filesystem::remove_all(lPath, lError);
        return;
    }
    const std::string lGone = pathOf(sAside) + "/gone";
    std::filesystem::create_directories(pathOf(sAside), lError);
    std::filesystem::remove_all(lGone, lError);
    if (rename(lPath.c_str(), lGone.c_str()) != 0) {
        sRefuse(lPath);
    }
    std::filesystem::remove_all(lGone, lError);
}

std::string ZTCHostTree::read(const std::string& acrPath) const {
    std::ifstream lFile(pathOf(acrPath), std::ios::binary);
    std::string lLine;
    std::getline(lFile, lLine);
    return lLine;
}
