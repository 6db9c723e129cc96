#include "gateway/admin/status_port.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/periodic_thread.h"
#include "base/unique_fd.h"
#include "gateway/admin/event_feed.h"
#include "gateway/admin/metrics.h"
#include "gateway/admin/request_check.h"
#include "gateway/admin/status_json.h"
#include "gateway/admin/status_page.h"
#include "gvx_common/config/setting_table.h"

#include <microhttpd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstring>
#include <exception>
#include <map>
#include <mutex>
#include <new>
#include <system_error>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace gvx {

namespace {

constexpr unsigned int kIdleSeconds = 10;
constexpr int kBacklog = 64;
constexpr std::size_t kEventBlock = 4096;
// What the system holds of events for a reader that does not keep up.
constexpr int kEventSendBuffer = 32 * 1024;

// How long a page stands from the end of its writing: at least the first, and that many times what the writing took, so
// that a busy machine does little else than serve.
constexpr std::int64_t kPageMs = 1000;
constexpr std::int64_t kPageTimes = 4;
constexpr std::chrono::hours kNoPeriod(1);  // the writer is woken
constexpr const char* kNotCollected = "The status cannot be collected.\n";

constexpr const char* kText = "text/plain; charset=utf-8";
constexpr const char* kNothingElse = "default-src 'none'; frame-ancestors 'none'";

// A socket that listens; not valid with errno set.
UniqueFd Listen(const std::string& address, std::uint16_t port) {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &local.sin_addr) != 1) {
        errno = EINVAL;
        return UniqueFd();
    }
    UniqueFd listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    if (!listener.Valid() || setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
        bind(listener.Get(), reinterpret_cast<const sockaddr*>(&local), sizeof(local)) != 0 ||
        listen(listener.Get(), kBacklog) != 0) {
        listener.Reset();
    }
    return listener;
}

void LogOfLibrary(void*, const char* format, va_list args) __attribute__((format(printf, 2, 0)));
void LogOfLibrary(void*, const char* format, va_list args) {
    char text[256];
    std::vsnprintf(text, sizeof(text), format, args);
    GVX_DEBUG("status port: %s", text);
}

std::string Lines(const std::vector<std::string>& sentences, const char* otherwise) {
    std::string text;
    for (const std::string& sentence : sentences) {
        text += sentence + "\n";
    }
    return text.empty() ? otherwise : text;
}

// The library counts for itself who sends it.
using ResponsePtr = std::shared_ptr<MHD_Response>;

// With what every answer says. Null for null, which is for want of memory.
ResponsePtr Finished(MHD_Response* made, const char* type, const char* policy = kNothingElse) {
    if (made == nullptr) {
        return nullptr;
    }
    ResponsePtr answer(made, &MHD_destroy_response);
    const std::pair<const char*, const char*> headers[] = {{MHD_HTTP_HEADER_CONTENT_TYPE, type},
                                                           {MHD_HTTP_HEADER_CONNECTION, "close"},
                                                           {MHD_HTTP_HEADER_CACHE_CONTROL, "no-store"},
                                                           {"Content-Security-Policy", policy},
                                                           {"Cross-Origin-Resource-Policy", "same-origin"},
                                                           {"Referrer-Policy", "no-referrer"},
                                                           {"X-Content-Type-Options", "nosniff"}};
    for (const auto& [name, value] : headers) {
        MHD_add_response_header(made, name, value);
    }
    return answer;
}

// A short text, which the answer copies. The library does not write to it.
ResponsePtr TextAnswer(const std::string& text) {
    return Finished(MHD_create_response_from_buffer(text.size(), const_cast<char*>(text.data()), MHD_RESPMEM_MUST_COPY),
                    kText);
}

// A body that all who read it share; heldBytes counts it until the last of them has gone.
struct SharedBody {
    SharedBody(std::string body, std::size_t& held) : text(std::move(body)), heldBytes(held) {
        heldBytes += text.size();
    }
    ~SharedBody() { heldBytes -= text.size(); }
    SharedBody(const SharedBody&) = delete;
    SharedBody& operator=(const SharedBody&) = delete;

