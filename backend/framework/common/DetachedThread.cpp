#include "DetachedThread.h"

#include <pthread.h>

#include <csignal>

int startDetachedThread(const char* apName, void* (*apMain)(void*), void* apArgument) {
    sigset_t lAll;
    sigset_t lBefore;
    sigfillset(&lAll);
    pthread_sigmask(SIG_SETMASK, &lAll, &lBefore);
    pthread_t lThread;
    const int lErrno = pthread_create(&lThread, nullptr, apMain, apArgument);
    pthread_sigmask(SIG_SETMASK, &lBefore, nullptr);
    if (lErrno == 0) {
        pthread_setname_np(lThread, apName);
        pthread_detach(lThread);
    }
    return lErrno;
}
