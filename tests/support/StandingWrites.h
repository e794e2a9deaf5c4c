// The test program's own writes to files, which can be made to stand still.
#pragma once

/// While it is true, whoever writes to a regular file waits. Of this process.
void ZTSetWritesStand(bool aStand);
/// Whether somebody waits.
bool ZTIsAWriteStanding();
