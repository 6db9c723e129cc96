// The first bytes of a peer, as a link takes them. The first byte of the input says how they come: 'P' plain; 'T' raw
// at the door of a link over TLS; 'M' as a true handshake with a registration behind it, in which the bytes that follow
// spoil what the peer says: three for each, place (16 bits) and mask.

#include "bp/frame_reader.h"
#include "bp/link_tls.h"
#include "bp/registration.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t kMaxRegistrationBytes = 4096;
constexpr const char* kIdentifier = "SCU#001";

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// A folder for the time of this process.
struct Folder {
    Folder() { Require(::mkdtemp(path) != nullptr); }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    char path[40] = "/tmp/link_registration_fuzzer_XXXXXX";
};

// A certificate that is its own authority.
BP::LinkTlsFiles MakeFiles(const std::string& folder) {
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
    const std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), &X509_free);
    Require(key != nullptr && certificate != nullptr);
    X509_set_version(certificate.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 86400 * 30L);
    X509_set_pubkey(certificate.get(), key.get());
    X509_NAME* const name = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(kIdentifier), -1, -1,
                               0);
    X509_set_issuer_name(certificate.get(), name);
    Require(X509_sign(certificate.get(), key.get(), EVP_sha256()) > 0);
    BP::LinkTlsFiles files{folder + "/c.pem", folder + "/k.pem", folder + "/c.pem"};
    ::umask(077);
    std::FILE* file = std::fopen(files.certificate.c_str(), "w");
    Require(file != nullptr && PEM_write_X509(file, certificate.get()) == 1 && std::fclose(file) == 0);
    file = std::fopen(files.key.c_str(), "w");
    Require(file != nullptr && std::fclose(file) == 0);
    file = std::fopen(files.key.c_str(), "w");
    Require(PEM_write_PrivateKey(file, key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1 &&
            std::fclose(file) == 0);
    return files;
}

BP::LinkTls& Tls() {
    static BP::LinkTls& tls = *[] {
        std::string fault;
        static const Folder folder;
        BP::LinkTls* const loaded = BP::LinkTls::Load(MakeFiles(folder.path), &fault).release();
        Require(loaded != nullptr);
        return loaded;
    }();
    return tls;
}

// What a link does with bytes before it is open; true when they registered somebody.
bool Register(BP::FrameReader& reader, const char* data, std::size_t length, std::string& identifier) {
    while (length > 0) {
        const std::size_t used = reader.Feed(data, length);
        data += used;
        length -= used;
        if (reader.GetFault() != BP::FrameReader::Fault::None) {
            return false;
        }
        if (reader.Complete()) {
            const BP::MessageBlockPtr frame = reader.Take();
            std::string fault;
            const bool good = BP::ReadRegistration(frame.get(), identifier, &fault);
            Require(good == fault.empty() && (!good || BP::IsLinkIdentifier(identifier)));
            return good;
        }
    }
    return false;
}

// A pair of sockets that do not block.
struct Ends {
    Ends() { Require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, fds.data()) == 0); }
    ~Ends() {
        ::close(fds[0]);
        ::close(fds[1]);
    }
    std::array<int, 2> fds{};
};

std::string Drain(int fd) {
    std::string bytes;
    std::array<char, 4096> buffer;
    for (ssize_t got = ::read(fd, buffer.data(), buffer.size()); got > 0;
         got = ::read(fd, buffer.data(), buffer.size())) {
        bytes.append(buffer.data(), static_cast<std::size_t>(got));
    }
    return bytes;
}

// The door of a link over TLS; what has come through registers.
bool Door(BP::TlsSession& session, bool& agreed, BP::FrameReader& reader, std::string& identifier) {
    if (!agreed) {
        agreed = session.Handshake() == BP::TlsSession::Result::Done;
    }
    std::array<char, 16384> buffer;
    std::size_t got = 0;
    while (agreed && session.Read(buffer.data(), buffer.size(), got) == BP::TlsSession::Result::Done) {
        if (Register(reader, buffer.data(), got, identifier)) {
            return true;
        }
    }
    return false;
}

void RawAtTheDoor(const std::string& bytes) {
    const Ends ends;
    const std::unique_ptr<BP::TlsSession> session = Tls().Begin(ends.fds[0], false);
    BP::FrameReader reader;
    reader.SetMaxFrameBytes(kMaxRegistrationBytes);
    bool agreed = false;
    std::string identifier;
    const ssize_t written = ::write(ends.fds[1], bytes.data(), bytes.size());
    static_cast<void>(written);
    Require(!Door(*session, agreed, reader, identifier) && !agreed);  // nobody has shown a certificate
}

void Spoiled(const std::string& spoilers) {
    const Ends near;  // between the door and us
    const Ends far;   // between the peer and us
    const std::unique_ptr<BP::TlsSession> door = Tls().Begin(near.fds[0], false);
    const std::unique_ptr<BP::TlsSession> peer = Tls().Begin(far.fds[0], true);
    BP::FrameReader reader;
    reader.SetMaxFrameBytes(kMaxRegistrationBytes);
    std::string identifier;
    std::size_t place = 0;
    bool agreed = false;
    bool peerAgreed = false;
    bool spoiled = false;
    bool registered = false;
    for (int turn = 0; turn < 8 && !registered; ++turn) {
        if (!peerAgreed && peer->Handshake() == BP::TlsSession::Result::Done) {
            peerAgreed = true;
            const BP::MessageBlockPtr frame = BP::MakeRegisterRequest(kIdentifier);
            std::size_t put = 0;
            peer->Write(frame->rd_ptr(), frame->length(), put);
        }
        std::string said = Drain(far.fds[1]);
        for (std::size_t at = 0; at + 3 <= spoilers.size(); at += 3) {
            const std::size_t target =
                static_cast<unsigned char>(spoilers[at]) << 8 | static_cast<unsigned char>(spoilers[at + 1]);
            if (target >= place && target < place + said.size() && spoilers[at + 2] != 0) {
                said[target - place] = static_cast<char>(said[target - place] ^ spoilers[at + 2]);
                spoiled = true;
            }
        }
        place += said.size();
        const ssize_t in = ::write(near.fds[1], said.data(), said.size());
        registered = Door(*door, agreed, reader, identifier);
        const std::string answer = Drain(near.fds[1]);
        const ssize_t out = ::write(far.fds[1], answer.data(), answer.size());
        static_cast<void>(in);
        static_cast<void>(out);
    }
    Require(spoiled ||
            (registered && identifier == kIdentifier && door->PeerIs(identifier) && !door->PeerIs("SCU#002")));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string rest(reinterpret_cast<const char*>(data) + 1, std::min<std::size_t>(size - 1, 32768));
    if (data[0] == 'T') {
        RawAtTheDoor(rest);
    } else if (data[0] == 'M') {
        Spoiled(rest);
    } else {
        BP::FrameReader reader;
        reader.SetMaxFrameBytes(kMaxRegistrationBytes);
        std::string identifier;
        Register(reader, rest.data(), rest.size(), identifier);
    }
    return 0;
}
