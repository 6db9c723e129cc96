#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

struct ssl_st;
struct ssl_ctx_st;

namespace BP {

// Files in PEM. All empty: links are plain.
struct LinkTlsFiles {
    std::string certificate;  // of this side, with the chain up to the authority
    std::string key;          // of the certificate; not for others to read
    std::string authority;    // whose certificates peers must show

    bool Given() const { return !certificate.empty(); }
};

// TLS of one connection, on a non-blocking socket that its owner keeps. One thread at a time.
class TlsSession {
public:
    enum class Result {
        Done,
        WantRead,
        WantWrite,
        Ended,  // the peer has ended the connection
        Failed  // Fault says why
    };

    // Both calls are made until they answer Done; while they want something, when the socket has it.
    Result Handshake();
    // At most one record. Done with at least one byte.
    Result Read(char* buffer, std::size_t length, std::size_t& got);
    // After WantRead or WantWrite the next call must begin with the same bytes, and have as many at least.
    Result Write(const char* data, std::size_t length, std::size_t& put);
    // Tells the peer that nothing follows, as far as the socket takes it.
    void End();

    // Whether the peer's certificate names that identifier: as its common name, or as an alternative name of the form
    // URI or DNS.
    bool PeerIs(const std::string& linkID) const;
    const std::string& Fault() const { return m_fault; }

private:
    friend class LinkTls;
    struct FreeSsl {
        void operator()(ssl_st* ssl) const noexcept;
    };
    explicit TlsSession(ssl_st* ssl) : m_ssl(ssl) {}
    Result ResultOf(int answer);

    std::unique_ptr<ssl_st, FreeSsl> m_ssl;
    std::string m_fault;
    bool m_usable = true;  // false behind a failure
};

// TLS 1.3 with a certificate on both sides, for all links of a process. Renewed files are taken for the connections
// that follow. One thread at a time.
class LinkTls {
public:
    // Null when the files cannot be used; *fault then says which and why.
    static std::unique_ptr<LinkTls> Load(const LinkTlsFiles& files, std::string* fault);
    ~LinkTls();
    LinkTls(const LinkTls&) = delete;
    LinkTls& operator=(const LinkTls&) = delete;

    // A session for a connection that the peer has made, or for one of ours. Looks first, once a second at most,
    // whether the files have changed; files that cannot be used are told once, and the former stay in force. Null
    // without memory.
    std::unique_ptr<TlsSession> Begin(int fd, bool outgoing);

private:
    struct FreeContext {
        void operator()(ssl_ctx_st* context) const noexcept;
    };
    using Context = std::unique_ptr<ssl_ctx_st, FreeContext>;

    explicit LinkTls(const LinkTlsFiles& files) : m_files(files) {}
    static Context MakeContext(const LinkTlsFiles& files, std::string* fault);
    std::string Stamp() const;
    void Refresh();

    const LinkTlsFiles m_files;
    Context m_context;
    std::string m_stamp;  // of the files when they were looked at
    std::int64_t m_nextLookMs = 0;
};

}  // namespace BP
