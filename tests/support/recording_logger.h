#pragma once

#include "base/om_adapter.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// Keeps every line that is logged, so that tests can ask for them. Any thread.
class RecordingLogger : public IOMLogger {
public:
    struct Line {
        int level;
        std::string title;  // empty for debug lines
        std::string text;
        std::string file;  // base name
        std::string function;
    };

    // Lines above this level are refused, as IsEnabled tells the callers.
    explicit RecordingLogger(int level = OM_LOG_DEBUG) : m_level(level) {}

    bool IsEnabled(int level) const noexcept override { return level <= m_level; }
    void VLog(int level, const char* title, const OMLogPlace& place, const char* format, va_list args) override
        __attribute__((format(printf, 5, 0)));
    void VDebug(const OMLogPlace& place, const char* format, va_list args) override
        __attribute__((format(printf, 3, 0)));

    std::vector<Line> Lines() const;
    // Lines whose text contains the given one, and whose title is the given one where it is not empty.
    std::vector<Line> Find(const std::string& text, const std::string& title = std::string()) const;
    std::size_t Count(const std::string& text, const std::string& title = std::string()) const {
        return Find(text, title).size();
    }
    bool Contains(const std::string& text, const std::string& title = std::string()) const {
        return Count(text, title) != 0;
    }
    std::size_t CountLevel(int level) const;
    // Waits until such a line was written, for limit at most; true when it was.
    bool WaitFor(const std::string& text, std::chrono::milliseconds limit = std::chrono::seconds(20)) const;
    void Clear();
    // All lines as one text, for failure messages.
    std::string Dump() const;

private:
    void Keep(int level, const char* title, const OMLogPlace& place, const char* format, va_list args)
        __attribute__((format(printf, 5, 0)));

    const int m_level;
    mutable std::mutex m_mutex;
    std::vector<Line> m_lines;  // Guarded by m_mutex.
};

// Installs a recorder for a scope and brings the former logger back at its end.
class ScopedRecordingLogger {
public:
    explicit ScopedRecordingLogger(int level = OM_LOG_DEBUG);
    ~ScopedRecordingLogger();
    ScopedRecordingLogger(const ScopedRecordingLogger&) = delete;
    ScopedRecordingLogger& operator=(const ScopedRecordingLogger&) = delete;

    RecordingLogger& operator*() const { return *m_recorder; }
    RecordingLogger* operator->() const { return m_recorder.get(); }

private:
    std::shared_ptr<RecordingLogger> m_recorder;
    std::shared_ptr<IOMLogger> m_former;
};
