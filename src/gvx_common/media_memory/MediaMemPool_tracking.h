#pragma once

#include "gvx_common/media_memory/spinlock.h"

#include <map>
#include <string>

// What has been taken from the pool and not returned: the block's address, and where it was taken. Filled only while
// losses are tracked. Guarded by g_lock.
extern std::map<unsigned long, std::string> g_lostPacketMap;
extern Spinlock g_lock;  // zero-initialised and never passed through spinlock_init

// Enter, strike out, and write the whole list to the log in the order of the addresses. Any thread.
void PUSH(unsigned long key, const std::string& value);
void POP(unsigned long key);
void PRINT();

// A text of at most 2048 bytes; empty when it is longer or cannot be formatted.
std::string Format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
