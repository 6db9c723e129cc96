#include "base/default_logger.h"

#include "base/clock.h"
#include "base/log_fault.h"
#include "base/log_repeats.h"
#include "base/redact.h"
#include "base/rotating_file.h"
#include "base/shortage.h"
#include "base/utf8.h"

#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t kUsualTextBytes = 1024;
constexpr std::size_t kMaxTextBytes = 256u * 1024u;  // a line is never longer, whatever it quotes

const char* BaseName(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

// Text from outside must not begin a line of its own.
void EscapeControls(std::string& text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    std::string escaped;
    std::size_t copied = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const auto c = static_cast<unsigned char>(text[at]);
        if (c >= 0x20 && c != 0x7F) {
            continue;
        }
        char code[8];
        const int length = c == '\n'   ? std::snprintf(code, sizeof(code), "\\n")
                           : c == '\r' ? std::snprintf(code, sizeof(code), "\\r")
                           : c == '\t' ? std::snprintf(code, sizeof(code), "\\t")
                                       : std::snprintf(code, sizeof(code), "\\x%02X", c);
        escaped.append(text, copied, at - copied).append(code, static_cast<std::size_t>(length));
        copied = at + 1;
    }
    if (copied != 0) {
        text = escaped.append(text, copied, std::string::npos);
    }
}

std::string FormatText(const char* format, va_list args) __attribute__((format(printf, 1, 0)));

std::string FormatText(const char* format, va_list args) {
    char usual[kUsualTextBytes];
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(usual, sizeof(usual), format, args);
    std::string text;
    if (length >= 0 && static_cast<std::size_t>(length) < sizeof(usual)) {
        text.assign(usual, static_cast<std::size_t>(length));
    } else if (length >= 0) {
        text.resize(std::min(static_cast<std::size_t>(length), kMaxTextBytes));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    } else {
        text = format;
    }
    va_end(again);
    return text;
}

// A text as a string of JSON, with its quotes.
void AppendQuoted(std::string& json, const std::string& text) {
    json += '"';
    for (std::size_t at = 0; at < text.size();) {
        const auto c = static_cast<unsigned char>(text[at]);
        const std::size_t length = gvx::Utf8CharacterLength(std::string_view(text).substr(at));
        if (c == '"' || c == '\\') {
            json.append(1, '\\').append(1, static_cast<char>(c));
        } else if (c < 0x20 || c == 0x7F) {
            char code[8];
            std::snprintf(code, sizeof(code), "\\u%04x", c);
            json += code;
        } else if (length == 0) {
            json += gvx::kReplacementCharacter;
        } else {
            json.append(text, at, length);
        }
        at += std::max<std::size_t>(length, 1);
    }
    json += '"';
}

// Standard streams that whoever started the process has closed lead nowhere, so that no file or socket takes their
// numbers and gets what is said there. Ahead of the libraries above, which open descriptors as they are loaded.
[[maybe_unused]] const bool g_standardStreamsAreThere = [] {
    bool there = true;
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        there = (::fcntl(stream, F_GETFD) != -1 || ::open("/dev/null", O_RDWR) == stream) && there;
    }
    return there;
}();

// Whether standard error leads to the journal.
bool StandardErrorIsJournal() {
    const char* const stream = std::getenv("JOURNAL_STREAM");
    struct stat status {};
    return stream != nullptr && fstat(STDERR_FILENO, &status) == 0 &&
           std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) == stream;
}

// What stands before each line, in spdlog's terms; the name of the logger is the number of the level.
std::string PatternOf(bool json, bool journal) {
    const std::string level = journal ? "<%n>" : "";
    if (json) {
        return level + R"({"time":"%Y-%m-%dT%H:%M:%S.%e%z",%v)";
    }
    return level + (journal ? "%v" : "%Y-%m-%d %H:%M:%S.%e %v");
}

// What is known of a line beside its text. title null: none; file null: no place.
struct LineHead {
    int level;
    const char* title;
    OMLogPlace place;
};

