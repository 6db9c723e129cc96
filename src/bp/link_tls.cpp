#include "bp/link_tls.h"

#include "base/clock.h"
#include "base/log.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <initializer_list>
#include <utility>

#include <sys/stat.h>

namespace BP {

namespace {

constexpr std::int64_t kLookMs = 1000;
// Behind the name of a key file, with words between it and the colon: the log takes what follows "key:" for a secret.
constexpr const char* kNoUse = " is of no use: ";

// What the library's queue of errors says first; the queue is empty then.
std::string OpenSslFault(const char* otherwise) {
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    const char* const reason = code != 0 ? ERR_reason_error_string(code) : nullptr;
    return reason != nullptr ? reason : otherwise;
}

// The library would ask for a passphrase on the terminal.
int RefusePassphrase(char*, int, int, void* asked) {
    *static_cast<bool*>(asked) = true;
    return -1;
}

bool SameText(const ASN1_STRING* text, const std::string& wanted) {
    const int length = ASN1_STRING_length(text);
    return length > 0 && static_cast<std::size_t>(length) == wanted.size() &&
           std::memcmp(ASN1_STRING_get0_data(text), wanted.data(), wanted.size()) == 0;
}

bool CommonNameIs(const X509* certificate, const std::string& wanted) {
    const X509_NAME* const subject = X509_get_subject_name(certificate);
    const int at = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
    return at >= 0 && SameText(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, at)), wanted);
}

bool AlternativeNameIs(const X509* certificate, const std::string& wanted) {
    auto* const raw =
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr));
    const std::unique_ptr<GENERAL_NAMES, decltype(&GENERAL_NAMES_free)> names(raw, &GENERAL_NAMES_free);
    bool found = false;
    for (int i = 0; raw != nullptr && i < sk_GENERAL_NAME_num(raw) && !found; ++i) {
        int type = 0;
        const void* const value = GENERAL_NAME_get0_value(sk_GENERAL_NAME_value(raw, i), &type);
        found = (type == GEN_URI || type == GEN_DNS) && SameText(static_cast<const ASN1_STRING*>(value), wanted);
    }
    return found;
}

}  // namespace

void TlsSession::FreeSsl::operator()(ssl_st* ssl) const noexcept {
    SSL_free(ssl);
}

void LinkTls::FreeContext::operator()(ssl_ctx_st* context) const noexcept {
    SSL_CTX_free(context);
}

TlsSession::Result TlsSession::ResultOf(int answer) {
    switch (SSL_get_error(m_ssl.get(), answer)) {
        case SSL_ERROR_NONE:
            return Result::Done;
        case SSL_ERROR_WANT_READ:
            return Result::WantRead;
        case SSL_ERROR_WANT_WRITE:
            return Result::WantWrite;
        case SSL_ERROR_ZERO_RETURN:
            return Result::Ended;
        case SSL_ERROR_SYSCALL:
            m_usable = false;
            m_fault = gvx::ErrnoText("the connection broke", errno);
            return Result::Failed;
        default:
            m_usable = false;
            m_fault = "TLS: " + OpenSslFault("an error without a reason");
            return Result::Failed;
    }
}

TlsSession::Result TlsSession::Handshake() {
    ERR_clear_error();
    return ResultOf(SSL_do_handshake(m_ssl.get()));
}

TlsSession::Result TlsSession::Read(char* buffer, std::size_t length, std::size_t& got) {
    got = 0;
    ERR_clear_error();
    const int answer = SSL_read_ex(m_ssl.get(), buffer, length, &got);
    return answer == 1 ? Result::Done : ResultOf(answer);
}

TlsSession::Result TlsSession::Write(const char* data, std::size_t length, std::size_t& put) {
    put = 0;
    ERR_clear_error();
    const int answer = SSL_write_ex(m_ssl.get(), data, length, &put);
    return answer == 1 ? Result::Done : ResultOf(answer);
}

void TlsSession::End() {
    if (m_usable && SSL_is_init_finished(m_ssl.get()) != 0) {
        SSL_shutdown(m_ssl.get());
        ERR_clear_error();
    }
}

bool TlsSession::PeerIs(const std::string& linkID) const {
    const X509* const certificate = SSL_get0_peer_certificate(m_ssl.get());
    return certificate != nullptr && (CommonNameIs(certificate, linkID) || AlternativeNameIs(certificate, linkID));
}

LinkTls::~LinkTls() = default;

