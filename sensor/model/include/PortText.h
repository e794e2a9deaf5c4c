// What a port is called, and which ports somebody means.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Ports.h"

/// Its line of the names file; one of empty texts if it has none.
const ZTSPortLabel& labelOf(const ZTPortLabels& acrLabels, const std::optional<ZTSWwn>& acrPort);

/// What people call a port: its name in the names file, else its number; fit to be shown. "-" for none.
std::string portText(const ZTPortLabels& acrLabels, const std::optional<ZTSWwn>& acrPort);

/// The ports whose numbers stand in a text, in the form of ZTSWwn::toText().
std::vector<ZTSWwn> listPortsIn(std::string_view aText);
/// The text with the names of ports in place of their numbers, where they have names.
std::string nameThePortsIn(const ZTPortLabels& acrLabels, std::string_view aText);

/// The port of a number or a name; else all of an array, or of a controller: "array1", "array1/A". Empty: it
/// is none of these.
std::vector<ZTSWwn> findPorts(const ZTPortLabels& acrLabels, std::string_view aText);
