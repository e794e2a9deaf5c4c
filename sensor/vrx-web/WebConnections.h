// Who is connected, in which phase of a request, and until when that may last.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "WebAnswer.h"
#include "WebOptions.h"
#include "WebStream.h"

struct MHD_Connection;

/// What a connection is doing, and what becomes of it when its time is over.
enum class ZTEWebPhase : unsigned char {
    Asking,     ///< a request is to come: then it is shut
    Waiting,    ///< its answer is being made, and it is suspended: then it has the late answer
    Taking,     ///< its answer is being taken: then it is shut
    Following,  ///< there is nothing new for it, and it is suspended: then it is told so
    Shut,       ///< it is about to go
};

/// All that is known of one.
struct ZTSWebConnection {
    using Clock = std::chrono::steady_clock;

    int mSocket = -1;
    std::string mPeer;  ///< whose it is: those with the same have a share in common
    const ZTSWebPeriods* mpPeriods = nullptr;
    MHD_Connection* mpConnection = nullptr;
    ZTEWebPhase mPhase = ZTEWebPhase::Asking;
    Clock::time_point mDue;
    bool mHasAsked = false;  ///< ever

    /// Of the request that is under way.
    struct Request {
        std::string mTarget;        ///< as it was sent
        bool mHasHead = false;      ///< all of its head is there
        bool mIsGuess = false;      ///< it has a wrong token
        std::uint64_t mTicket = 0;  ///< of the work that it waits for; 0: none
        std::optional<ZTSWebAnswer> mAnswer;
        ZTSWebAnswer mLate;  ///< if there is no other in time

        const ZTCWebStream* mpStream = nullptr;  ///< that it follows; null: it does not
        ZTCWebStream::Place mPlace = 0;
        std::shared_ptr<ZTCWebStream::CaughtUp> mpCaughtUp;  ///< what it has missed; null: nothing
        ZTWebPiece mpPiece;                                  ///< that it is taking
        std::size_t mTaken = 0;                              ///< bytes of it
    } mRequest;

    void enter(ZTEWebPhase aPhase, std::chrono::milliseconds aTime) {
        mPhase = aPhase;
        mDue = Clock::now() + aTime;
    }
};

/// One thread.
class ZTCWebConnections {
  public:
    static constexpr std::size_t Most = 1000;
    static constexpr std::size_t MostOfPeer = Most / 4;

    bool hasRoomFor(const std::string& acrPeer) const;
    /// Null when there is no room. One that had the socket before is no more. Throws std::bad_alloc; then all
    /// is as it was.
    ZTSWebConnection* add(int aSocket, const std::string& acrPeer, const ZTSWebPeriods& acrPeriods);
    ZTSWebConnection* find(int aSocket);
    void remove(const ZTSWebConnection& acrConnection);

    std::size_t count() const { return mAll.size(); }
    std::size_t count(ZTEWebPhase aPhase) const;
    /// Calls it with each.
    template <class Call>
    void forEach(const Call& acrCall) {
        for (const auto& [lSocket, lrpConnection] : mAll) {
            acrCall(*lrpConnection);
        }
    }

  private:
    std::unordered_map<int, std::unique_ptr<ZTSWebConnection>> mAll;
    std::unordered_map<std::string, std::size_t> mOfPeer;
};
