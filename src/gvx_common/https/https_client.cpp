#include "gvx_common/https/https_client.h"

#include "gvx_common/config/setting_table.h"
#include "gvx_common/utility/gvx_utility.h"
#include "base/clock.h"
#include "base/log.h"
#include "base/paths.h"

#include <ace/OS_NS_sys_socket.h>

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr const char* kTitle = "HTTPS client";
constexpr const char* CA_CERTIFICATE = "/omu_portal/cacert.pem";
constexpr int kSecurityLevel = 2;  // keys of 112 bits of strength and more, whatever the system allows
constexpr int kVerifyDepth = 2;
constexpr std::int64_t kWaitMs = 2000;
constexpr std::int64_t kLongestCallMs = 300000;

bool IsLinkOk(int error) {
    return error == EAGAIN || error == ETIME || error == EINTR;
}

// What is wrong with a certificate that was refused.
const char* RefusedPart(long result) {
    switch (result) {
        case X509_V_ERR_CERT_NOT_YET_VALID:
        case X509_V_ERR_CERT_HAS_EXPIRED:
        case X509_V_ERR_ERROR_IN_CERT_NOT_BEFORE_FIELD:
        case X509_V_ERR_ERROR_IN_CERT_NOT_AFTER_FIELD:
            return "date";
        case X509_V_ERR_HOSTNAME_MISMATCH:
        case X509_V_ERR_IP_ADDRESS_MISMATCH:
            return "name";
        case X509_V_ERR_EE_KEY_TOO_SMALL:
        case X509_V_ERR_CA_KEY_TOO_SMALL:
        case X509_V_ERR_CA_MD_TOO_WEAK:
        case X509_V_ERR_UNABLE_TO_DECODE_ISSUER_PUBLIC_KEY:
        case X509_V_ERR_CERT_SIGNATURE_FAILURE:
            return "key";
        default:
            return "chain";
    }
}

}  // namespace

void CHttpsClient::FreeSsl::operator()(ssl_st* ssl) const {
    SSL_free(ssl);
}

void CHttpsClient::FreeContext::operator()(ssl_ctx_st* context) const {
    SSL_CTX_free(context);
}

CHttpsClient::CHttpsClient() = default;

CHttpsClient::~CHttpsClient() {
    Close();
}

bool CHttpsClient::IsConnectedTo(const std::string& host, std::uint16_t port) const {
    return m_connected && m_host == host && m_port == port;
}

bool CHttpsClient::IsQuiet() {
    if (!m_connected) {
        return false;
    }
    char byte = 0;
    ERR_clear_error();
    const int result = SSL_peek(m_SSL.get(), &byte, 1);
    const bool quiet = result <= 0 && SSL_get_error(m_SSL.get(), result) == SSL_ERROR_WANT_READ;
    ERR_clear_error();
    return quiet;
}

std::int64_t CHttpsClient::EndOfCall() const {
    return m_deadlineMs != 0 ? m_deadlineMs : gvx::MonotonicMilliseconds() + kLongestCallMs;
}

// False with EAGAIN when the peer was silent for too long, with ETIMEDOUT at the end of the call, which loses the link.
bool CHttpsClient::Wait(bool forWriting, std::int64_t callEndMs) const {
    const std::int64_t untilMs = gvx::MonotonicMilliseconds() + kWaitMs;
    for (;;) {
        const std::int64_t now = gvx::MonotonicMilliseconds();
        if (now >= callEndMs || now >= untilMs) {
            errno = now >= callEndMs ? ETIMEDOUT : EAGAIN;
            return false;
        }
        pollfd ready{m_sockStream.get_handle(), static_cast<short>(forWriting ? POLLOUT : POLLIN), 0};
        const int count = poll(&ready, 1, static_cast<int>(std::min(callEndMs, untilMs) - now));
        if (count > 0) {
            return true;
        }
        if (count < 0 && errno != EINTR) {
            return false;
        }
    }
}