std::string TextLine(const LineHead& head, const std::string& text) {
    std::string line = OMLogLevelName(head.level);
    if (head.title != nullptr) {
        line.append(" [").append(head.title).append("]");
    }
    line.append(" ").append(text);
    line = RedactSecrets(std::move(line));
    EscapeControls(line);
    if (head.place.file != nullptr) {
        line.append(" (").append(BaseName(head.place.file)).append(":").append(std::to_string(head.place.line));
        line.append(" ").append(head.place.function).append(")");
    }
    return line;
}

std::string JsonLine(const LineHead& head, const std::string& text) {
    std::string line = std::string("\"level\":\"") + OMLogLevelName(head.level) + "\"";
    if (head.title != nullptr) {
        AppendQuoted(line += ",\"title\":", RedactSecrets(head.title));
    }
    AppendQuoted(line += ",\"text\":", RedactSecrets(text));
    if (head.place.file != nullptr) {
        AppendQuoted(line += ",\"file\":", BaseName(head.place.file));
        line.append(",\"line\":").append(std::to_string(head.place.line));
        AppendQuoted(line += ",\"function\":", head.place.function);
    }
    return line += '}';
}

spdlog::details::log_msg MessageOf(int level, const std::string& line) {
    static constexpr const char* kNumbers[] = {"0", "1", "2", "3", "4", "5", "6", "7"};
    const spdlog::log_clock::time_point now{std::chrono::duration_cast<spdlog::log_clock::duration>(
        std::chrono::microseconds(gvx::CurrentClock().WallMicroseconds()))};
    const char* const number = kNumbers[std::clamp<int>(level, OM_LOG_EMERG, OM_LOG_DEBUG)];
    return spdlog::details::log_msg(now, spdlog::source_loc{}, number, spdlog::level::info, line);
}

// The base's lock guards the file and the formatter.
class FileSink : public spdlog::sinks::base_sink<std::mutex> {
public:
    FileSink(const OMLoggerOptions& options, std::string& error)
        : m_file(options.file, options.maxFileBytes, options.maxFiles), m_json(options.json) {
        if (!m_file.Open(error) && !options.triesAgain) {
            throw spdlog::spdlog_ex(error);
        }
    }

    void Check(gvx::LogFileState& state) {
        const std::lock_guard<std::mutex> lock(mutex_);
        m_file.Check(state, [this](std::uint64_t lost) {
            const LineHead head{OM_LOG_WARNING, "Log", {nullptr, 0, nullptr}};
            const std::string text = std::to_string(lost) + " lines are lost.";
            spdlog::memory_buf_t line;
            formatter_->format(MessageOf(head.level, m_json ? JsonLine(head, text) : TextLine(head, text)), line);
            return std::string(line.data(), line.size());
        });
    }

    void OpenAnew() {
        const std::lock_guard<std::mutex> lock(mutex_);
        m_file.OpenAnew();
    }

protected:
    void sink_it_(const spdlog::details::log_msg& message) override {
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
        m_file.Append(line.data(), line.size());
    }
    void flush_() override { m_file.Flush(); }

private:
    gvx::RotatingFile m_file;
    const bool m_json;
};

class SpdlogLogger : public IOMLogger {
public:
    // file may be null; otherwise it is one of the sinks.
    SpdlogLogger(const OMLoggerOptions& options, std::vector<spdlog::sink_ptr> sinks, std::shared_ptr<FileSink> file)
        : m_level(options.level),
          m_json(options.json),
          m_sinks(std::move(sinks)),
          m_file(std::move(file)),
          m_repeats(options.repeatLimit) {
        const bool journal = StandardErrorIsJournal();
        for (const spdlog::sink_ptr& sink : m_sinks) {
            sink->set_pattern(PatternOf(m_json, journal && sink != m_file));
        }
    }

    bool IsEnabled(int level) const noexcept override { return level <= m_level.load(std::memory_order_relaxed); }
    int Level() const noexcept override { return m_level; }
    bool SetLevel(int level) noexcept override {
        m_level = level;
        return true;
    }

