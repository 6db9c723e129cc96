#include "command_spine.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include <sys/eventfd.h>
#include <unistd.h>

namespace {

struct Item {
    int device;
};

class FloorConsumer {
public:
    FloorConsumer(int device, ServedListener& listener)
        : m_item{device},
          m_event(::eventfd(0, EFD_CLOEXEC | EFD_SEMAPHORE)),
          m_listener(listener),
          m_thread([this] { Run(); }) {}
    ~FloorConsumer() {
        m_run = false;
        Ring();
        m_thread.join();
        ::close(m_event);
    }
    void Push() {
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            m_queue.push_back(&m_item);
        }
        Ring();
    }

private:
    void Ring() {
        const std::uint64_t one = 1;
        if (::write(m_event, &one, sizeof(one)) != static_cast<ssize_t>(sizeof(one))) {
            std::abort();
        }
    }
    const Item* Pop() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (m_queue.empty()) {
            return nullptr;
        }
        const Item* const item = m_queue.front();
        m_queue.pop_front();
        return item;
    }
    // One ring is one item, as on the path beside it.
    void Run() {
        std::uint64_t rings = 0;
        while (::read(m_event, &rings, sizeof(rings)) == static_cast<ssize_t>(sizeof(rings)) && m_run) {
            if (const Item* const item = Pop(); item != nullptr) {
                m_listener.OnServed(item->device);
            }
        }
    }

    const Item m_item;
    const int m_event;
    ServedListener& m_listener;
    std::mutex m_mutex;
    std::deque<const Item*> m_queue;  // Guarded by m_mutex.
    std::atomic<bool> m_run{true};
    std::thread m_thread;  // last: it uses all the others
};

class FloorPath : public CommandPath {
public:
    FloorPath(int devices, ServedListener& listener) {
        for (int device = 0; device < devices; ++device) {
            m_consumers.push_back(std::make_unique<FloorConsumer>(device, listener));
        }
    }
    void Push(int device) override { m_consumers[static_cast<std::size_t>(device)]->Push(); }

private:
    std::vector<std::unique_ptr<FloorConsumer>> m_consumers;
};

}  // namespace

std::unique_ptr<CommandPath> MakeFloorPath(int devices, ServedListener& listener) {
    return std::make_unique<FloorPath>(devices, listener);
}