template <typename Operation>
int CHttpsClient::Run(Operation operation, int& sslError, int& systemError) {
    const std::int64_t callEndMs = EndOfCall();
    for (;;) {
        // Also while there is something to read: a peer that never pauses would hold the caller for ever.
        if (gvx::MonotonicMilliseconds() >= callEndMs) {
            sslError = SSL_ERROR_SYSCALL;
            systemError = ETIMEDOUT;
            return -1;
        }
        ERR_clear_error();
        errno = 0;
        const int result = operation(m_SSL.get());
        systemError = errno;
        sslError = result > 0 ? SSL_ERROR_NONE : SSL_get_error(m_SSL.get(), result);
        if (result > 0 || (sslError != SSL_ERROR_WANT_READ && sslError != SSL_ERROR_WANT_WRITE)) {
            return result;
        }
        if (!Wait(sslError == SSL_ERROR_WANT_WRITE, callEndMs)) {
            systemError = errno;
            return -1;
        }
    }
}

int CHttpsClient::Connect(const std::string& host, std::uint16_t port) {
    Close();
    m_host = host;
    m_port = port;
    bool connected = m_peerAddr.set(port, host.c_str(), 1, AF_INET) == 0 &&
                     m_localAddr.set(static_cast<u_short>(0), static_cast<ACE_UINT32>(INADDR_ANY)) == 0;
    if (connected) {
        // The connector takes a socket that is there already; one that it makes itself would survive an exec.
        m_sockStream.set_handle(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
        const std::int64_t leftMs = std::clamp<std::int64_t>(EndOfCall() - gvx::MonotonicMilliseconds(), 0, INT_MAX);
        const ACE_Time_Value limit(leftMs / 1000, static_cast<suseconds_t>(leftMs % 1000) * 1000);
        connected = m_sockStream.get_handle() != ACE_INVALID_HANDLE &&
                    m_sockConnector.connect(m_sockStream, m_peerAddr, &limit, m_localAddr) == 0 &&
                    m_sockStream.enable(ACE_NONBLOCK) == 0;
    }
    if (!connected) {
        GVX_LOG_ERR(kTitle, "socket connection fail, error[%d]", errno);
        m_sockStream.close();
        return ZVS_FAIL;
    }
    if (!ClientSSLConnect()) {
        GVX_LOG_ERR(kTitle, "ClientSSLConnect fail");
        m_sockStream.close();
        return ZVS_FAIL;
    }
    m_connected = true;
    GVX_LOG_INFO(kTitle, "https connect success");
    return ZVS_SUCCEED;
}

bool CHttpsClient::ClientSSLConnect() {
    if (!InitClientSSLCtx()) {
        GVX_LOG_ERR(kTitle, "InitClientSSLCtx fail");
        return false;
    }
    if (!CreateClientSSL()) {
        GVX_LOG_ERR(kTitle, "CreateClientSSL fail");
        CleanUpSSLCtx();
        return false;
    }
    return true;
}

bool CHttpsClient::InitClientSSLCtx() {
    if (OPENSSL_init_ssl(0, nullptr) != 1) {
        GVX_LOG_ERR(kTitle, "SSLeay_add_ssl_algorithms fail");
        return false;
    }
    m_clientSSLMethod = TLS_client_method();
    if (m_clientSSLMethod == nullptr) {
        GVX_LOG_ERR(kTitle, "TLS_client_method fail");
        return false;
    }
    m_clientSSLCtx.reset(SSL_CTX_new(m_clientSSLMethod));
    if (m_clientSSLCtx != nullptr) {
        SSL_CTX_set_security_level(m_clientSSLCtx.get(), kSecurityLevel);
    }
    if (m_clientSSLCtx == nullptr || SSL_CTX_set_min_proto_version(m_clientSSLCtx.get(), TLS1_2_VERSION) != 1) {
        GVX_LOG_ERR(kTitle, "SSL_CTX_new fail");
        CleanUpSSLCtx();
        return false;
    }
    if (m_isCAcheck && !SetVerification()) {
        CleanUpSSLCtx();
        return false;
    }
    SSL_CTX_set_mode(m_clientSSLCtx.get(), SSL_MODE_ENABLE_PARTIAL_WRITE);
    return true;
}

bool CHttpsClient::SetVerification() {
    std::string file;
    if (get_config_directory(file) != 0) {
        GVX_LOG_ERR(kTitle, "Get CA certificate directory failed.");
        return false;
    }
    file += CA_CERTIFICATE;
    SSL_CTX_set_verify(m_clientSSLCtx.get(), SSL_VERIFY_PEER, nullptr);
    if (SSL_CTX_load_verify_locations(m_clientSSLCtx.get(), file.c_str(), nullptr) != 1) {
        GVX_LOG_ERR(kTitle, "SSL_CTX_load_verify_locations fail");
        return false;
    }
    SSL_CTX_set_verify_depth(m_clientSSLCtx.get(), kVerifyDepth);
    return true;
}

bool CHttpsClient::SetServerName() {
    const bool isAddress = CGvxUtility::IsIPv4(m_host.c_str());
    if (!isAddress && SSL_set_tlsext_host_name(m_SSL.get(), m_host.c_str()) != 1) {
        return false;
    }
    if (!m_isCAcheck || gvx::SettingNumber(gvx::Setting::HTTPS_CHECK_HOST_NAME) == 0) {
        return true;
    }
    return isAddress ? X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(m_SSL.get()), m_host.c_str()) == 1
                     : SSL_set1_host(m_SSL.get(), m_host.c_str()) == 1;
}

