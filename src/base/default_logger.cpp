#include "base/default_logger.h"

#include "base/clock.h"
#include "base/log_fault.h"
#include "base/redact.h"
#include "base/rotating_file.h"

#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <vector>

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

spdlog::details::log_msg MessageOf(const std::string& line) {
    const spdlog::log_clock::time_point now{std::chrono::duration_cast<spdlog::log_clock::duration>(
        std::chrono::microseconds(gvx::CurrentClock().WallMicroseconds()))};
    return spdlog::details::log_msg(now, spdlog::source_loc{}, spdlog::string_view_t(), spdlog::level::info, line);
}

// The base's lock guards the file and the formatter.
class FileSink : public spdlog::sinks::base_sink<std::mutex> {
public:
    explicit FileSink(const OMLoggerOptions& options) : m_file(options.file, options.maxFileBytes, options.maxFiles) {
        std::string error;
        if (!m_file.Open(error)) {
            throw spdlog::spdlog_ex(error);
        }
    }

    void Check(gvx::LogFileState& state) {
        const std::lock_guard<std::mutex> lock(mutex_);
        m_file.Check(state, [this](std::uint64_t lost) {
            const std::string text =
                std::string(OMLogLevelName(OM_LOG_WARNING)) + " [Log] " + std::to_string(lost) + " lines are lost.";
            spdlog::memory_buf_t line;
            formatter_->format(MessageOf(text), line);
            return std::string(line.data(), line.size());
        });
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
};

class SpdlogLogger : public IOMLogger {
public:
    // file may be null; otherwise it is one of the sinks.
    SpdlogLogger(int level, std::vector<spdlog::sink_ptr> sinks, std::shared_ptr<FileSink> file)
        : m_level(level), m_sinks(std::move(sinks)), m_file(std::move(file)) {
        for (const spdlog::sink_ptr& sink : m_sinks) {
            sink->set_pattern("%Y-%m-%d %H:%M:%S.%e %v");
        }
    }

    bool IsEnabled(int level) const noexcept override { return level <= m_level; }

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
        for (const spdlog::sink_ptr& sink : m_sinks) {
            Guarded([&sink] { sink->flush(); });
        }
    }

    bool CheckFile(gvx::LogFileState& state) override {
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
            std::string line = OMLogLevelName(level);
            if (title != nullptr) {
                line.append(" [").append(title).append("]");
            }
            line.append(" ").append(FormatText(format, args));
            line = RedactSecrets(std::move(line));
            EscapeControls(line);
            line.append(" (").append(BaseName(place.file)).append(":").append(std::to_string(place.line));
            line.append(" ").append(place.function).append(")");
            HandOut(level, line);
        } catch (...) {
            // No memory for the line; the caller's work goes on.
        }
    }

    void HandOut(int level, const std::string& line) {
        const spdlog::details::log_msg message = MessageOf(line);
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

    const int m_level;
    const std::vector<spdlog::sink_ptr> m_sinks;
    const std::shared_ptr<FileSink> m_file;
};

}  // namespace

std::shared_ptr<IOMLogger> MakeDefaultLogger(const OMLoggerOptions& options, std::string* error) {
    try {
        std::vector<spdlog::sink_ptr> sinks;
        if (options.console) {
            sinks.push_back(std::make_shared<spdlog::sinks::stderr_sink_mt>());
        }
        std::shared_ptr<FileSink> file;
        if (!options.file.empty()) {
            file = std::make_shared<FileSink>(options);
            sinks.push_back(file);
        }
        return std::make_shared<SpdlogLogger>(options.level, std::move(sinks), std::move(file));
    } catch (const std::exception& fault) {
        if (error != nullptr) {
            *error = fault.what();
        }
        return nullptr;
    }
}
