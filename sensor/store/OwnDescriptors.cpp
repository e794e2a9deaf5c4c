#include "OwnDescriptors.h"

#include <linux/close_range.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <system_error>
#include <thread>

#include "StoreLock.h"

#ifdef __SANITIZE_THREAD__
// To it a number is the same descriptor in all threads: here it is not.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() {
    return "race:OwnDescriptors.cpp";
}
#endif

void withOwnDescriptors(const std::string& acrPath, const std::function<void()>& acrWork) {
    std::exception_ptr lpError;
    std::thread lThread;
    try {
        lThread = std::thread([&] {
            try {
                if (close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_UNSHARE) != 0) {
                    throw toStoreError(errno, acrPath);
                }
                acrWork();
            } catch (...) {
                lpError = std::current_exception();
            }
        });
    } catch (const std::system_error& lrError) {
        throw toStoreError(lrError.code().value(), acrPath);
    }
    lThread.join();
    if (lpError) {
        std::rethrow_exception(lpError);
    }
}
