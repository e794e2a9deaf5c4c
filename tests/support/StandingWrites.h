// The test program's own reads and writes of files, which can be made to stand still. Of this process.
#pragma once

/// While it is true, whoever writes to a regular file waits.
void ZTSetWritesStand(bool aStand);
/// Whether somebody waits.
bool ZTIsAWriteStanding();

/// Whoever reads a file whose path holds this text waits, until it is null again. The text outlives that.
void ZTSetReadsStand(const char* apPart);
bool ZTIsAReadStanding();
