#include "gateway/admin/event_feed.h"

#include "base/clock.h"
#include "base/json_io.h"
#include "base/log.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace gvx {

namespace {

// A comment that often keeps a quiet connection open, and shows one that is gone.
constexpr int kTurnsPerComment = 15;
constexpr const char* kComment = ": still here\n\n";
// How soon a reader comes back, in milliseconds.
constexpr const char* kGreeting = "retry: 2000\n\n";

// Rows in the order of their keys.
template <typename Row, typename Key>
std::vector<const Row*> Ordered(const std::vector<Row>& rows, const Key& key) {
    std::vector<const Row*> ordered;
    ordered.reserve(rows.size());
    for (const Row& row : rows) {
        ordered.push_back(&row);
    }
    const auto before = [&key](const Row* one, const Row* other) { return key(*one) < key(*other); };
    if (!std::is_sorted(ordered.begin(), ordered.end(), before)) {
        std::sort(ordered.begin(), ordered.end(), before);
    }
    return ordered;
}

// Walks two lists side by side: tell gets the row of each, null where there is none.
template <typename Row, typename Key, typename Tell>
void Walk(const std::vector<Row>& before, const std::vector<Row>& after, const Key& key, const Tell& tell) {
    const std::vector<const Row*> old = Ordered(before, key);
    const std::vector<const Row*> now = Ordered(after, key);
    auto one = old.begin();
    auto other = now.begin();
    while (one != old.end() || other != now.end()) {
        if (other == now.end() || (one != old.end() && key(**one) < key(**other))) {
            tell(*one++, nullptr);
        } else if (one == old.end() || key(**other) < key(**one)) {
            tell(nullptr, *other++);
        } else {
            tell(*one++, *other++);
        }
    }
}

std::vector<std::pair<std::string, PluginCallStatus>> OverdueCalls(const GatewayStatus& status) {
    std::vector<std::pair<std::string, PluginCallStatus>> calls;
    for (const PluginStatus& plugin : status.plugins) {
        for (const PluginCallStatus& call : plugin.calls) {
            if (call.overdue) {
                calls.emplace_back(plugin.name, call);
            }
        }
    }
    return calls;
}

std::string Sent(const StreamStatus& stream) {
    return std::to_string(stream.frames) + " frames, " + std::to_string(stream.lost) + " packets lost";
}

// Runs that began in the same second are told apart by their processes.
std::string ThisRun() {
    return std::to_string(WallSeconds()) + "." + std::to_string(getpid());
}

std::string EventText(const std::string& run, std::uint64_t id, const StatusEvent& event) {
    Json::Value data(Json::objectValue);
    data["run"] = run;
    data["id"] = Json::UInt64(id);
    data["time"] = Json::Int64(WallSeconds());
    data["kind"] = event.kind;
    data["what"] = event.what;
    data["subject"] = event.subject;
    data["text"] = event.text;
    data["bad"] = event.bad;
    return "id: " + run + "-" + std::to_string(id) + "\nevent: " + event.kind + "\ndata: " + WriteJson(data) + "\n";
}

}  // namespace

std::vector<StatusEvent> CompareStatus(const GatewayStatus& before, const GatewayStatus& after) {
    std::vector<StatusEvent> events;
    Walk(
        before.devices, after.devices, [](const DeviceStatus& device) -> const std::string& { return device.code; },
        [&events](const DeviceStatus* old, const DeviceStatus* now) {
            if (old == nullptr) {
                events.push_back({"device", "added", now->code, "plug-in " + now->plugin, false});
            } else if (now == nullptr) {
                events.push_back({"device", "deleted", old->code, "", false});
            }
            if (now != nullptr && (old == nullptr ? !now->well : old->state != now->state)) {
                events.push_back({"device", "changed", now->code,
                                  now->state + (now->reason.empty() ? "" : ": " + now->reason), !now->well});
            }
        });
    Walk(
        before.streams, after.streams, [](const StreamStatus& stream) -> const std::string& { return stream.id; },
        [&events](const StreamStatus* old, const StreamStatus* now) {
            if (old == nullptr) {
                events.push_back({"stream", "started", now->id,
                                  now->service + " of " + now->device + " to " + now->destination, false});
            } else if (now == nullptr) {
                events.push_back({"stream", "ended", old->id, Sent(*old), false});
            } else if (old->delivering != now->delivering) {
                events.push_back({"stream", now->delivering ? "delivers again" : "delivers no more", now->id,
                                  "device " + now->device, !now->delivering});
            }
        });
    Walk(
        before.links, after.links, [](const LinkStatus& link) -> const std::string& { return link.info.linkID; },
        [&events](const LinkStatus* old, const LinkStatus* now) {
            if (old == nullptr) {
                events.push_back(
                    {"link", "opened", now->info.linkID, now->info.ip + ":" + std::to_string(now->info.port), false});
            } else if (now == nullptr) {
                events.push_back({"link", "closed", old->info.linkID, "", true});
            }
        });
    Walk(
        before.alarms, after.alarms,
        [](const AlarmStatus& alarm) {
            return std::pair<const std::string&, const std::string&>(alarm.id, alarm.info);
        },
        [&events](const AlarmStatus* old, const AlarmStatus* now) {
            if (old == nullptr || now == nullptr) {
                const AlarmStatus& alarm = now != nullptr ? *now : *old;
                events.push_back({"alarm", now != nullptr ? "raised" : "cleared", alarm.id,
                                  alarm.name + ": " + alarm.info, now != nullptr});
            }
        });
    using Overdue = std::pair<std::string, PluginCallStatus>;
    Walk(
        OverdueCalls(before), OverdueCalls(after),
        [](const Overdue& call) { return call.first + "\n" + call.second.operation + "\n" + call.second.device; },
        [&events](const Overdue* old, const Overdue* now) {
            const Overdue& call = now != nullptr ? *now : *old;
            if (old == nullptr || now == nullptr) {
                events.push_back({"plugin", now != nullptr ? "does not return" : "has returned", call.first,
                                  call.second.operation + " of device " + call.second.device, now != nullptr});
            }
        });
    return events;
}

