#include "bp/cmd.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/random.h"

#include <atomic>

namespace BP {

namespace {

// Drawn once: what tells this process from every other, and from itself before a restart.
std::uint64_t DrawProcessPart() {
    std::uint64_t part = 0;
    if (CBB::GenerateRandom(&part, sizeof(part)) != 0) {
        GVX_LOG_WARN("Transaction text", "No random bytes, the time of day stands in for them.");
        part = static_cast<std::uint64_t>(gvx::CurrentClock().WallMicroseconds());
    }
    return part;
}

constexpr std::size_t kHexDigits = 16;

// One is drawn for every command served, so it is written without a format.
void WriteHex(std::uint64_t value, char* text) {
    for (std::size_t digit = kHexDigits; digit-- > 0; value >>= 4) {
        text[digit] = "0123456789abcdef"[value & 0xF];
    }
}

}  // namespace

std::string CMKTransID::GenerateTransID() {
    static const std::uint64_t processPart = DrawProcessPart();
    static std::atomic<std::uint64_t> counter{0};
    std::string text(2 * kHexDigits + 1, '-');
    WriteHex(processPart, &text[0]);
    WriteHex(counter.fetch_add(1) + 1, &text[kHexDigits + 1]);
    return text;
}

}  // namespace BP
