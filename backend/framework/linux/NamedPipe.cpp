#include "NamedPipe.h"

#include <sys/eventfd.h>

#include <cerrno>

#include "Exception.h"
#include "Log.h"
#include "PipeFile.h"
#include "PipeReadingEnd.h"
#include "PipeWritingEnd.h"

namespace {

constexpr char sFile[] = "NamedPipe";

}  // namespace

ZTCNamedPipe::ZTCNamedPipe(const ZTCString& acrPath, unsigned char aDirection, unsigned char /*aMode*/,
                           unsigned char /*aServer*/)
    : mFile(makePointer<ZTCPipeFile>(acrPath)), mDirection(aDirection) {
    const ZTCTraceScope lTrace(sFile);
    mCancel = ZTCDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!mCancel.isOpen()) {
        mFile->fail("eventfd", errno);
    }
}

ZTCNamedPipe::~ZTCNamedPipe() {
    try {
        ZTCNamedPipe::close(0);
        ZTCNamedPipe::destroy(0);
    } catch (const ZTCException& lrException) {
        Log(ZTLL_Warning, sFile, "%s", lrException.what());
    }
}

void ZTCNamedPipe::create(unsigned int /*aFlags*/) {
    mFile->make();
}

void ZTCNamedPipe::destroy(unsigned int /*aFlags*/) {
    mFile->remove();
}

void ZTCNamedPipe::open(unsigned int /*aFlags*/) {
    if (mDirection == ZTNPD_Read) {
        makePointer<ZTCPipeReadingEnd>(mFile, mCancel.get()).swap(mReadingEnd);
    } else {
        makePointer<ZTCPipeWritingEnd>(mFile, mCancel.get()).swap(mWritingEnd);
    }
}

void ZTCNamedPipe::close(unsigned int /*aFlags*/) {
    ZTCPointer<ZTCPipeReadingEnd>().swap(mReadingEnd);
    ZTCPointer<ZTCPipeWritingEnd>().swap(mWritingEnd);
}

void ZTCNamedPipe::cancel() {
    eventfd_write(mCancel.get(), 1);
}

bool ZTCNamedPipe::isOpen() const {
    return mReadingEnd != nullptr || mWritingEnd != nullptr;
}

void ZTCNamedPipe::read(void* apBytes, unsigned int aLength) {
    mReadingEnd->read(apBytes, aLength);
}

void ZTCNamedPipe::write(const iovec* apPieces, unsigned int aCount) {
    mWritingEnd->write(apPieces, aCount);
}

bool ZTCNamedPipe::waitForActivity(const ZTCActivityWait& acrWait) {
    return mReadingEnd->waitForActivity(acrWait);
}

int ZTCNamedPipe::getChangeDescriptor() const {
    return mWritingEnd != nullptr ? mWritingEnd->getChangeDescriptor() : -1;
}

void ZTCNamedPipe::settle() {
    mWritingEnd->settle();
}