    std::string text;
    std::size_t& heldBytes;
};

ResponsePtr SharedAnswer(std::string text, const char* type, std::size_t& heldBytes) {
    auto body = std::make_unique<SharedBody>(std::move(text), heldBytes);
    MHD_Response* const made = MHD_create_response_from_buffer_with_free_callback_cls(
        body->text.size(), body->text.data(), [](void* held) { delete static_cast<SharedBody*>(held); }, body.get());
    if (made != nullptr) {
        static_cast<void>(body.release());  // the answer's now
    }
    return Finished(made, type);
}

// What a peer wants of the port, from its first line to the end of the answer.
struct Wanted {
    std::string target;   // as it came: the library unescapes the path that it gives to the handler
    bool waited = false;  // for a page, which has been written
};

// Whether the peer has closed its side: it may still read, but hardly does.
bool HasGone(int socket) {
    char next = 0;
    return recv(socket, &next, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}

}  // namespace

struct StatusPort::Server {
    // A connection that has a request under way, by its socket.
    struct Connection {
        std::int64_t sinceMs = 0;
        bool readsEvents = false;
    };
    static constexpr unsigned int kLater = 0;
    struct Answer {
        unsigned int code = MHD_HTTP_OK;  // kLater while the connection waits
        ResponsePtr response;
    };
    // A page of the status. The writer's thread writes it, the library's hands it out.
    struct Page {
        using Write = std::string (*)(const GatewayStatus&);

        Page(const char* kind, Write by) : type(kind), write(by) {}

        const char* const type;
        const Write write;
        // Of the library's thread.
        std::size_t heldBytes = 0;  // of the last writing and of earlier ones that are still read
        ResponsePtr response;       // of the last writing
        // Guarded by pagesMutex.
        std::vector<MHD_Connection*> waiting;  // suspended until it is written
        std::string text;
        bool isNew = false;  // text is not in response yet
        bool failed = false;
        std::int64_t standsUntilMs = 0;
    };

    Server(std::string ip, Sources from) : address(std::move(ip)), sources(std::move(from)) {}

    static int SocketOf(MHD_Connection* connection);
    static void* OnTarget(void*, const char* target, MHD_Connection*);
    static MHD_Result OnRequest(void* server, MHD_Connection* connection, const char* url, const char* method,
                                const char* version, const char* upload, std::size_t* uploadSize, void** target);
    static void OnCompleted(void*, MHD_Connection*, void** target, MHD_RequestTerminationCode);
    static void OnConnection(void* server, MHD_Connection* connection, void**, MHD_ConnectionNotificationCode code);
    static ssize_t ReadEvents(void* reader, std::uint64_t, char* buffer, std::size_t size);
    static void EndEvents(void* reader);

    MHD_Result Serve(MHD_Connection* connection, const char* method, const char* version, Wanted& wanted);
    Answer Make(MHD_Connection* connection, StatusPage page, Wanted& wanted);
    Answer MakeEvents(MHD_Connection* connection);
    Answer Share(MHD_Connection* connection, Page& page, Wanted& wanted);
    void WritePages();
    void WritePage(Page& page);
    void EndPages();

    const std::string address;
    const Sources sources;
    MHD_Daemon* daemon = nullptr;

    std::mutex pagesMutex;  // Guards what the pages and the next say; a lock of the library is taken under it.
    bool stops = false;
    Page metrics{"text/plain; version=0.0.4; charset=utf-8", [](const GatewayStatus& status) {
                     return MetricsText(status, SettingText(Setting::GVX_METRICS_PER_DEVICE) == "1");
                 }};
    Page json{"application/json", &WholeStatusText};
    PeriodicThread writer;

    std::mutex mutex;  // Guards what follows; nothing is called under it but the shutdown of a socket.
    std::map<int, Connection> connections;
};

int StatusPort::Server::SocketOf(MHD_Connection* connection) {
    const MHD_ConnectionInfo* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    return info != nullptr ? info->connect_fd : -1;
}

