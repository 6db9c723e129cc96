#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

namespace gvxfile {

// Makes lines of the pieces that connections bring, whatever the cuts. What is kept of a connection is bounded in
// length and number, and what goes beyond is dropped with a log line; a part whose connection has fallen silent is
// dropped without one. One thread at a time.
class LineAssembler {
public:
    static constexpr std::size_t kMaxLine = 4096;
    static constexpr std::size_t kMaxConnections = 4096;  // that have sent a part of a line
    // A connection does not live so long without a word.
    static constexpr std::int64_t kMaxSilenceMs = 60000;

    // A whole line without its end ("\n" or "\r\n"), never empty.
    using TakeLine = std::function<void(const std::string& line)>;

    // The next bytes of a connection, which any text names.
    void Add(const std::string& connection, const char* data, std::size_t length, const TakeLine& take);

private:
    struct Rest {
        std::string text;
        bool tooLong = false;  // the line's end is waited for, and nothing kept
        std::int64_t sinceMs = 0;
    };

    void Append(Rest& rest, const std::string& connection, const char* data, std::size_t length);
    void Finish(Rest& rest, const TakeLine& take);
    bool MakeRoom(const std::string& connection, std::int64_t nowMs);

    std::unordered_map<std::string, Rest> m_rests;  // by connection
};

}  // namespace gvxfile
