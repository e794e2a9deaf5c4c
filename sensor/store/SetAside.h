// A damaged store is kept, under another name.
#pragma once

#include <string>

/// FILE.damaged-YYYYMMDDTHHMMSSZ, which is not there yet.
std::string nameStoreAside(const std::string& acrPath);
/// Renames the file and its log, and removes their index. It can be done again after it was cut short. Throws
/// ZTCStoreError.
void setStoreAside(const std::string& acrPath, const std::string& acrAside);
