#include "gateway/admin/status_port.h"

#include "base/clock.h"
#include "base/log.h"
#include "base/unique_fd.h"
#include "gateway/admin/event_feed.h"
#include "gateway/admin/metrics.h"
#include "gateway/admin/request_check.h"
#include "gateway/admin/status_json.h"
#include "gateway/admin/status_page.h"
#include "gvx_common/config/setting_table.h"

#include <microhttpd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <map>
#include <mutex>
#include <new>
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

}  // namespace

struct StatusPort::Server {
    // A connection that has a request under way, by its socket.
    struct Connection {
        std::int64_t sinceMs = 0;
        bool readsEvents = false;
    };
    struct Answer {
        unsigned int code = MHD_HTTP_OK;
        ResponsePtr response;
    };
    // A page of the status as it was written last.
    struct Written {
        std::size_t heldBytes = 0;  // of this writing and of earlier ones that are still read
        std::shared_ptr<const GatewayStatus> look;
        ResponsePtr response;
    };

    Server(std::string ip, std::uint16_t number, Sources from)
        : address(std::move(ip)), port(number), sources(std::move(from)) {}

    static int SocketOf(MHD_Connection* connection);
    static void* OnTarget(void*, const char* target, MHD_Connection*);
    static MHD_Result OnRequest(void* server, MHD_Connection* connection, const char* url, const char* method,
                                const char* version, const char* upload, std::size_t* uploadSize, void** target);
    static void OnCompleted(void*, MHD_Connection*, void** target, MHD_RequestTerminationCode);
    static void OnConnection(void* server, MHD_Connection* connection, void**, MHD_ConnectionNotificationCode code);
    static ssize_t ReadEvents(void* reader, std::uint64_t, char* buffer, std::size_t size);
    static void EndEvents(void* reader);

    MHD_Result Serve(MHD_Connection* connection, const char* method, const char* version, const char* target);
    Answer Make(MHD_Connection* connection, StatusPage page);
    Answer MakeEvents(MHD_Connection* connection);
    Answer Share(Written& page, const char* type, const std::function<std::string(const GatewayStatus&)>& write);

    const std::string address;
    const std::uint16_t port;
    const Sources sources;
    MHD_Daemon* daemon = nullptr;
    // Of the library's thread.
    Written metrics;
    Written json;

    std::mutex mutex;  // Guards what follows; nothing is called under it but the shutdown of a socket.
    std::map<int, Connection> connections;
};

int StatusPort::Server::SocketOf(MHD_Connection* connection) {
    const MHD_ConnectionInfo* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    return info != nullptr ? info->connect_fd : -1;
}

// The target as it came: the library unescapes the path that it gives to the handler.
void* StatusPort::Server::OnTarget(void*, const char* target, MHD_Connection*) {
    return ::strdup(target);
}

void StatusPort::Server::OnCompleted(void*, MHD_Connection*, void** target, MHD_RequestTerminationCode) {
    std::free(*target);
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
    try {
        return static_cast<Server*>(server)->Serve(connection, method, version, static_cast<const char*>(*target));
    } catch (const std::exception& fault) {
        GVX_LOG_WARN("Status port", "A request could not be served: %s", fault.what());
        static char refusal[] = "The status cannot be collected.\n";
        MHD_Response* const response =
            MHD_create_response_from_buffer(sizeof(refusal) - 1, refusal, MHD_RESPMEM_PERSISTENT);
        if (response == nullptr) {
            return MHD_NO;
        }
        const MHD_Result queued = MHD_queue_response(connection, MHD_HTTP_SERVICE_UNAVAILABLE, response);
        MHD_destroy_response(response);
        return queued;
    }
}

MHD_Result StatusPort::Server::Serve(MHD_Connection* connection, const char* method, const char* version,
                                     const char* target) {
    StatusRequest request;
    request.isHttp10 = std::strcmp(version, MHD_HTTP_VERSION_1_0) == 0;
    request.method = method;
    request.target = target != nullptr ? target : "";
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
        answer = Make(connection, verdict.page);
    } else {
        answer = {verdict.code, TextAnswer(std::string(verdict.reason) + "\n")};
    }
    if (answer.response == nullptr) {
        return MHD_NO;
    }
    if (verdict.code == MHD_HTTP_METHOD_NOT_ALLOWED) {
        MHD_add_response_header(answer.response.get(), MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
    }
    return MHD_queue_response(connection, answer.code, answer.response.get());
}

StatusPort::Server::Answer StatusPort::Server::Share(Written& page, const char* type,
                                                     const std::function<std::string(const GatewayStatus&)>& write) {
    std::shared_ptr<const GatewayStatus> look = sources.look();
    if (page.response == nullptr || page.look != look) {
        page.response = nullptr;  // goes now, unless somebody still reads it
        if (page.heldBytes > kMaxHeldBytes) {
            return {MHD_HTTP_SERVICE_UNAVAILABLE, TextAnswer("Readers that are slow hold too much of it.\n")};
        }
        page.response = SharedAnswer(write(*look), type, page.heldBytes);
        page.look = std::move(look);
    }
    return {MHD_HTTP_OK, page.response};
}

StatusPort::Server::Answer StatusPort::Server::Make(MHD_Connection* connection, StatusPage page) {
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
            return Share(metrics, "text/plain; version=0.0.4; charset=utf-8", [](const GatewayStatus& status) {
                return MetricsText(status, SettingText(Setting::GVX_METRICS_PER_DEVICE) == "1");
            });
        case StatusPage::Json:
            return Share(json, "application/json", &WholeStatusText);
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
    m_server = std::make_unique<Server>(address, port, std::move(sources));
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
