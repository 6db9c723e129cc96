#pragma once

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

// Bounded string functions with the meaning of C11 Annex K (ISO/IEC 9899:2011, K.3.7 and K.3.5.3), with the
// result as value and no constraint handler. Nothing is ever cut silently: what does not fit fails, and the
// target then holds an empty text (zeroes for memcpy_s). 0 is success; EINVAL a null pointer or a size of 0;
// ERANGE a source that does not fit. All are safe to call from any thread.

// Copies count bytes; on failure the target, when there is one, is zeroed for destMax bytes.
inline int memcpy_s(void* dest, std::size_t destMax, const void* src, std::size_t count) {
    if (dest == nullptr || destMax == 0) {
        return EINVAL;
    }
    if (src == nullptr || count > destMax) {
        std::memset(dest, 0, destMax);
        return src == nullptr ? EINVAL : ERANGE;
    }
    std::memcpy(dest, src, count);
    return 0;
}

// Fills count bytes with value; more than destMax fails with ERANGE and fills destMax bytes. The fill is never
// optimised away, so it may wipe secrets.
int memset_s(void* dest, std::size_t destMax, int value, std::size_t count);

// Copies at most count characters of src and a terminator.
int strncpy_s(char* dest, std::size_t destMax, const char* src, std::size_t count);

// Appends at most count characters of src and a terminator.
int strncat_s(char* dest, std::size_t destMax, const char* src, std::size_t count);

// Formatted output: the length without the terminator, or -1 when it does not fit (count or destMax) or fails.
int snprintf_s(char* dest, std::size_t destMax, std::size_t count, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
int sprintf_s(char* dest, std::size_t destMax, const char* format, ...) __attribute__((format(printf, 3, 4)));
int vsnprintf_s(char* dest, std::size_t destMax, std::size_t count, const char* format, va_list args)
    __attribute__((format(printf, 4, 0)));

// Formatted input. Each %s, %c and %[ conversion takes two arguments: the target and its size (unsigned int).
// A text that does not fit fails the conversion rather than being cut. Returns the number of conversions
// assigned, EOF for an input failure before the first, -1 for a null argument. Wide conversions (%ls) and %ms are not
// known here and end the scan.
int sscanf_s(const char* buffer, const char* format, ...);
