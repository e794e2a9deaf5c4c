// The language: what may be told to a made-up host.
#pragma once

#include <span>
#include <string>

#include "MadeUpHost.h"

struct ZTSHostVerb {
    const char* mpName;
    const char* mpForm;  ///< what follows it
    const char* mpExample;
    const char* mpHelp;
    void (*mpPlay)(ZTCMadeUpHost& arHost, ZTCHostWords& arWords);
};

std::span<const ZTSHostVerb> getHostVerbs();
/// Plays a line and returns what it has to report, mostly nothing. Throws ZTCHostSimError: what is wrong,
/// what was expected; then what the line says may be done by half.
std::string playHostLine(ZTCMadeUpHost& arHost, std::string_view aLine);
