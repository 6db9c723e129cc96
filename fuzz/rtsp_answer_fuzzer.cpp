// Answers of RTSP devices. The first byte of the input chooses the method, the second how much of the rest is at hand;
// what is left is read from a connection.

#include "gvx_common/rtsp/common_rtsp_method_describe.h"
#include "gvx_common/rtsp/common_rtsp_method_options.h"
#include "gvx_common/socket/common_socket_stream.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// One connection for all inputs, whose far end is ours. Nothing is waited for: what was written is there at once.
class Connection {
public:
    Connection() {
        const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        Require(::bind(listener, reinterpret_cast<sockaddr*>(&address), length) == 0 && ::listen(listener, 1) == 0 &&
                ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) == 0);
        Require(m_stream.Connect("127.0.0.1", ntohs(address.sin_port), 0) == 0);
        m_device = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        Require(m_device >= 0);
        ::close(listener);
        m_stream.SetTimeout(RECV_TYPE, ACE_Time_Value::zero);
    }

    CCommonSocketStream& Stream() { return m_stream; }
    void Write(const std::string& bytes) {
        Require(::send(m_device, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
    }
    void Drain() {
        char bytes[4096];
        while (m_stream.Recv(bytes, sizeof(bytes), 0) > 0) {
        }
    }

private:
    CCommonSocketStream m_stream;
    int m_device = -1;
};

void AskHeaders(const CCommonRtspMethodBase& method) {
    for (const char* name : {"CSeq", "Session", "Transport", "Public", "WWW-Authenticate", "Content-Length"}) {
        char narrow[17] = {};
        char wide[512] = {};
        int number = 0;
        const char* own = method.GetRecvParam(name, wide, sizeof(wide) - 1);
        Require(own == nullptr || std::strcmp(own, wide) == 0);
        Require(own != nullptr || method.GetRecvParam(name, number) == 1);
        method.GetRecvParam(name, narrow, sizeof(narrow) - 1);
        method.GetRecvParam(name, number);
    }
    std::string realm;
    std::string nonce;
    std::string algo;
    method.GetRealmAndNonce(realm, nonce, algo);
    Require(realm.size() < 64 && nonce.size() < 64 && algo.size() <= 62);
    for (const std::string& word : method.GetMethodNames()) {
        Require(!word.empty() && word.find_first_of(" ,") == std::string::npos);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Connection connection;
    if (size < 2) {
        return 0;
    }
    const std::string answer(reinterpret_cast<const char*>(data) + 2, std::min<std::size_t>(size - 2, 16384));
    const std::string atHand = answer.substr(0, std::min<std::size_t>(answer.size(), data[1] * 16u));
    CCommonRtspMethodBase setup("SETUP");
    CCommonRtspMethodOptions options("OPTIONS");
    CCommonRtspMethodDescribe describe("DESCRIBE");
    CCommonRtspMethodBase* const methods[] = {&setup, &options, &describe};
    CCommonRtspMethodBase& method = *methods[data[0] % 3];
    Require(method.Init() == 0);
    if (&method == &describe) {
        describe.SetSocketStream(&connection.Stream());
        connection.Write(answer.substr(atHand.size()));
    }
    if (method.SetRecvPack(atHand.c_str(), static_cast<int>(atHand.size())) == 0) {
        const int result = method.ParseRecvPack();
        Require(result == 0 || result == 1 || result == RTSP_UNAUTHORIZED || &method == &setup);
        AskHeaders(method);
        char range[64] = {};
        describe.GetRangeInfo(range, sizeof(range));
        if (&method == &describe && result == 0) {
            for (const CCommonSession* session : *describe.GetSessionList()) {
                Require(session->m_szSessionName[0] != '\0');
            }
        }
    }
    if (&method == &describe) {
        connection.Drain();
    }
    return 0;
}
