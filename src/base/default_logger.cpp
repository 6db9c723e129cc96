#include "base/clock.h"
#include "base/om_adapter.h"

#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

#include <fcntl.h>

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

class SpdlogLogger : public IOMLogger {
public:
    SpdlogLogger(int level, std::vector<spdlog::sink_ptr> sinks) : m_level(level), m_sinks(std::move(sinks)) {
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
        const spdlog::log_clock::time_point now{std::chrono::duration_cast<spdlog::log_clock::duration>(
            std::chrono::microseconds(gvx::CurrentClock().WallMicroseconds()))};
        const spdlog::details::log_msg message(now, spdlog::source_loc{}, spdlog::string_view_t(), spdlog::level::info,
                                               line);
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
};

spdlog::sink_ptr MakeFileSink(const OMLoggerOptions& options) {
    spdlog::file_event_handlers handlers;
    handlers.after_open = [](const spdlog::filename_t&, std::FILE* stream) {
        fcntl(fileno(stream), F_SETFD, FD_CLOEXEC);
    };
    return std::make_shared<spdlog::sinks::rotating_file_sink_mt>(options.file, options.maxFileBytes, options.maxFiles,
                                                                  false, handlers);
}

}  // namespace

std::shared_ptr<IOMLogger> MakeDefaultLogger(const OMLoggerOptions& options, std::string* error) {
    try {
        std::vector<spdlog::sink_ptr> sinks;
        if (options.console) {
            sinks.push_back(std::make_shared<spdlog::sinks::stderr_sink_mt>());
        }
        if (!options.file.empty()) {
            sinks.push_back(MakeFileSink(options));
        }
        return std::make_shared<SpdlogLogger>(options.level, std::move(sinks));
    } catch (const std::exception& fault) {
        if (error != nullptr) {
            *error = fault.what();
        }
        return nullptr;
    }
}