    void VLog(int level, const char* title, const OMLogPlace& place, const char* format, va_list args) override
        __attribute__((format(printf, 5, 0))) {
        if (IsEnabled(level)) {
            Write(level, title == nullptr ? "" : title, place, format, args);
        }
    }

    void VDebug(const OMLogPlace& place, const char* format, va_list args) override
        __attribute__((format(printf, 3, 0))) {
        if (IsEnabled(OM_LOG_DEBUG)) {
            Write(OM_LOG_DEBUG, nullptr, place, format, args);
        }
    }

    void Flush() override {
        TellRepeats(true);
        for (const spdlog::sink_ptr& sink : m_sinks) {
            Guarded([&sink] { sink->flush(); });
        }
    }

    void OpenAnew() override {
        if (m_file != nullptr) {
            Guarded([this] { m_file->OpenAnew(); });
        }
    }

    bool CheckFile(gvx::LogFileState& state) override {
        TellRepeats(false);
        if (m_file == nullptr) {
            return false;
        }
        Guarded([&] { m_file->Check(state); });
        return true;
    }

private:
    // A line that a sink cannot write is dropped there: nothing is left to tell it to.
    template <typename Work>
    static void Guarded(Work work) noexcept {
        try {
            work();
        } catch (...) {
            // The other sinks still get the line.
        }
    }

    void Write(int level, const char* title, const OMLogPlace& place, const char* format, va_list args)
        __attribute__((format(printf, 5, 0))) {
        try {
            const auto tell = [this](const gvx::LogRepeats::Held& held) { TellHeld(held); };
            if (m_repeats.Take(level, title, place, gvx::MonotonicMilliseconds(), tell)) {
                WriteText({level, title, place}, FormatText(format, args));
            }
        } catch (...) {
            // No memory for the line; the caller's work goes on.
        }
    }

    void WriteText(const LineHead& head, const std::string& text) {
        HandOut(head.level, m_json ? JsonLine(head, text) : TextLine(head, text));
    }

    void TellHeld(const gvx::LogRepeats::Held& held) {
        const OMLogPlace place{held.file, held.line, held.function};
        WriteText({held.level, held.title, place},
                  "... " + std::to_string(held.count) + " more like this in the last minute");
    }

    void TellRepeats(bool all) {
        Guarded([&] {
            m_repeats.TellEnded(gvx::MonotonicMilliseconds(), all,
                                [this](const gvx::LogRepeats::Held& held) { TellHeld(held); });
        });
    }

    void HandOut(int level, const std::string& line) {
        const spdlog::details::log_msg message = MessageOf(level, line);
        for (const spdlog::sink_ptr& sink : m_sinks) {
            Guarded([&] {
                sink->log(message);
                // Debug lines may wait in the buffer; what an operator looks for must survive a crash.
                if (level <= OM_LOG_INFO) {
                    sink->flush();
                }
            });
        }
    }

    std::atomic<int> m_level;
    const bool m_json;
    const std::vector<spdlog::sink_ptr> m_sinks;
    const std::shared_ptr<FileSink> m_file;
    gvx::LogRepeats m_repeats;
};

}  // namespace

std::shared_ptr<IOMLogger> MakeDefaultLogger(const OMLoggerOptions& options, std::string* error) {
    std::string reason;
    try {
        std::vector<spdlog::sink_ptr> sinks;
        if (options.console) {
            sinks.push_back(std::make_shared<spdlog::sinks::stderr_sink_mt>());
        }
        std::shared_ptr<FileSink> file;
        if (!options.file.empty()) {
            file = std::make_shared<FileSink>(options, reason);
            sinks.push_back(file);
        }
        if (error != nullptr && !reason.empty()) {
            *error = reason;
        }
        return std::make_shared<SpdlogLogger>(options, std::move(sinks), std::move(file));
    } catch (const std::exception& fault) {
        if (dynamic_cast<const std::bad_alloc*>(&fault) != nullptr) {
            gvx::NoteShortage(gvx::Resource::Memory, ENOMEM);
        }
        if (error != nullptr) {
            *error = fault.what();
        }
        return nullptr;
    }
}
