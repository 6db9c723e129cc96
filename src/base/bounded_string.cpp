#include "base/bounded_string.h"

#include <algorithm>

namespace {

int FailEmpty(char* dest, std::size_t destMax, int error) {
    if (dest != nullptr && destMax != 0) {
        dest[0] = '\0';
    }
    return error;
}

int PrintFailed(char* dest, std::size_t destMax) {
    return FailEmpty(dest, destMax, -1);
}

}  // namespace

int memset_s(void* dest, std::size_t destMax, int value, std::size_t count) {
    if (dest == nullptr || destMax == 0) {
        return EINVAL;
    }
    std::memset(dest, value, std::min(count, destMax));
    // The compiler must take the bytes for read, so that the fill of a dying buffer stays.
    __asm__ __volatile__("" : : "r"(dest) : "memory");
    return count > destMax ? ERANGE : 0;
}

int strncpy_s(char* dest, std::size_t destMax, const char* src, std::size_t count) {
    if (dest == nullptr || destMax == 0 || src == nullptr) {
        return FailEmpty(dest, destMax, EINVAL);
    }
    const std::size_t length = strnlen(src, std::min(count, destMax));
    if (length >= destMax) {
        return FailEmpty(dest, destMax, ERANGE);
    }
    std::memmove(dest, src, length);
    dest[length] = '\0';
    return 0;
}

int strncat_s(char* dest, std::size_t destMax, const char* src, std::size_t count) {
    if (dest == nullptr || destMax == 0 || src == nullptr) {
        return FailEmpty(dest, destMax, EINVAL);
    }
    const std::size_t present = strnlen(dest, destMax);
    if (present == destMax || strncpy_s(dest + present, destMax - present, src, count) != 0) {
        return FailEmpty(dest, destMax, ERANGE);
    }
    return 0;
}

int vsnprintf_s(char* dest, std::size_t destMax, std::size_t count, const char* format, va_list args) {
    if (dest == nullptr || destMax == 0 || format == nullptr) {
        return PrintFailed(dest, destMax);
    }
    const int length = std::vsnprintf(dest, destMax, format, args);
    if (length < 0 || static_cast<std::size_t>(length) >= destMax || static_cast<std::size_t>(length) > count) {
        return PrintFailed(dest, destMax);
    }
    return length;
}

int snprintf_s(char* dest, std::size_t destMax, std::size_t count, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int length = vsnprintf_s(dest, destMax, count, format, args);
    va_end(args);
    return length;
}

int sprintf_s(char* dest, std::size_t destMax, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int length = vsnprintf_s(dest, destMax, destMax, format, args);
    va_end(args);
    return length;
}