LinkTls::Context LinkTls::MakeContext(const LinkTlsFiles& files, std::string* fault) {
    struct stat status = {};
    if (::stat(files.key.c_str(), &status) == 0 && (status.st_mode & S_IRWXO) != 0) {
        *fault = files.key + kNoUse + "others may use the key file";
        return nullptr;
    }
    Context context(SSL_CTX_new(TLS_method()));
    if (context == nullptr) {
        *fault = OpenSslFault("no memory for TLS");
        return nullptr;
    }
    SSL_CTX_set_min_proto_version(context.get(), TLS1_3_VERSION);
    SSL_CTX_set_max_proto_version(context.get(), TLS1_3_VERSION);
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    SSL_CTX_set_num_tickets(context.get(), 0);  // each connection shows its certificate anew
    SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
    SSL_CTX_set_options(context.get(), SSL_OP_IGNORE_UNEXPECTED_EOF);  // a frame tells by itself whether it is whole
    SSL_CTX_set_mode(context.get(),
                     SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER | SSL_MODE_RELEASE_BUFFERS);
    // A peer that sends records without content would otherwise keep a read going.
    SSL_CTX_clear_mode(context.get(), SSL_MODE_AUTO_RETRY);
    bool asked = false;
    SSL_CTX_set_default_passwd_cb(context.get(), &RefusePassphrase);
    SSL_CTX_set_default_passwd_cb_userdata(context.get(), &asked);
    ERR_clear_error();
    if (SSL_CTX_use_certificate_chain_file(context.get(), files.certificate.c_str()) != 1) {
        *fault = files.certificate + ": " + OpenSslFault("no certificate");
    } else if (SSL_CTX_use_PrivateKey_file(context.get(), files.key.c_str(), SSL_FILETYPE_PEM) != 1) {
        const std::string reason = OpenSslFault("no key of the certificate");
        *fault = files.key + kNoUse + (asked ? "the key has a passphrase, and nobody is there to tell it" : reason);
    } else if (SSL_CTX_check_private_key(context.get()) != 1) {  // of another kind than the certificate's
        *fault = files.key + kNoUse + OpenSslFault("no key of the certificate");
    } else if (SSL_CTX_load_verify_locations(context.get(), files.authority.c_str(), nullptr) != 1) {
        *fault = files.authority + ": " + OpenSslFault("no certificate of an authority");
    } else {
        SSL_CTX_set_default_passwd_cb_userdata(context.get(), nullptr);
        return context;
    }
    return nullptr;
}

std::unique_ptr<LinkTls> LinkTls::Load(const LinkTlsFiles& files, std::string* fault) {
    std::unique_ptr<LinkTls> tls(new LinkTls(files));
    tls->m_stamp = tls->Stamp();
    tls->m_context = MakeContext(files, fault);
    return tls->m_context == nullptr ? nullptr : std::move(tls);
}

std::string LinkTls::Stamp() const {
    std::string stamp;
    for (const std::string* path : {&m_files.certificate, &m_files.key, &m_files.authority}) {
        struct stat status = {};
        if (::stat(path->c_str(), &status) == 0) {
            stamp += std::to_string(status.st_ino) + "," + std::to_string(status.st_size) + "," +
                     std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec);
        }
        stamp += ";";
    }
    return stamp;
}

void LinkTls::Refresh() {
    const std::int64_t now = gvx::MonotonicMilliseconds();
    if (now < m_nextLookMs) {
        return;
    }
    m_nextLookMs = now + kLookMs;
    std::string stamp = Stamp();
    if (stamp == m_stamp) {
        return;
    }
    std::string fault;
    Context renewed = MakeContext(m_files, &fault);
    m_stamp = std::move(stamp);
    if (renewed == nullptr) {
        GVX_LOG_ERR("Link TLS", "The files have changed and cannot be used, the former stay in force: %s",
                    fault.c_str());
        return;
    }
    m_context = std::move(renewed);
    GVX_LOG_INFO("Link TLS", "The certificate, the key or the authority was renewed.");
}

std::unique_ptr<TlsSession> LinkTls::Begin(int fd, bool outgoing) {
    Refresh();
    std::unique_ptr<TlsSession> session(new TlsSession(SSL_new(m_context.get())));
    if (session->m_ssl == nullptr || SSL_set_fd(session->m_ssl.get(), fd) != 1) {
        ERR_clear_error();
        return nullptr;
    }
    if (outgoing) {
        SSL_set_connect_state(session->m_ssl.get());
    } else {
        SSL_set_accept_state(session->m_ssl.get());
    }
    return session;
}

}  // namespace BP