bool CHttpsClient::CreateClientSSL() {
    m_SSL.reset(SSL_new(m_clientSSLCtx.get()));
    if (m_SSL == nullptr || SSL_set_fd(m_SSL.get(), m_sockStream.get_handle()) != 1 || !SetServerName()) {
        GVX_LOG_ERR(kTitle, "The session for [%s:%u] can not be set up", m_host.c_str(), m_port);
        return false;
    }
    return Handshake() && ReadPeer();
}

bool CHttpsClient::Handshake() {
    int sslError = SSL_ERROR_NONE;
    int systemError = 0;
    const int result = Run([](SSL* ssl) { return SSL_connect(ssl); }, sslError, systemError);
    const long verified = SSL_get_verify_result(m_SSL.get());
    if (result != 1) {
        GVX_LOG_ERR(kTitle, "SSL_connect fail, errcode[%d], errno[%d]", sslError, systemError);
    }
    if (m_isCAcheck && verified != X509_V_OK) {
        GVX_LOG_ERR(kTitle, "SSL_get_verify_result, verify service certificate failed");
        GVX_LOG_ERR(kTitle, "The certificate of [%s:%u] is refused: its %s is wrong (%s)", m_host.c_str(), m_port,
                    RefusedPart(verified), X509_verify_cert_error_string(verified));
        return false;
    }
    if (result != 1) {
        const unsigned long reason = ERR_peek_last_error();
        const char* text = reason != 0 ? ERR_reason_error_string(reason) : nullptr;
        GVX_LOG_ERR(kTitle, "No TLS with [%s:%u]: %s", m_host.c_str(), m_port,
                    text != nullptr ? text : "the peer was silent or closed");
        return false;
    }
    return true;
}

// What the peer showed must be readable.
bool CHttpsClient::ReadPeer() const {
    GVX_LOG_INFO(kTitle, "SSL_connect success");
    const char* cipher = SSL_get_cipher(m_SSL.get());
    if (cipher == nullptr) {
        GVX_LOG_ERR(kTitle, "SSL_get_cipher fail");
        return false;
    }
    const std::unique_ptr<X509, decltype(&X509_free)> certificate(SSL_get1_peer_certificate(m_SSL.get()), &X509_free);
    if (certificate == nullptr) {
        GVX_LOG_ERR(kTitle, "SSL_get_peer_certificate fail");
        return false;
    }
    char subject[256];
    char issuer[256];
    if (X509_NAME_oneline(X509_get_subject_name(certificate.get()), subject, sizeof(subject)) == nullptr) {
        GVX_LOG_ERR(kTitle, "X509_NAME_oneline/X509_get_subject_name fail");
        return false;
    }
    if (X509_NAME_oneline(X509_get_issuer_name(certificate.get()), issuer, sizeof(issuer)) == nullptr) {
        GVX_LOG_ERR(kTitle, "X509_NAME_oneline/X509_get_issuer_name fail");
        return false;
    }
    GVX_LOG_INFO(kTitle, "%s %s, subject [%s], issuer [%s]", SSL_get_version(m_SSL.get()), cipher, subject, issuer);
    return true;
}

