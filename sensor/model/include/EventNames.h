// What numbers of the Fibre Channel and SCSI standards are called. Null if a number has no name here.
#pragma once

#include <cstdint>

const char* nameElsCommand(std::uint32_t aCommand);             ///< FC-LS: 3 is "PLOGI"
const char* nameRejectReason(std::uint32_t aReason);            ///< FC-LS, of an LS_RJT
const char* nameRejectExplanation(std::uint32_t aExplanation);  ///< FC-LS, of an LS_RJT
const char* nameSenseKey(std::uint32_t aKey);                   ///< SPC
const char* nameScsiOperation(std::uint32_t aOperation);        ///< SPC, SBC
const char* nameAddressFormat(std::uint32_t aFormat);           ///< FC-LS, of an RSCN's page
