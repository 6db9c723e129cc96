#include "base/file_watcher.h"

#include "base/log.h"
#include "base/unique_fd.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace {

constexpr std::uint32_t kEvents = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
constexpr const char* kTitle = "File watcher";

struct Watch {
    int folder;        // inotify's number of the folder
    std::string file;  // name inside it
    InotifyConfigHandler::Callback callback;
};

}  // namespace

class bpInotifyEventWatcher::Impl {
public:
    Impl() : m_inotify(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)), m_stop(eventfd(0, EFD_CLOEXEC)) {}

    ~Impl() {
        if (m_thread.joinable()) {
            const std::uint64_t one = 1;
            while (write(m_stop.Get(), &one, sizeof(one)) < 0 && errno == EINTR) {
            }
            m_thread.join();
        }
    }

    bool IsOpen() const { return m_inotify.Valid() && m_stop.Valid(); }

    int Add(const InotifyConfigHandler& handler) {
        const std::string& path = handler.GetFullFilePath();
        const std::size_t slash = path.rfind('/');
        const std::string folder = slash == std::string::npos ? "." : path.substr(0, std::max<std::size_t>(slash, 1));
        const std::lock_guard<std::mutex> lock(m_mutex);
        const int number = inotify_add_watch(m_inotify.Get(), folder.c_str(), kEvents | IN_ONLYDIR);
        if (number < 0) {
            GVX_LOG_ERR(kTitle, "The folder %s cannot be watched: %s", folder.c_str(), std::strerror(errno));
            return 1;
        }
        m_watches.push_back({number, path.substr(slash == std::string::npos ? 0 : slash + 1), handler.GetCallback()});
        return StartThread();
    }

private:
    int StartThread() {
        if (m_thread.joinable()) {
            return 0;
        }
        try {
            m_thread = std::thread([this] { Run(); });
        } catch (const std::exception& fault) {
            GVX_LOG_ERR(kTitle, "The thread cannot be made: %s", fault.what());
            m_watches.clear();
            return 1;
        }
        pthread_setname_np(m_thread.native_handle(), "FileWatcher");
        return 0;
    }

    void Run() {
        pollfd waits[] = {{m_inotify.Get(), POLLIN, 0}, {m_stop.Get(), POLLIN, 0}};
        for (;;) {
            if (poll(waits, 2, -1) < 0) {
                if (errno == EINTR) {
                    continue;
                }
                GVX_LOG_ERR(kTitle, "Waiting failed: %s", std::strerror(errno));
                return;
            }
            if ((waits[1].revents & POLLIN) != 0) {
                return;
            }
            for (const InotifyConfigHandler::Callback& callback : DrainEvents()) {
                callback();
            }
        }
    }

    // Reads all that is there and gives each callback concerned once.
    std::vector<InotifyConfigHandler::Callback> DrainEvents() {
        alignas(inotify_event) char buffer[8192];
        std::vector<bool> changed;
        const std::lock_guard<std::mutex> lock(m_mutex);
        changed.resize(m_watches.size());
        for (;;) {
            const ssize_t length = read(m_inotify.Get(), buffer, sizeof(buffer));
            if (length <= 0) {
                break;
            }
            MarkChanged(buffer, static_cast<std::size_t>(length), changed);
        }
        std::vector<InotifyConfigHandler::Callback> callbacks;
        for (std::size_t i = 0; i < changed.size(); ++i) {
            if (changed[i]) {
                callbacks.push_back(m_watches[i].callback);
            }
        }
        return callbacks;
    }

    void MarkChanged(const char* buffer, std::size_t length, std::vector<bool>& changed) const {
        for (std::size_t at = 0; at + sizeof(inotify_event) <= length;) {
            inotify_event event;
            std::memcpy(&event, buffer + at, sizeof(event));
            const std::string name(event.len == 0 ? "" : buffer + at + sizeof(event));
            at += sizeof(event) + event.len;
            if ((event.mask & IN_IGNORED) != 0) {
                GVX_LOG_WARN(kTitle, "A watched folder is gone; its files are watched no more");
            }
            for (std::size_t i = 0; i < changed.size(); ++i) {
                // Lost events may have been about any file.
                const bool lost = (event.mask & IN_Q_OVERFLOW) != 0;
                if (lost || (event.wd == m_watches[i].folder && name == m_watches[i].file)) {
                    changed[i] = true;
                }
            }
        }
    }

    const gvx::UniqueFd m_inotify;
    const gvx::UniqueFd m_stop;
    std::mutex m_mutex;
    std::vector<Watch> m_watches;  // Guarded by m_mutex.
    std::thread m_thread;          // Started under m_mutex, joined by the destructor.
};

bpInotifyEventWatcher::bpInotifyEventWatcher() = default;

bpInotifyEventWatcher::~bpInotifyEventWatcher() = default;

int bpInotifyEventWatcher::AddHandler(const InotifyConfigHandler& handler) {
    if (handler.GetFullFilePath().empty() || !handler.GetCallback()) {
        GVX_LOG_ERR(kTitle, "A handler needs a file path and a callback");
        return 1;
    }
    if (m_impl == nullptr) {
        auto fresh = std::make_unique<Impl>();
        if (!fresh->IsOpen()) {
            GVX_LOG_ERR(kTitle, "No inotify descriptor: %s", std::strerror(errno));
            return 1;
        }
        m_impl = std::move(fresh);
    }
    return m_impl->Add(handler);
}

void bpInotifyEventWatcher::Stop() {
    m_impl.reset();
}
