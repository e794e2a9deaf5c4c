#include "Event.h"

#include <sys/eventfd.h>

#include <cerrno>

#include "Exception.h"

ZTCEvent::ZTCEvent() : mDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!mDescriptor.isOpen()) {
        throwErrno<ZTCOsException>("eventfd", nullptr, errno);
    }
}

void ZTCEvent::set() {
    // Fails only when the count is at its end, and then it has happened already.
    static_cast<void>(eventfd_write(mDescriptor.get(), 1));
}

void ZTCEvent::clear() {
    eventfd_t lCount = 0;
    static_cast<void>(eventfd_read(mDescriptor.get(), &lCount));
}
