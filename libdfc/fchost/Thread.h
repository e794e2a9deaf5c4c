// A thread of the library, and what wakes it for its end.
#pragma once

#include <functional>
#include <thread>

class ZTCFcThread {
  public:
    ZTCFcThread();  ///< throws ZTCFcError
    ~ZTCFcThread();
    ZTCFcThread(const ZTCFcThread&) = delete;
    ZTCFcThread& operator=(const ZTCFcThread&) = delete;

    /// Signals are kept from it: they are the agent's. Throws ZTCFcError.
    void start(std::function<void()> aRun);
    /// For the thread's poll(): readable once it is to end.
    int getStop() const { return mStop; }
    /// Waits for its end, if it has been started.
    void end();

  private:
    const int mStop;
    std::thread mThread;
};
