// The LUNs of this host, the paths to them and what stands above, looked at a slice at a time.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

#include "Measures.h"
#include "Multipathd.h"
#include "Ports.h"
#include "Storage.h"
#include "Uevent.h"

/// What comes or goes is seen at once where the kernel tells of it, and within a minute of slices where not.
/// What cannot be read is not known; what vanishes while it is read is gone at the next look. One thread.
/// Throws std::bad_alloc alone: the next slice is as good.
class ZTCHostStorage {
  public:
    /// What there is beyond is left out.
    static constexpr std::size_t MostLuns = 16384;
    static constexpr std::size_t MostMaps = 4096;
    static constexpr std::size_t MostMounts = 8192;

    explicit ZTCHostStorage(const std::string& acrRoot);
    ~ZTCHostStorage();
    ZTCHostStorage(const ZTCHostStorage&) = delete;
    ZTCHostStorage& operator=(const ZTCHostStorage&) = delete;

    /// A device came, went or changed, or device mapper tells of a path.
    void take(const ZTSUevent& acrEvent);
    /// Messages were lost, or this is the begin: everything is looked at anew, soon.
    void lookAnew();
    /// What was told of paths may be so no longer, for nobody tells of changes.
    void doubtPaths();
    /// multipathd is to be asked how the paths stand, as this question. To be called behind each slice.
    std::optional<std::uint64_t> takeQuestion();
    /// How the paths of all maps stand, asked as that question; 0: before the first. What device mapper has
    /// told stays, but what was doubtful by then.
    void takePaths(const std::vector<ZTSMultipathdPath>& acrPaths, std::uint64_t aQuestion);
    /// A slice, a second after the last one; what is due at once comes first. It aims at so much processor
    /// time, takes a small part of it at rest, and a few times as much when very much has come or is to be
    /// looked at within a minute. What the kernel has counted of the LUNs' commands and errors since they
    /// were read last is added. True: getStorage() is not what it was.
    bool step(const ZTSHostPorts& acrPorts, std::chrono::nanoseconds aAim, ZTNanoseconds aTime,
              ZTCMeasures& arMeasures);
    /// Whether everything has been looked at once since the begin.
    bool isWhole() const;
    /// mTotal of the maps is what there is: whoever remembers knows better.
    const ZTSHostStorage& getStorage() const;
    /// How many LUNs, maps and mounts are left out.
    std::size_t getLeftOut() const;

  private:
    class Impl;
    std::unique_ptr<Impl> mpImpl;
};
