#include "gvxctl/inbox.h"

#include "base/clock.h"
#include "gvxctl/frame_text.h"
#include "gvxctl/terminal.h"

#include <algorithm>
#include <chrono>

namespace gvxctl {
namespace {

constexpr std::size_t kMaxEntries = 100000;
constexpr int kMostNamed = 8;

}  // namespace

void Inbox::Add(const std::string& linkId, const Frame& frame) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_entries.size() == kMaxEntries) {
        m_entries.pop_front();
    }
    m_entries.push_back(Entry{linkId, frame});
    m_came.notify_all();
}

void Inbox::Forget(const std::string& linkId) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto of = [&](const Entry& entry) { return entry.linkId == linkId; };
    m_entries.erase(std::remove_if(m_entries.begin(), m_entries.end(), of), m_entries.end());
}

Inbox::Result Inbox::Look(const std::string& linkId, const Test& test, bool next) {
    for (auto entry = m_entries.begin(); entry != m_entries.end(); ++entry) {
        if (entry->linkId != linkId) {
            continue;
        }
        if (test(entry->frame)) {
            m_entries.erase(entry);
            return Result::Taken;
        }
        if (next) {
            return Result::Other;
        }
    }
    return Result::Nothing;
}

Inbox::Result Inbox::Take(const std::string& linkId, const Test& test, bool next, int withinMs) {
    constexpr int kStepMs = 50;  // so that an interrupt ends the wait
    const std::int64_t end = gvx::MonotonicMilliseconds() + withinMs;
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        const Result result = Look(linkId, test, next);
        const std::int64_t left = end - gvx::MonotonicMilliseconds();
        if (result != Result::Nothing || left <= 0 || Interrupted()) {
            return result;
        }
        m_came.wait_for(lock, std::chrono::milliseconds(std::min<std::int64_t>(left, kStepMs)));
    }
}

std::string Inbox::Waiting(const std::string& linkId) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    std::string text;
    int count = 0;
    for (const Entry& entry : m_entries) {
        if (entry.linkId == linkId && ++count <= kMostNamed) {
            text += (text.empty() ? "" : ", ") + TypeText(entry.frame.Type());
        }
    }
    return count <= kMostNamed ? text : text + " and " + std::to_string(count - kMostNamed) + " more";
}

}  // namespace gvxctl
