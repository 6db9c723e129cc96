#include "support/recording_logger.h"

#include "support/wait_until.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

namespace {

std::string FormatText(const char* format, va_list args) __attribute__((format(printf, 1, 0)));

std::string FormatText(const char* format, va_list args) {
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

}  // namespace

void RecordingLogger::Keep(int level, const char* title, const OMLogPlace& place, const char* format, va_list args) {
    Line line{level, title, FormatText(format, args), std::filesystem::path(place.file).filename(), place.function};
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.push_back(std::move(line));
}

void RecordingLogger::VLog(int level, const char* title, const OMLogPlace& place, const char* format, va_list args) {
    if (IsEnabled(level)) {
        Keep(level, title == nullptr ? "" : title, place, format, args);
    }
}

void RecordingLogger::VDebug(const OMLogPlace& place, const char* format, va_list args) {
    if (IsEnabled(OM_LOG_DEBUG)) {
        Keep(OM_LOG_DEBUG, "", place, format, args);
    }
}

std::vector<RecordingLogger::Line> RecordingLogger::Lines() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

std::vector<RecordingLogger::Line> RecordingLogger::Find(const std::string& text, const std::string& title) const {
    std::vector<Line> found;
    for (const Line& line : Lines()) {
        if (line.text.find(text) != std::string::npos && (title.empty() || line.title == title)) {
            found.push_back(line);
        }
    }
    return found;
}

std::size_t RecordingLogger::CountLevel(int level) const {
    const std::vector<Line> lines = Lines();
    return static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(), [level](const Line& line) { return line.level == level; }));
}

bool RecordingLogger::WaitFor(const std::string& text, std::chrono::milliseconds limit) const {
    return WaitUntil([&] { return Contains(text); }, limit);
}

void RecordingLogger::Clear() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

std::string RecordingLogger::Dump() const {
    std::string all;
    for (const Line& line : Lines()) {
        all += std::string(OMLogLevelName(line.level)) + " [" + line.title + "] " + line.text + "\n";
    }
    return all;
}

ScopedRecordingLogger::ScopedRecordingLogger(int level)
    : m_recorder(std::make_shared<RecordingLogger>(level)), m_former(OMAdapter::getInstance()->getSharedLogger()) {
    OMAdapter::getInstance()->setLogger(m_recorder);
}

ScopedRecordingLogger::~ScopedRecordingLogger() {
    OMAdapter::getInstance()->setLogger(m_former);
}
