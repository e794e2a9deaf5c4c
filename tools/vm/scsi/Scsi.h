// The program that the virtual machine has for SCSI: it is the target's second LUN, it sends commands,
// and it speaks as the kernel does of the fabric.
#pragma once

#include <stdint.h>

enum { ZT_SenseBytes = 18 };

/// Ends the program, with errno's text.
_Noreturn void fail(const char* apWhat);
/// A number in the C notation, up to aMost. Ends the program if it is none.
uint64_t toNumber(const char* apText, int aBase, uint64_t aMost);
/// "KEY/ASC/ASCQ", in hex.
void readSense(const char* apText, uint8_t aSense[3]);

// Subcommands: their arguments behind their name; what main() returns.
int serve(int aCount, char** apArguments);
int tell(int aCount, char** apArguments);
int told(int aCount, char** apArguments);
int sendCommands(int aCount, char** apArguments);
int resetDevice(int aCount, char** apArguments);
int sendFpin(int aCount, char** apArguments);
