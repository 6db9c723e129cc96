#include "base/bounded_string.h"

#include <algorithm>
#include <cstdlib>
#include <string>

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

// One directive of a format: the text before it, and the conversion cut into its pieces.
struct Directive {
    std::string before;       // literal text and blanks, as they stand
    bool suppressed = false;  // "%*"
    std::size_t width = 0;    // 0: none given
    std::string modifier;     // "hh", "ll", ...
    std::string conversion;   // "d", "s", "[^,]", ...; empty at the end of the format
    bool IsText() const { return conversion[0] == 's' || conversion[0] == 'c' || conversion[0] == '['; }
};

// Moves past a set such as "[^]a-z]"; null when it has no end.
const char* SkipSet(const char* at) {
    ++at;
    if (*at == '^') {
        ++at;
    }
    if (*at == ']') {
        ++at;
    }
    while (*at != '\0' && *at != ']') {
        ++at;
    }
    return *at == '\0' ? nullptr : at + 1;
}

// Reads the next directive and moves behind it; false for a format that is not understood.
bool NextDirective(const char*& at, Directive& directive) {
    while (*at != '\0' && (at[0] != '%' || at[1] == '%')) {
        const std::size_t length = at[0] == '%' ? 2 : 1;
        directive.before.append(at, length);
        at += length;
    }
    if (*at == '\0') {
        return true;
    }
    ++at;
    if (*at == '*') {
        directive.suppressed = true;
        ++at;
    }
    char* end = nullptr;
    directive.width = std::strtoul(at, &end, 10);
    at = end;
    while (*at != '\0' && std::strchr("hljztL", *at) != nullptr) {
        directive.modifier += *at++;
    }
    if (*at == '\0' || std::strchr("diouxXaAeEfFgGcspn[", *at) == nullptr) {
        return false;
    }
    const char* behind = *at == '[' ? SkipSet(at) : at + 1;
    if (behind == nullptr) {
        return false;
    }
    directive.conversion.assign(at, behind);
    at = behind;
    return true;
}

// The directives are run one by one, each through a format made of the caller's own piece; the target of a text is
// a buffer of known size. So the formats cannot be literals here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

enum class Outcome { assigned, passed, mismatch, inputEnd };

class Scanner {
public:
    explicit Scanner(const char* text) : m_start(text), m_at(text) {}

    Outcome RunNumber(const Directive& directive, void* target) { return Run(directive, directive.width, target); }

    // Reads one character more than fits, which shows that a text is too long.
    Outcome RunText(const Directive& directive, char* target, unsigned int size) {
        if (target == nullptr || size == 0 || !directive.modifier.empty()) {
            return Outcome::mismatch;
        }
        target[0] = '\0';
        const bool single = directive.conversion == "c";
        const std::size_t wanted = single && directive.width == 0 ? 1 : directive.width;
        const std::size_t room = single ? size : size - 1;
        std::string buffer(room + 2, '\0');
        const std::size_t width = wanted != 0 && wanted <= room ? wanted : room + 1;
        if (single && width > room) {
            return Outcome::mismatch;
        }
        const Outcome outcome = Run(directive, width, buffer.data());
        if (outcome != Outcome::assigned) {
            return outcome;
        }
        const std::size_t length = single ? width : std::strlen(buffer.c_str());
        if (length > room) {
            return Outcome::mismatch;
        }
        std::memcpy(target, buffer.data(), length);
        if (!single) {
            target[length] = '\0';
        }
        return outcome;
    }

    Outcome RunPosition(const Directive& directive, int* target) {
        if (target == nullptr || !directive.modifier.empty() || directive.suppressed) {
            return Outcome::mismatch;
        }
        int consumed = -1;
        const int result = std::sscanf(m_at, (directive.before + "%n").c_str(), &consumed);
        if (consumed < 0) {
            return result == EOF ? Outcome::inputEnd : Outcome::mismatch;
        }
        m_at += consumed;
        *target = static_cast<int>(m_at - m_start);
        return Outcome::passed;
    }

private:
    Outcome Run(const Directive& directive, std::size_t width, void* target) {
        std::string format = directive.before + (directive.suppressed ? "%*" : "%");
        if (width != 0) {
            format += std::to_string(width);
        }
        format += directive.modifier + directive.conversion + "%n";
        int consumed = -1;
        const int result = directive.suppressed ? std::sscanf(m_at, format.c_str(), &consumed)
                                                : std::sscanf(m_at, format.c_str(), target, &consumed);
        if (consumed < 0) {
            return result == EOF ? Outcome::inputEnd : Outcome::mismatch;
        }
        m_at += consumed;
        return directive.suppressed ? Outcome::passed : Outcome::assigned;
    }

    const char* const m_start;
    const char* m_at;
};

#pragma GCC diagnostic pop

Outcome RunDirective(Scanner& scanner, const Directive& directive, va_list& args) {
    if (directive.suppressed) {
        return scanner.RunNumber(directive, nullptr);
    }
    if (directive.conversion == "n") {
        return scanner.RunPosition(directive, va_arg(args, int*));
    }
    if (directive.IsText()) {
        char* target = va_arg(args, char*);
        const unsigned int size = va_arg(args, unsigned int);
        return scanner.RunText(directive, target, size);
    }
    void* target = va_arg(args, void*);
    return target == nullptr ? Outcome::mismatch : scanner.RunNumber(directive, target);
}

int ScanAll(const char* buffer, const char* format, va_list& args) {
    Scanner scanner(buffer);
    int assigned = 0;
    for (;;) {
        Directive directive;
        if (!NextDirective(format, directive) || directive.conversion.empty()) {
            return assigned;
        }
        const Outcome outcome = RunDirective(scanner, directive, args);
        if (outcome == Outcome::inputEnd) {
            return assigned == 0 ? EOF : assigned;
        }
        if (outcome == Outcome::mismatch) {
            return assigned;
        }
        assigned += outcome == Outcome::assigned ? 1 : 0;
    }
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

int sscanf_s(const char* buffer, const char* format, ...) {
    if (buffer == nullptr || format == nullptr) {
        return -1;
    }
    va_list args;
    va_start(args, format);
    const int result = ScanAll(buffer, format, args);
    va_end(args);
    return result;
}
