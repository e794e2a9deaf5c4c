// What comes into the history, for all who follow it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "WebHistory.h"
#include "WebState.h"

/// A piece of the stream, as it is sent: "id: ...\nevent: record\ndata: {...}\n\n". Never null.
using ZTWebPiece = std::shared_ptr<const std::string>;

/// A thread of its own (vrx-web-follow) follows the history, makes each event's text once, and keeps the last
/// ones. Whoever follows has a place, and takes what is behind it. All functions: any thread.
class ZTCWebStream {
  public:
    /// A place in the stream: the number of the next piece.
    using Place = std::uint64_t;
    /// What there is for somebody at a place.
    struct Taken {
        ZTWebPiece mpPiece;  ///< null: nothing yet
        bool mIsBehind =
            false;  ///< what it should have had next is there no more: it is sent off, and comes again
    };

    /// acrHasNews is called by the thread when there is something new; it must not wait.
    ZTCWebStream(std::string aStore, ZTCWebHealth& arHealth, std::function<void()> aHasNews);
    ~ZTCWebStream();
    ZTCWebStream(const ZTCWebStream&) = delete;
    ZTCWebStream& operator=(const ZTCWebStream&) = delete;

    /// Behind the last piece that there is; with the id of the last event that somebody had, behind that one,
    /// as far as it is still kept. Nothing: it is not, and catchUp() makes it up.
    std::optional<Place> begin(const std::string& acrLastEventId) const;
    /// Goes on by one where there is one.
    Taken take(Place& arPlace) const;

    /// What came behind the last event that somebody had, from the history, where it is kept here no more.
    struct CaughtUp {
        std::string mText;  ///< pieces
        Place mPlace = 0;   ///< where it goes on
    };
    /// In a thread that may wait for the history. Throws ZTCWebRefusal (that is no id of an event) and
    /// ZTCStoreError.
    CaughtUp catchUp(ZTCWebHistory& arHistory, const std::string& acrLastEventId) const;

  private:
    class Impl;
    std::unique_ptr<Impl> mpImpl;
};
