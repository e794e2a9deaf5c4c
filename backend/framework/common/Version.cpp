#include "Version.h"

namespace {

ZTCString sTextOf(unsigned int aMajor, unsigned int aMinor, unsigned int aRelease, unsigned int aBuild) {
    char lText[4 * sizeof "4294967295."];
    ClibSprintf(lText, "%u.%u.%u.%u", aMajor, aMinor, aRelease, aBuild);
    return ZTCString(lText);
}

}  // namespace

ZTCVersion::ZTCVersion(unsigned int aMajor, unsigned int aMinor, unsigned int aRelease, unsigned int aBuild)
    : mText(sTextOf(aMajor, aMinor, aRelease, aBuild)) {}
