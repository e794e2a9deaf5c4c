// The socket on which lines come in while the library is open.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <thread>

class ZTCSimControl {
  public:
    /// aAnswer is given each datagram, on one thread.
    using Answer = std::function<std::string(std::string_view)>;

    /// Throws ZTCSimError if the path cannot be bound or is somebody's.
    ZTCSimControl(const std::string& acrPath, Answer aAnswer);
    ~ZTCSimControl();
    ZTCSimControl(const ZTCSimControl&) = delete;
    ZTCSimControl& operator=(const ZTCSimControl&) = delete;

  private:
    void run(const std::stop_token& acrStop);

    const Answer mAnswer;
    const int mSocket;
    std::jthread mThread;
};
