// Sense data in the words of the SCSI standards.
#pragma once

#include <cstdint>
#include <string>

/// "not ready: asymmetric access state transition" of 2/04/0a. Empty when the standards have no words for the
/// code, as for those that are the maker's.
std::string senseText(std::uint32_t aKey, std::uint8_t aCode, std::uint8_t aQualifier);
/// The numbers as people write them: "2/04/0a".
std::string senseNumbers(std::uint32_t aKey, std::uint8_t aCode, std::uint8_t aQualifier);