int CHttpsClient::Send(const char* data, std::size_t length) {
    if (data == nullptr || length == 0) {
        GVX_LOG_ERR(kTitle, "invalid params");
        return ZVS_PARA_INVALID;
    }
    if (!m_connected) {
        return ZVS_NET_CONNECT_ERROR;
    }
    for (std::size_t sent = 0; sent < length;) {
        int sslError = SSL_ERROR_NONE;
        int systemError = 0;
        const int piece = static_cast<int>(std::min<std::size_t>(length - sent, INT_MAX));
        const int result =
            Run([data, sent, piece](SSL* ssl) { return SSL_write(ssl, data + sent, piece); }, sslError, systemError);
        if (result > 0) {
            sent += static_cast<std::size_t>(result);
            continue;
        }
        if (result < 0 && IsLinkOk(systemError) &&
            (sslError == SSL_ERROR_WANT_READ || sslError == SSL_ERROR_WANT_WRITE)) {
            GVX_LOG_ERR(kTitle, "https client send fail, the net work is busy");
            return ZVS_NET_SEND_ERROR;
        }
        GVX_LOG_ERR(kTitle, "https client send fail, close socket err[%d]", sslError);
        Close();
        return ZVS_NET_CONNECT_ERROR;
    }
    return ZVS_SUCCEED;
}

int CHttpsClient::Recv(char* buffer, std::size_t size, std::size_t& received) {
    received = 0;
    if (buffer == nullptr || size == 0) {
        GVX_LOG_ERR(kTitle, "invalid params");
        return ZVS_PARA_INVALID;
    }
    if (!m_connected) {
        return ZVS_NET_CONNECT_ERROR;
    }
    int sslError = SSL_ERROR_NONE;
    int systemError = 0;
    const int piece = static_cast<int>(std::min<std::size_t>(size, INT_MAX));
    const int result = Run([buffer, piece](SSL* ssl) { return SSL_read(ssl, buffer, piece); }, sslError, systemError);
    if (result > 0) {
        received = static_cast<std::size_t>(result);
        return ZVS_SUCCEED;
    }
    if (result == 0) {
        GVX_LOG_ERR(kTitle, "SSL_read fail, remote peer closed");
    } else if (IsLinkOk(systemError) && (sslError == SSL_ERROR_WANT_READ || sslError == SSL_ERROR_WANT_WRITE)) {
        GVX_LOG_ERR(kTitle, "SSL_read fail, net work is busy");
        return ZVS_NET_RECV_ERROR;
    } else {
        GVX_LOG_ERR(kTitle, "SSL_read fail, close socket");
    }
    Close();
    return ZVS_NET_CONNECT_ERROR;
}

void CHttpsClient::Close() {
    if (m_SSL != nullptr) {
        SSL_shutdown(m_SSL.get());
        m_SSL.reset();
        ERR_clear_error();
    }
    CleanUpSSLCtx();
    if (m_sockStream.get_handle() != ACE_INVALID_HANDLE) {
        if (ACE_OS::shutdown(m_sockStream.get_handle(), SHUT_WR) != 0) {
            GVX_LOG_INFO(kTitle, "ACE_OS::shutdown fail");
        }
        m_sockStream.close();
    }
    m_connected = false;
}

void CHttpsClient::CleanUpSSLCtx() {
    ERR_clear_error();  // what failed is told; other users of the thread's queue must not meet it
    m_SSL.reset();
    m_clientSSLCtx.reset();
}
