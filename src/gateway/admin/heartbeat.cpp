#include "gateway/admin/heartbeat.h"

#include "base/clock.h"
#include "base/log.h"
#include "bp/net_factory.h"
#include "gateway/requests/gateway_context.h"
#include "gvx_common/event/gvx_reactor.h"
#include "gvx_common/event/gvx_reactor_mgr.h"

#include <ace/Event_Handler.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <system_error>
#include <tuple>
#include <utility>

namespace gvx {

namespace {

constexpr const char* kLinkThread = "gvx-link";
constexpr const char* kGeneralThread = "gvx";
constexpr const char* kLinkEventsThread = "LinkEvents";

// The question to one thread. It is answered on that thread, and asked by the one of the heartbeats.
class Pulse : public ACE_Event_Handler {
public:
    int handle_exception(ACE_HANDLE) override {
        open = false;
        return 0;
    }

    std::string name;
    bool shared = false;
    std::atomic<bool> open{false};
    std::int64_t sinceMs = 0;  // the thread has shown life last; monotonic
    std::uint64_t served = 0;  // commands until then
};

}  // namespace

// The pulses of this process. A reactor may answer at any time until the process ends, so they are never destroyed.
struct Heartbeats::Book {
    static Book& Instance() {
        static Book* const book = new Book;
        return *book;
    }

    Pulse& Of(const void* thread, const std::string& name, bool shared) {
        std::unique_ptr<Pulse>& pulse = pulses[thread];
        if (pulse == nullptr) {
            pulse = std::make_unique<Pulse>();
            pulse->name = name;
            pulse->shared = shared;
        }
        return *pulse;
    }

    std::mutex mutex;  // Guards all but what is atomic. Outermost; no log line is written under it.
    std::map<const void*, std::unique_ptr<Pulse>> pulses;
    LinkEventThread::Progress linkEvents;
};

Heartbeats::Heartbeats(GatewayContext& context, std::chrono::milliseconds deviceLimit)
    : m_context(context), m_deviceLimitMs(deviceLimit.count()) {
    Ask();
    try {
        m_thread.Start("Heartbeat", kPeriod, [this] {
            try {
                Ask();
            } catch (const std::bad_alloc&) {
                GVX_DEBUG("no memory to ask event threads");
            }
        });
    } catch (const std::system_error& fault) {
        GVX_LOG_ERR("Heartbeat", "There is no thread for it, event threads are not looked after: %s", fault.what());
    }
}

// Questions that a stopped link thread has thrown away are open no longer.
Heartbeats::~Heartbeats() {
    m_thread.Stop();
    Book& book = Book::Instance();
    const std::lock_guard<std::mutex> lock(book.mutex);
    for (const auto& entry : book.pulses) {
        entry.second->open = false;
    }
}

void Heartbeats::Ask() {
    const std::vector<CGvxReactor*> reactors = m_context.binder.Reactors();
    std::vector<CGvxReactor::Load> loads;
    loads.reserve(reactors.size());
    for (CGvxReactor* const reactor : reactors) {
        loads.push_back(reactor->GetLoad());
    }
    const LinkEventThread::Progress linkEvents = m_context.linkEvents.GetProgress();
    const std::int64_t nowMs = MonotonicMilliseconds();
    std::vector<std::pair<CGvxReactor*, Pulse*>> toAsk;
    Pulse* link = nullptr;
    Pulse* general = nullptr;
    // True when the thread is to be asked anew.
    const auto answered = [nowMs](Pulse& pulse, std::uint64_t served) {
        const bool asks = !pulse.open.exchange(true);  // in one step: an answer may come at this moment
        if (asks || pulse.served != served) {
            pulse.sinceMs = nowMs;
            pulse.served = served;
        }
        return asks;
    };
    Book& book = Book::Instance();
    {
        const std::lock_guard<std::mutex> lock(book.mutex);
        book.linkEvents = linkEvents;
        Pulse& ofLinks = book.Of(kLinkThread, kLinkThread, true);
        link = answered(ofLinks, 0) ? &ofLinks : nullptr;
        Pulse& ofGeneral = book.Of(kGeneralThread, kGeneralThread, true);
        general = answered(ofGeneral, 0) ? &ofGeneral : nullptr;
        for (std::size_t i = 0; i < reactors.size(); ++i) {
            Pulse& pulse = book.Of(reactors[i], loads[i].threadName, false);
            if (answered(pulse, loads[i].served)) {
                toAsk.emplace_back(reactors[i], &pulse);
            }
        }
    }
    if (link != nullptr && !BP::CNetFactory::RunOnLinkThread([link] { link->open = false; })) {
        link->open = false;
    }
    // A question that could not be put, for want of memory, is put again in the next round.
    if (general != nullptr && CGvxReactorManager::Instance()->notify(general, ACE_Event_Handler::EXCEPT_MASK) != 0) {
        general->open = false;
    }
    for (const auto& [reactor, pulse] : toAsk) {
        if (reactor->notify(pulse, ACE_Event_Handler::EXCEPT_MASK) != 0) {
            pulse->open = false;
        }
    }
}

std::vector<ThreadStatus> Heartbeats::Threads() const {
    const std::int64_t nowMs = MonotonicMilliseconds();
    std::vector<ThreadStatus> threads;
    const auto add = [&](const std::string& name, bool shared, std::int64_t silentMs) {
        threads.push_back({name, shared, silentMs <= (shared ? kSharedLimit.count() : m_deviceLimitMs), silentMs});
    };
    Book& book = Book::Instance();
    {
        const std::lock_guard<std::mutex> lock(book.mutex);
        const std::int64_t servingMs = book.linkEvents.servingSinceMs;
        add(kLinkEventsThread, true, servingMs == 0 ? 0 : nowMs - servingMs);
        for (const auto& entry : book.pulses) {
            const Pulse& pulse = *entry.second;
            add(pulse.name, pulse.shared, pulse.open ? nowMs - pulse.sinceMs : 0);
        }
    }
    std::sort(threads.begin(), threads.end(), [](const ThreadStatus& one, const ThreadStatus& other) {
        return std::make_tuple(!one.shared, one.name.size(), one.name) <
               std::make_tuple(!other.shared, other.name.size(), other.name);
    });
    return threads;
}

bool Heartbeats::SharedThreadsAlive() const {
    const std::vector<ThreadStatus> threads = Threads();
    return std::all_of(threads.begin(), threads.end(),
                       [](const ThreadStatus& thread) { return thread.alive || !thread.shared; });
}

}  // namespace gvx
