// A record in words. acrFields are those of its block (fieldsOf).
#pragma once

#include <string>

#include "Fetched.h"

/// Its kind's name, or its numbers.
std::string kindText(const ZTSSensorRecord& acrRecord);
/// The port beyond the fabric that it is about: a registered target's port name, else the port name that the
/// event gives, else the port id of an RSCN. "-" if there is none.
std::string remoteText(const ZTSSensorRecord& acrRecord, const std::optional<ZTEventGroup>& acrFields);
/// What else the event says: "not ready: asymmetric access state transition (sense 2/04/0a), luns 3,5-7".
std::string detailText(const ZTSSensorRecord& acrRecord, const std::optional<ZTEventGroup>& acrFields);
/// "1 record", "2 records".
std::string countText(std::uint64_t aCount, const char* apThing);
