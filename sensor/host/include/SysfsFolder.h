// The attributes of something in sysfs, whatever is in their place. Nothing here throws but for want of
// memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Calls the function with each name in a directory, and its inode: another one if what has the name was made
/// anew. False: it cannot be read now; one that is not there is empty.
bool eachSysfsName(const std::string& acrDirectory,
                   const std::function<void(const char*, std::uint64_t)>& acrDo);

/// Reads them again and again: they stay open until it goes. One thread.
class ZTCSysfsFolder {
  public:
    /// No attribute is longer: what is, is not known.
    static constexpr std::size_t LongestText = 255;

    /// apNames: of the attributes. They outlive it.
    ZTCSysfsFolder(std::string aPath, std::span<const char* const> aNames);
    ~ZTCSysfsFolder();
    ZTCSysfsFolder(const ZTCSysfsFolder&) = delete;
    ZTCSysfsFolder& operator=(const ZTCSysfsFolder&) = delete;

    /// The first line of an attribute without blanks at its ends, valid until the next call. Empty: there is
    /// none, or none that is text. Nothing: it cannot be known now, because descriptors or memory are short.
    std::optional<std::string_view> read(std::size_t aAttribute);
    /// How many bytes of one that is no text: as many as there is room for. Empty and nothing: as above.
    std::optional<std::size_t> readBytes(std::size_t aAttribute, std::span<unsigned char> aBytes);
    /// Closes the folder itself. It is open only while attributes are being opened.
    void end();
    /// Whether something has that path.
    bool isHere() const;

  private:
    /// Descriptors above are the rest of the process's: the kernel gives out the lowest one.
    static constexpr int KeptBelow = 256;

    int openAttribute(std::size_t aAttribute);
    void close(std::size_t aAttribute);

    const std::string mPath;
    const std::span<const char* const> mNames;
    std::vector<int> mFiles;
    int mFolder = -1;
    char mBytes[LongestText + 1];
};
