#include "gvxctl/terminal.h"

#include "base/clock.h"
#include "base/utf8.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <thread>

#include <poll.h>
#include <unistd.h>

namespace gvxctl {
namespace {

std::atomic<bool> g_interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set in a signal handler");

std::atomic<bool> g_nobodyReads{false};

void OnSignal(int) {
    g_interrupted = true;
}

// A link may be what has broken, too, and says so by itself.
void OnBrokenPipe(int) {
    const int savedErrno = errno;
    pollfd output{STDOUT_FILENO, 0, 0};
    if (::poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0) {
        g_nobodyReads = g_interrupted = true;
    }
    errno = savedErrno;
}

// The number of a character of that many bytes.
std::uint32_t NumberOf(const char* bytes, std::size_t size) {
    const auto first = static_cast<unsigned char>(bytes[0]);
    std::uint32_t number = size == 1 ? first : first & (0x7Fu >> size);
    for (std::size_t i = 1; i < size; ++i) {
        number = number << 6 | (static_cast<unsigned char>(bytes[i]) & 0x3Fu);
    }
    return number;
}

// Marks of direction make one text look like another.
bool Misleads(std::uint32_t number) {
    return number < 0x20 || (number >= 0x7F && number < 0xA0) || number == 0x200E || number == 0x200F ||
           (number >= 0x2028 && number <= 0x202E) || (number >= 0x2066 && number <= 0x2069);
}

std::string Escaped(std::uint32_t number) {
    char text[16];
    std::snprintf(text, sizeof text, number < 0x100 ? "\\x%02x" : "\\u%04x", number);
    return text;
}

std::string Shown(const std::string& text, std::size_t maxBytes, bool oneLine) {
    const std::size_t end = text.size() > maxBytes ? maxBytes : text.size();
    std::string shown;
    shown.reserve(end);
    for (std::size_t at = 0; at < end;) {
        const std::size_t size = gvx::Utf8CharacterLength(std::string_view(text).substr(at));
        const std::uint32_t number = size == 0 ? 0 : NumberOf(text.data() + at, size);
        if (size == 0) {
            shown += Escaped(static_cast<unsigned char>(text[at]));
        } else if (number == '\n' || number == '\t') {
            shown += !oneLine ? std::string(1, text[at]) : number == '\n' ? "\\n" : "\\t";
        } else if (Misleads(number)) {
            shown += Escaped(number);
        } else {
            shown.append(text, at, size);
        }
        at += size == 0 ? 1 : size;
    }
    return shown;
}

void Say(std::FILE* to, const char* head, const std::string& text) {
    std::fputs((head + Shown(text, std::string::npos, false) + "\n").c_str(), to);
    std::fflush(to);
}

}  // namespace

std::atomic<bool>& Interrupted() {
    return g_interrupted;
}

void CatchInterrupts() {
    struct sigaction action {};
    action.sa_handler = OnSignal;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    action.sa_handler = OnBrokenPipe;
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGPIPE, &action, nullptr);
}

bool NobodyReads() {
    return g_nobodyReads;
}

bool SleepUnlessInterrupted(int milliseconds) {
    const std::int64_t end = gvx::MonotonicMilliseconds() + milliseconds;
    while (!g_interrupted && gvx::MonotonicMilliseconds() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return !g_interrupted;
}

std::string Printable(const std::string& text, std::size_t maxBytes) {
    std::string shown = Shown(text, maxBytes, false);
    while (!shown.empty() && shown.back() == '\n') {
        shown.pop_back();
    }
    return text.size() > maxBytes ? shown + " ... (" + std::to_string(text.size()) + " bytes)" : shown;
}

std::string PrintableLine(const std::string& text) {
    return Shown(text, std::string::npos, true);
}

void Print(const std::string& text) {
    Say(stdout, "", text);
}

int Fail(int code, const std::string& error) {
    Say(stderr, "gvxctl: ", error);
    return code;
}

}  // namespace gvxctl
