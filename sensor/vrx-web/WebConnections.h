// Who is connected, in which phase of a request, and until when that may last.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "WebAnswer.h"
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

/// What somebody who follows the stream has had, and what comes next.
struct ZTSWebFollower {
    std::string mEventId;                              ///< the last one that he had
    std::optional<ZTCWebStream::Place> mPlace{};       ///< nothing: he has missed what is to be made up
    std::shared_ptr<ZTCWebStream::Caught> mpCaught{};  ///< where that is put
    ZTWebPiece mpPiece{};                              ///< that he is taking
    std::size_t mTaken = 0;                            ///< bytes of it
    bool mIsOver = false;                              ///< it cannot be made up: he comes again
};

/// All that is known of one.
struct ZTSWebConnection {
    using Clock = std::chrono::steady_clock;

    int mSocket = -1;
    std::string mPeer;  ///< whose it is: those with the same have a share in common
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
        std::function<ZTSWebAnswer(const std::string& acrWhy)> mLate;  ///< makes its answer if no other comes
        std::optional<ZTSWebAnswer> mAnswer;
        bool mIsMade = false;     ///< its answer is for it alone
        Clock::time_point mMade;  ///< and was there then
        std::optional<ZTSWebFollower> mFollower;
    } mRequest;

    bool isSuspended() const { return mPhase == ZTEWebPhase::Waiting || mPhase == ZTEWebPhase::Following; }
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

    /// Null when there is no room. One that had the socket before is no more. Throws std::bad_alloc; then all
    /// is as it was.
    ZTSWebConnection* add(int aSocket, const std::string& acrPeer, std::chrono::milliseconds aTime);
    ZTSWebConnection* find(int aSocket);
    void remove(const ZTSWebConnection& acrConnection);

    std::size_t count() const { return mAll.size(); }
    std::size_t countFollowers() const;
    /// Calls it with each; it must not add or remove any.
    template <class Call>
    void forEach(const Call& acrCall) const {
        for (const auto& [lSocket, lrpConnection] : mAll) {
            acrCall(*lrpConnection);
        }
    }

  private:
    bool hasRoomFor(const std::string& acrPeer) const;

    std::unordered_map<int, std::unique_ptr<ZTSWebConnection>> mAll;
    std::unordered_map<std::string, std::size_t> mOfPeer;
};