EventFeed::EventFeed() : m_run(ThisRun()) {}

EventFeed::~EventFeed() {
    Stop();
}

bool EventFeed::Start(std::function<GatewayStatus()> collect, std::function<void()> tick, std::string& reason) {
    m_collect = std::move(collect);
    m_tick = std::move(tick);
    try {
        m_thread.Start("StatusEvents", kPeriod, [this] { Turn(); });
    } catch (const std::system_error& fault) {
        reason = fault.what();
        return false;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_stopped = false;  // not ahead of the thread: nobody would wake a reader that had joined
    return true;
}

void EventFeed::Stop() {
    m_thread.Stop();
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_stopped = true;
    for (Reader* const reader : m_readers) {
        reader->m_ended = true;
        if (std::exchange(reader->m_suspended, false)) {
            reader->m_resume();
        }
    }
}

// Without memory for a look, the next one compares with the one before.
void EventFeed::Turn() {
    try {
        auto now = std::make_shared<const GatewayStatus>(m_collect());
        const std::shared_ptr<const GatewayStatus> before = LastLook();
        const std::vector<StatusEvent> events =
            before != nullptr ? CompareStatus(*before, *now) : std::vector<StatusEvent>();
        Publish(events, std::move(now));
        if (++m_turnsSinceComment >= kTurnsPerComment) {
            m_turnsSinceComment = 0;
            const std::lock_guard<std::mutex> lock(m_mutex);
            for (Reader* const reader : m_readers) {
                if (reader->m_queued.empty()) {
                    OfferLocked(*reader, kComment);
                }
            }
        }
    } catch (const std::bad_alloc&) {
        GVX_DEBUG("no memory to look for events");
    }
    m_tick();
}

// No more at a time than are kept, so that a burst fits every queue.
void EventFeed::Publish(const std::vector<StatusEvent>& events, std::shared_ptr<const GatewayStatus> look) {
    std::uint64_t lastId = 0;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        lastId = m_lastId;
    }
    std::list<Kept> made;
    std::string all;
    const auto add = [&](const StatusEvent& event) {
        ++lastId;
        made.push_back({lastId, EventText(m_run, lastId, event)});
        all += made.back().text;
    };
    const std::size_t told = events.size() <= kKept ? events.size() : kKept - 1;
    std::for_each(events.begin(), events.begin() + static_cast<std::ptrdiff_t>(told), add);
    if (told < events.size()) {
        add({"gateway", "and more", "", std::to_string(events.size() - told) + " further changes at once", false});
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (look != nullptr) {
        m_last.swap(look);  // with the events: who hears of one finds it in the look
    }
    if (made.empty()) {
        return;
    }
    m_lastId = lastId;
    m_kept.splice(m_kept.end(), made);
    while (m_kept.size() > kKept) {
        m_kept.pop_front();
    }
    for (Reader* const reader : m_readers) {
        OfferLocked(*reader, all);
    }
}

void EventFeed::OfferLocked(Reader& reader, const std::string& text) {
    if (text.empty() || reader.m_ended) {
        return;
    }
    try {
        reader.m_ended = reader.m_queued.size() + text.size() > kMaxQueuedBytes;
        if (!reader.m_ended) {
            reader.m_queued += text;
        }
    } catch (const std::bad_alloc&) {
        reader.m_ended = true;
    }
    m_dropped += reader.m_ended ? 1 : 0;
    if (std::exchange(reader.m_suspended, false)) {
        reader.m_resume();
    }
}

std::shared_ptr<const GatewayStatus> EventFeed::LastLook() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_last;
}

std::unique_ptr<EventFeed::Reader> EventFeed::Join(const std::string& lastId, std::function<void()> suspend,
                                                   std::function<void()> resume) {
    const bool ofThisRun = lastId.compare(0, m_run.size() + 1, m_run + "-") == 0;
    const std::uint64_t last = ofThisRun ? std::strtoull(lastId.c_str() + m_run.size() + 1, nullptr, 10) : 0;
    std::unique_ptr<Reader> reader(new Reader(*this, std::move(suspend), std::move(resume)));
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_stopped || m_readers.size() >= kMaxReaders) {
        return nullptr;  // it never was in the list
    }
    reader->m_queued = kGreeting;
    for (const Kept& kept : m_kept) {
        if (kept.id > last) {
            reader->m_queued += kept.text;
        }
    }
    m_readers.push_back(reader.get());
    return reader;
}

EventFeed::Reader::~Reader() {
    const std::lock_guard<std::mutex> lock(m_feed.m_mutex);
    m_feed.m_readers.remove(this);
}

long EventFeed::Reader::Read(char* buffer, std::size_t size) {
    const std::lock_guard<std::mutex> lock(m_feed.m_mutex);
    if (m_ended) {
        return -1;
    }
    if (m_queued.empty()) {
        m_suspended = true;
        m_suspend();
        return 0;
    }
    const std::size_t count = m_queued.copy(buffer, size);
    m_queued.erase(0, count);
    return static_cast<long>(count);
}

std::uint64_t EventFeed::CountDropped() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_dropped;
}

std::size_t EventFeed::CountReaders() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_readers.size();
}

}  // namespace gvx
