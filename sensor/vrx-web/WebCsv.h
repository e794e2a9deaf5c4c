// Records as comma-separated values (RFC 4180), for people who go on in a spreadsheet.
#pragma once

#include <string>

std::string webCsvHeading();
/// Of a record's JSON. A text that a spreadsheet would take for a formula has a ' before it.
std::string webCsvLineOf(const std::string& acrJson);
