// A thread that lives as long as the process, or as its work, and is joined by nobody.
#pragma once

/// Starts it with every signal blocked. Needs no memory of ours. Returns 0 or the errno.
int startDetachedThread(const char* apName, void* (*apMain)(void*), void* apArgument);
