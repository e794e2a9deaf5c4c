// The attributes of something in sysfs, which are read again and again: they stay open while there are
// descriptors for it. Nothing here throws but for want of memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Which descriptors are kept open: those below a number. The kernel gives out the lowest that is free, so
/// those above are left to the rest of the process, and nobody has to count.
struct ZTSFcKept {
    int mBelow;
    bool mHasRunOut = false;  ///< one that was wanted was not to be had
};

/// So many eighths of the descriptors that the process may have.
int countFcDescriptors(unsigned int aEighths);

/// Calls the function with each name in a directory, and its inode: another one if what has the name was made
/// anew. False: it cannot be read; one that is not there is empty.
bool eachFcName(const std::string& acrDirectory, ZTSFcKept& arKept,
                const std::function<void(const char*, std::uint64_t)>& acrDo);

/// A decimal number, or one of another base, and nothing else.
std::optional<std::uint64_t> toFcNumber(std::string_view aText, int aBase = 10);

/// One thread.
class ZTCFcFolder {
  public:
    using Bytes = char[4096];

    /// apNames: of the attributes, below the folder. They and what is kept outlive it.
    ZTCFcFolder(std::string aPath, std::span<const char* const> aNames, ZTSFcKept& arKept);
    ~ZTCFcFolder();
    ZTCFcFolder(const ZTCFcFolder&) = delete;
    ZTCFcFolder& operator=(const ZTCFcFolder&) = delete;

    /// A look begins. An attribute that was not there is tried again at the 2nd look, the 4th, the 8th and so
    /// on, and at every 64th at last: it follows its folder by a moment, or its driver never has it.
    void begin();
    /// Whether the folder is there: 0, or the error. Asked once it is known to be, it is not looked for.
    int find();
    /// The first line of an attribute, without blanks at its ends. Empty if there is none, or none that is
    /// text.
    std::string_view read(std::size_t aAttribute, Bytes& arBytes);
    /// It was not there when it was tried last, or has gone since.
    bool isAbsent(std::size_t aAttribute) const { return mFiles[aAttribute] == Absent; }
    void end();
    /// Closes all that is kept.
    void close();

  private:
    static constexpr int Absent = -1;
    static constexpr int Closed = -2;  // to be opened when it is read

    int openFolder();

    ZTSFcKept& mrKept;
    const std::string mPath;
    const std::span<const char* const> mNames;
    std::vector<int> mFiles;
    int mFolder = Closed;  // open only while something in it is being opened
    std::uint64_t mLooks = 0;
    std::uint64_t mNextTry = 1;
    bool mIsFound = false;
};