void* StatusPort::Server::OnTarget(void*, const char* target, MHD_Connection*) {
    try {
        return new Wanted{target};
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void StatusPort::Server::OnCompleted(void*, MHD_Connection*, void** target, MHD_RequestTerminationCode) {
    delete static_cast<Wanted*>(*target);
    *target = nullptr;
}

void StatusPort::Server::OnConnection(void* server, MHD_Connection* connection, void**,
                                      MHD_ConnectionNotificationCode code) {
    auto& self = *static_cast<Server*>(server);
    const int socket = SocketOf(connection);
    const std::lock_guard<std::mutex> lock(self.mutex);
    try {
        if (code == MHD_CONNECTION_NOTIFY_STARTED) {
            self.connections[socket] = {MonotonicMilliseconds(), false};
        } else {
            self.connections.erase(socket);
        }
    } catch (const std::bad_alloc&) {
        shutdown(socket, SHUT_RDWR);
    }
}

// No exception may go through the library. Without memory for a refusal the connection is closed.
MHD_Result StatusPort::Server::OnRequest(void* server, MHD_Connection* connection, const char*, const char* method,
                                         const char* version, const char*, std::size_t*, void** target) {
    if (*target == nullptr) {
        return MHD_NO;
    }
    try {
        return static_cast<Server*>(server)->Serve(connection, method, version, *static_cast<Wanted*>(*target));
    } catch (const std::exception& fault) {
        GVX_LOG_WARN("Status port", "A request could not be served: %s", fault.what());
        MHD_Response* const response = MHD_create_response_from_buffer(
            std::strlen(kNotCollected), const_cast<char*>(kNotCollected), MHD_RESPMEM_PERSISTENT);
        if (response == nullptr) {
            return MHD_NO;
        }
        const MHD_Result queued = MHD_queue_response(connection, MHD_HTTP_SERVICE_UNAVAILABLE, response);
        MHD_destroy_response(response);
        return queued;
    }
}

MHD_Result StatusPort::Server::Serve(MHD_Connection* connection, const char* method, const char* version,
                                     Wanted& wanted) {
    StatusRequest request;
    request.isHttp10 = std::strcmp(version, MHD_HTTP_VERSION_1_0) == 0;
    request.method = method;
    request.target = wanted.target;
    MHD_get_connection_values(
        connection, MHD_HEADER_KIND,
        [](void* list, MHD_ValueKind, const char* name, const char* value) {
            auto& of = *static_cast<StatusRequest*>(list);
            if (::strcasecmp(name, MHD_HTTP_HEADER_HOST) == 0) {
                of.hosts.emplace_back(value != nullptr ? value : "");
            }
            of.hasBody = of.hasBody || ::strcasecmp(name, MHD_HTTP_HEADER_CONTENT_LENGTH) == 0 ||
                         ::strcasecmp(name, MHD_HTTP_HEADER_TRANSFER_ENCODING) == 0;
            return MHD_YES;
        },
        &request);
    const RequestVerdict verdict = CheckRequest(request, address);
    Answer answer;
    if (verdict.page != StatusPage::None) {
        answer = Make(connection, verdict.page, wanted);
    } else {
        answer = {verdict.code, TextAnswer(std::string(verdict.reason) + "\n")};
    }
    if (answer.code == kLater) {
        return MHD_YES;
    }
    if (answer.response == nullptr) {
        return MHD_NO;
    }
    if (verdict.code == MHD_HTTP_METHOD_NOT_ALLOWED) {
        MHD_add_response_header(answer.response.get(), MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
    }
    return MHD_queue_response(connection, answer.code, answer.response.get());
}

StatusPort::Server::Answer StatusPort::Server::Share(MHD_Connection* connection, Page& page, Wanted& wanted) {
    std::string text;
    bool isNew = false;
    bool failed = false;
    bool stands = false;
    {
        const std::lock_guard<std::mutex> lock(pagesMutex);
        isNew = std::exchange(page.isNew, false);
        text.swap(page.text);
        failed = stops || (page.failed && wanted.waited);
        stands = wanted.waited || MonotonicMilliseconds() < page.standsUntilMs;
    }
    if (isNew) {
        page.response = SharedAnswer(std::move(text), page.type, page.heldBytes);
    }
    if (failed || (wanted.waited && page.response == nullptr)) {
        return {MHD_HTTP_SERVICE_UNAVAILABLE, TextAnswer(kNotCollected)};
    }
    if (stands && page.response != nullptr) {
        return {MHD_HTTP_OK, page.response};
    }
    if (HasGone(SocketOf(connection))) {
        return {};
    }
    if (page.heldBytes > kMaxHeldBytes) {
        page.response = nullptr;  // goes now, unless somebody still reads it
        if (page.heldBytes > kMaxHeldBytes) {
            return {MHD_HTTP_SERVICE_UNAVAILABLE, TextAnswer("Readers that are slow hold too much of it.\n")};
        }
    }
    {
        const std::lock_guard<std::mutex> lock(pagesMutex);
        if (stops) {
            return {};
        }
        page.waiting.push_back(connection);
        wanted.waited = true;
        MHD_suspend_connection(connection);
    }
    writer.Wake();
    return {kLater, nullptr};
}

void StatusPort::Server::WritePages() {
    for (Page* const page : {&metrics, &json}) {
        bool isWanted = false;
        {
            const std::lock_guard<std::mutex> lock(pagesMutex);
            isWanted = !page->waiting.empty() && !stops;
        }
        if (isWanted) {
            WritePage(*page);
        }
    }
}

// For all who wait, also those who came while it was written.
void StatusPort::Server::WritePage(Page& page) {
    const std::int64_t beginMs = MonotonicMilliseconds();
    std::string text;
    bool failed = false;
    try {
        text = page.write(*sources.look());
    } catch (const std::exception& fault) {
        failed = true;
        GVX_LOG_WARN("Status port", "A page could not be written: %s", fault.what());
    }
    const std::int64_t endMs = MonotonicMilliseconds();
    std::vector<MHD_Connection*> waiting;
    {
        const std::lock_guard<std::mutex> lock(pagesMutex);
        page.failed = failed;
        if (!failed) {
            page.text = std::move(text);
            page.isNew = true;
            page.standsUntilMs = endMs + std::max(kPageMs, kPageTimes * (endMs - beginMs));
        }
        waiting.swap(page.waiting);
    }
    for (MHD_Connection* const connection : waiting) {
        MHD_resume_connection(connection);
    }
}

// The library does not stop while somebody waits.
void StatusPort::Server::EndPages() {
    std::vector<MHD_Connection*> waiting;
    {
        const std::lock_guard<std::mutex> lock(pagesMutex);
        stops = true;
    }
    writer.Stop();
    for (Page* const page : {&metrics, &json}) {
        {
            const std::lock_guard<std::mutex> lock(pagesMutex);
            waiting.swap(page->waiting);
        }
        for (MHD_Connection* const connection : waiting) {
            MHD_resume_connection(connection);
        }
        waiting.clear();
    }
}

StatusPort::Server::Answer StatusPort::Server::Make(MHD_Connection* connection, StatusPage page, Wanted& wanted) {
    const auto judged = [](const std::vector<std::string>& faults, const char* otherwise) {
        return Answer{faults.empty() ? static_cast<unsigned int>(MHD_HTTP_OK) : MHD_HTTP_SERVICE_UNAVAILABLE,
                      TextAnswer(Lines(faults, otherwise))};
    };
    switch (page) {
        case StatusPage::Live:
            return judged(LivenessFaults(sources.threads()), "alive\n");
        case StatusPage::Ready:
            return judged(ReadyFaults(CollectReady()), "ready\n");
        case StatusPage::Metrics:
            return Share(connection, metrics, wanted);
        case StatusPage::Json:
            return Share(connection, json, wanted);
        case StatusPage::Events:
            return MakeEvents(connection);
        default:
            return {MHD_HTTP_OK,
                    Finished(MHD_create_response_from_buffer(std::strlen(kStatusPage), const_cast<char*>(kStatusPage),
                                                             MHD_RESPMEM_PERSISTENT),
                             "text/html; charset=utf-8", kStatusPagePolicy)};
    }
}

StatusPort::Server::Answer StatusPort::Server::MakeEvents(MHD_Connection* connection) {
    const char* const last = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Last-Event-ID");
    std::unique_ptr<EventFeed::Reader> reader = sources.feed->Join(
        last != nullptr ? last : "", [connection] { MHD_suspend_connection(connection); },
        [connection] { MHD_resume_connection(connection); });
    if (reader == nullptr) {
        return {MHD_HTTP_SERVICE_UNAVAILABLE, TextAnswer("There are too many readers of events.\n")};
    }
    MHD_Response* const made =
        MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kEventBlock, &ReadEvents, reader.get(), &EndEvents);
    if (made == nullptr) {
        return {};
    }
    static_cast<void>(reader.release());  // the response's now
    ResponsePtr response = Finished(made, "text/event-stream");
    const int socket = SocketOf(connection);
    setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &kEventSendBuffer, sizeof(kEventSendBuffer));
    const std::lock_guard<std::mutex> lock(mutex);
    connections[socket].readsEvents = true;
    return {MHD_HTTP_OK, std::move(response)};
}

ssize_t StatusPort::Server::ReadEvents(void* reader, std::uint64_t, char* buffer, std::size_t size) {
    const long count = static_cast<EventFeed::Reader*>(reader)->Read(buffer, size);
    return count < 0 ? ssize_t{MHD_CONTENT_READER_END_OF_STREAM} : ssize_t{count};
}

void StatusPort::Server::EndEvents(void* reader) {
    delete static_cast<EventFeed::Reader*>(reader);
}

StatusPort::StatusPort() = default;

StatusPort::~StatusPort() {
    Stop();
}

bool StatusPort::Start(const std::string& address, std::uint16_t port, Sources sources, std::string& reason) {
    UniqueFd listener = Listen(address, port);
    if (!listener.Valid()) {
        reason = std::strerror(errno);
        return false;
    }
    m_server = std::make_unique<Server>(address, std::move(sources));
    try {
        m_server->writer.Start("StatusPages", kNoPeriod, [server = m_server.get()] { server->WritePages(); });
    } catch (const std::system_error& fault) {
        reason = fault.what();
        m_server.reset();
        return false;
    }
    errno = 0;
    m_server->daemon = MHD_start_daemon(
        MHD_USE_POLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG, 0, nullptr, nullptr,
        &Server::OnRequest, m_server.get(), MHD_OPTION_EXTERNAL_LOGGER, &LogOfLibrary, nullptr,
        MHD_OPTION_LISTEN_SOCKET, listener.Get(), MHD_OPTION_CONNECTION_LIMIT, kMaxConnections,
        MHD_OPTION_CONNECTION_MEMORY_LIMIT, static_cast<std::size_t>(kConnectionBytes), MHD_OPTION_CONNECTION_TIMEOUT,
        kIdleSeconds, MHD_OPTION_URI_LOG_CALLBACK, &Server::OnTarget, nullptr, MHD_OPTION_NOTIFY_COMPLETED,
        &Server::OnCompleted, nullptr, MHD_OPTION_NOTIFY_CONNECTION, &Server::OnConnection, m_server.get(),
        MHD_OPTION_END);
    if (m_server->daemon == nullptr) {
        reason = errno != 0 ? std::strerror(errno) : "the library does not start";
        m_server.reset();
        return false;
    }
    static_cast<void>(listener.Release());  // the library closes it
    return true;
}

void StatusPort::Stop() {
    if (m_server != nullptr) {
        m_server->EndPages();
        MHD_stop_daemon(m_server->daemon);
        m_server.reset();
    }
}

void StatusPort::Sweep() {
    const std::int64_t nowMs = MonotonicMilliseconds();
    const std::lock_guard<std::mutex> lock(m_server->mutex);
    for (const auto& [socket, connection] : m_server->connections) {
        if (!connection.readsEvents && nowMs - connection.sinceMs > kConnectionLimitMs) {
            shutdown(socket, SHUT_RDWR);
        }
    }
}

}  // namespace gvx
