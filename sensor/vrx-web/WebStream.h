// What comes into the history, for all who follow it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "StoreReader.h"
#include "WebState.h"

/// A piece of the stream, as it is sent: "id: ...\nevent: record\ndata: {...}\n\n". Never null.
using ZTWebPiece = std::shared_ptr<const std::string>;

/// A thread of its own (vrx-web-follow) follows the history, makes each event's text once, and keeps the last
/// ones. Whoever follows has a place, and takes what is behind it. All functions: any thread.
///
/// Somebody who comes: begin() with the id of the last event that they had. A place: take() from there on.
/// Nothing: a thread that may wait for the history makes a part of what is missing by catchUp(), that is
/// sent, and then it begins again with the id that came with it.
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
    /// A part of what somebody has missed.
    struct Caught {
        ZTWebPiece mpPieces;   ///< as they are sent; an empty text: there was nothing
        std::string mEventId;  ///< with which to begin behind them
    };

    /// acrHasNews is called by the thread when there is something new; it must not wait.
    ZTCWebStream(std::string aStore, ZTCWebHealth& arHealth, std::function<void()> aHasNews);
    /// Waits for the thread for a second at most: it may be kept by a disk that stands still, and then goes
    /// on by itself, without touching what it was given.
    ~ZTCWebStream();
    ZTCWebStream(const ZTCWebStream&) = delete;
    ZTCWebStream& operator=(const ZTCWebStream&) = delete;

    /// Behind the last piece that there is; with the id of the last event that somebody had, behind that one,
    /// as far as it is still kept. Nothing: it is not, and catchUp() makes it up. What is no id of ours, and
    /// an empty one, begins with what comes.
    std::optional<Place> begin(const std::string& acrLastEventId) const;
    /// Goes on by one where there is one.
    Taken take(Place& arPlace) const;
    /// What of the history comes behind an event, oldest first: a slice of it. What is more than the newest
    /// 10,000 records is left out, and an event "gap" says so; incidents come as they are now. Throws
    /// ZTCStoreError.
    Caught catchUp(ZTCStoreReader& arReader, const std::string& acrLastEventId) const;

  private:
    class Impl;
    std::shared_ptr<Impl> mpImpl;
};
