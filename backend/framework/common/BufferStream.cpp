#include "BufferStream.h"

#include <cstdio>

void ZTCBufferStream::throwOverrun(unsigned int aCount) const {
    char lText[128];
    snprintf(lText, sizeof lText, "The message ends too early: %u bytes wanted at offset %u of %u", aCount,
             mOffset, getLength());
    throw ZTCInvalidEx(lText);
}
