// What a LUN says of itself: its vital product data, as sysfs has them.
#pragma once

#include <span>
#include <string>

/// The best name of the LUN itself in page 0x83: "naa.600601603b201a2f", else "eui.0025385b71b00a3c", else
/// "t10.VENDOR SERIAL", fit to be shown. Empty: it has none, or the page is none.
std::string readWwid(std::span<const unsigned char> aPage);
/// The serial number in page 0x80, fit to be shown. Empty as above.
std::string readSerial(std::span<const unsigned char> aPage);
