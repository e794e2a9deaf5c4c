// Files and folders below the root, as the kernel would show them.
#pragma once

#include <map>
#include <string>
#include <string_view>

/// Paths are below the root, without a slash at their begin. One thread. Throws ZTCHostSimError with the
/// system's reason.
class ZTCHostTree {
  public:
    /// What a folder has: the texts of its files by their paths in it; a path that ends in a slash is a
    /// folder.
    using Files = std::map<std::string, std::string>;

    explicit ZTCHostTree(std::string aRoot);

    const std::string& getRoot() const { return mRoot; }
    std::string pathOf(std::string_view aPath) const;

    /// A folder with all that is in it, at once.
    void addFolder(const std::string& acrPath, const Files& acrFiles);
    /// A file says something else from now on, to those who have it open too, as an attribute does: in one
    /// write. Empty lines cover what was longer. A line end is added.
    void setText(const std::string& acrPath, std::string_view aText);
    /// The file as a whole is another one, as something that is read from its begin.
    void replace(const std::string& acrPath, std::string_view aBytes);
    /// A link from one place below the root to another, by the way between them.
    void link(const std::string& acrPath, const std::string& acrTarget);
    /// A file, a link or a folder with all that is in it, at once; nothing if it is not there.
    void remove(const std::string& acrPath);
    /// The first line; empty: it is not there.
    std::string read(const std::string& acrPath) const;

  private:
    void makeParent(const std::string& acrPath);

    std::string mRoot;
};
