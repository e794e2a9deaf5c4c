// What the system's queues and lists hold, as ZTCPointer<ZTCQueueable>.
#pragma once

class ZTCQueueable {
  public:
    virtual ~ZTCQueueable() = default;
};
