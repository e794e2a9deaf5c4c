// The address sanitizer looks for leaks at an orderly exit; this has it look when a program leaves by
// quick_exit too.
#include <sanitizer/lsan_interface.h>

#include <cstdlib>

static const int sRegistered = at_quick_exit(__lsan_do_leak_check);
