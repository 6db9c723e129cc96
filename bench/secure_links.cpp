// What TLS costs a link, and what another link waits for its answer while thirty peers send bodies that take long.

#include "link_frames.h"

#include "bench_support.h"
#include "bp/dispatcher.h"
#include "bp/link_tls.h"
#include "bp/message_block_ptr.h"
#include "bp/net_factory.h"
#include "gateway/messages/request_body.h"
#include "nss/nss_msg.h"
#include "nss/nss_msg_type.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <semaphore.h>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int kRounds = 5;
constexpr std::uint64_t kFrames = 200000;
constexpr std::uint64_t kWarmUp = kFrames / 10;
constexpr std::uint64_t kGroup = 64;
constexpr std::uint64_t kWindow = 8192;
constexpr int kHeavyPeers = 30;
constexpr int kQuestions = 2000;
constexpr const char* kPeer = "SCU#001";

[[noreturn]] void GiveUp(const std::string& what) {
    std::fprintf(stderr, "%s\n", what.c_str());
    std::exit(2);
}

// A certificate for the gateway and one for the peer, by an authority of their own.
class Certificates {
public:
    Certificates() {
        char folder[] = "/tmp/bench_secure_links_XXXXXX";
        if (::mkdtemp(folder) == nullptr) {
            GiveUp("no folder for the certificates");
        }
        m_folder = folder;
        Run("req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=authority -keyout ca.key -out ca.pem");
        for (const auto& [name, identifier] : {std::pair("gateway", "GVX#001"), std::pair("peer", kPeer)}) {
            const std::string file = name;
            Run("req -new -newkey rsa:2048 -nodes -subj '/CN=" + std::string(identifier) + "' -keyout " + file +
                ".key -out " + file + ".csr");
            Run("x509 -req -in " + file + ".csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 -out " + file +
                ".pem");
        }
    }
    ~Certificates() {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }
    Certificates(const Certificates&) = delete;
    Certificates& operator=(const Certificates&) = delete;

    BP::LinkTlsFiles Of(const std::string& name) const {
        return {m_folder + "/" + name + ".pem", m_folder + "/" + name + ".key", m_folder + "/ca.pem"};
    }

private:
    void Run(const std::string& command) {
        if (std::system(("cd " + m_folder + " && umask 077 && openssl " + command + " >/dev/null 2>&1").c_str()) != 0) {
            GiveUp("openssl " + command);
        }
    }

    std::string m_folder;
};

// The peer's end: registered, over TLS where files are given.
class PeerSocket {
public:
    PeerSocket(std::uint16_t port, const char* identifier, const BP::LinkTlsFiles& files)
        : m_socket(bench_link::ConnectedSocket(port)) {
        if (files.Given()) {
            std::string fault;
            m_tls = BP::LinkTls::Load(files, &fault);
            if (m_tls == nullptr) {
                GiveUp(fault);
            }
            ::fcntl(m_socket, F_SETFL, O_NONBLOCK);
            m_session = m_tls->Begin(m_socket, true);
            while (Wait(m_session->Handshake())) {
            }
        }
        const std::string registration = bench_link::RegistrationFrame(identifier);
        Write(registration.data(), registration.size());
    }
    ~PeerSocket() { ::close(m_socket); }
    PeerSocket(const PeerSocket&) = delete;
    PeerSocket& operator=(const PeerSocket&) = delete;

    void Write(const char* data, std::size_t length) {
        if (m_session == nullptr) {
            bench_link::WriteAll(m_socket, data, length);
            return;
        }
        for (std::size_t at = 0; at < length;) {
            std::size_t put = 0;
            while (Wait(m_session->Write(data + at, length - at, put))) {
            }
            at += put;
        }
    }
    // Reads one frame of a bare head.
    void ReadAnswer() {
        char head[kNssHeaderBytes];
        if (::recv(m_socket, head, sizeof(head), MSG_WAITALL) != static_cast<ssize_t>(sizeof(head))) {
            GiveUp("no answer");
        }
    }
    // Leaves out what answers the registration.
    void SkipRegistration() {
        NssMsgHeader head;
        if (::recv(m_socket, &head, sizeof(head), MSG_WAITALL) != static_cast<ssize_t>(sizeof(head))) {
            GiveUp("no registration");
        }
        NssSwapHeader(head);
        std::vector<char> body(head.uiPacketLength - sizeof(head));
        if (::recv(m_socket, body.data(), body.size(), MSG_WAITALL) != static_cast<ssize_t>(body.size())) {
            GiveUp("no registration");
        }
    }

private:
    // False when it is done.
    bool Wait(BP::TlsSession::Result result) {
        if (result == BP::TlsSession::Result::Done) {
            return false;
        }
        if (result == BP::TlsSession::Result::Failed || result == BP::TlsSession::Result::Ended) {
            GiveUp("TLS: " + m_session->Fault());
        }
        const bool reads = result == BP::TlsSession::Result::WantRead;
        pollfd waiting{m_socket, static_cast<short>(reads ? POLLIN : POLLOUT), 0};
        ::poll(&waiting, 1, -1);
        return true;
    }

    const int m_socket;
    std::unique_ptr<BP::LinkTls> m_tls;
    std::unique_ptr<BP::TlsSession> m_session;
};

std::uint16_t StartLinks(const BP::LinkTlsFiles& files) {
    BP::LinkOptions options;
    options.localID = "GVX#001";
    options.tls = files;
    std::uint16_t port = 0;
    if (BP::CNetFactory::Start(options, {}) != 0 || BP::CNetFactory::Listen("127.0.0.1", 0, &port) != 0) {
        GiveUp("the links cannot be started");
    }
    return port;
}

// Frames a second of the link thread's time.
double FramesIn(const BP::LinkTlsFiles& gateway, const BP::LinkTlsFiles& files) {
    const std::uint16_t port = StartLinks(gateway);
    bench_link::SharedCount served;
    sem_t end;
    ::sem_init(&end, 0, 0);
    std::uint64_t taken = 0;
    std::int64_t begin = 0;
    std::int64_t cpu = 0;
    BP::CDispatcher::SetSink([&](std::unique_ptr<BP::CCmd>) {
        served.Add(1);
        if (++taken == kWarmUp) {
            begin = bench::ThreadCpuNs();
        } else if (taken == kFrames) {
            cpu = bench::ThreadCpuNs() - begin;
            ::sem_post(&end);
        }
        return 0;
    });
    {
        const bench_link::PeerProcess peer([&] {
            PeerSocket socket(port, kPeer, files);
            std::string group;
            for (std::uint64_t frame = 0; frame < kGroup; ++frame) {
                group += bench_link::RequestFrame(7, 0);
            }
            for (std::uint64_t sent = 0; sent < kFrames + kGroup; sent += kGroup) {
                while (sent > served.Get() + kWindow) {
                    bench_link::SleepUntil(bench::NowNs() + 50000);
                }
                socket.Write(group.data(), group.size());
            }
            ::pause();
        });
        while (::sem_wait(&end) != 0) {
        }
    }
    BP::CNetFactory::Stop();
    BP::CDispatcher::SetSink({});
    return static_cast<double>(kFrames - kWarmUp) / (static_cast<double>(cpu) / 1e9);
}

std::string HeavyFrame() {
    std::string text = "<Content>";
    for (int element = 0; element < 19000; ++element) {
        text += "<Element name=\"x\">some text</Element>";
    }
    text += "<DevCode>NOBODY</DevCode></Content>";
    CNssXMLMsg message(NSS_DEL_MAIN_DEV_REQ, 1, "bench", 0, 0);
    ACE_Message_Block block;
    if (message.SetXML(text.data(), static_cast<unsigned int>(text.size())) != 0 || message.encode(&block) != 0) {
        GiveUp("no heavy frame");
    }
    return std::string(block.rd_ptr(), block.length());
}

// Nanoseconds from question to answer of one peer, with so many others that send heavy bodies without end.
std::vector<std::int64_t> Answers(int heavyPeers) {
    const std::uint16_t port = StartLinks({});
    BP::CDispatcher::SetSink([](std::unique_ptr<BP::CCmd> cmd) {
        const gvx::RequestTarget target = gvx::ReadRequestTarget(*cmd->GetMsgBlock());
        if (cmd->GetNetLinkID() == kPeer && !target.malformed) {
            NssMsgHeader head{};
            head.usiProtocolVersion = kNssProtocolVersion;
            head.usiMsgType = 0x9999;
            head.uiPacketLength = kNssHeaderBytes;
            NssSwapHeader(head);
            BP::MessageBlockPtr answer = BP::MakeMessageBlock(kNssHeaderBytes);
            answer->copy(reinterpret_cast<const char*>(&head), kNssHeaderBytes);
            if (BP::CNetFactory::Send(kPeer, answer.get()) == 0) {
                (void)answer.release();
            }
        }
        return 0;
    });
    std::vector<std::unique_ptr<bench_link::PeerProcess>> peers;
    for (int peer = 0; peer < heavyPeers; ++peer) {
        peers.push_back(std::make_unique<bench_link::PeerProcess>([port, peer] {
            PeerSocket socket(port, ("SCU#heavy" + std::to_string(peer)).c_str(), {});
            const std::string frame = HeavyFrame();
            while (true) {
                socket.Write(frame.data(), frame.size());
            }
        }));
    }
    PeerSocket socket(port, kPeer, {});
    socket.SkipRegistration();
    const std::string question = bench_link::RequestFrame(7, 0);
    std::vector<std::int64_t> samples;
    for (int asked = 0; asked < kQuestions; ++asked) {
        const std::int64_t begin = bench::NowNs();
        socket.Write(question.data(), question.size());
        socket.ReadAnswer();
        samples.push_back(bench::NowNs() - begin);
        bench_link::SleepUntil(bench::NowNs() + 500000);
    }
    peers.clear();
    BP::CNetFactory::Stop();
    BP::CDispatcher::SetSink({});
    return samples;
}

}  // namespace

int main() {
    const Certificates certificates;
    bench::Table table(
        "links: TLS 1.3 beside plain ones, and a question beside 30 peers with heavy bodies (medians of " +
        std::to_string(kRounds) + " runs)");
    std::vector<double> tls, plain, p50, p50Alone, p99, p99Alone;
    for (int round = 0; round < kRounds; ++round) {
        plain.push_back(FramesIn({}, {}));
        tls.push_back(FramesIn(certificates.Of("gateway"), certificates.Of("peer")));
        std::vector<std::int64_t> alone = Answers(0);
        std::vector<std::int64_t> beside = Answers(kHeavyPeers);
        p50Alone.push_back(static_cast<double>(bench::Percentile(alone, 0.5)) / 1000);
        p99Alone.push_back(static_cast<double>(bench::Percentile(alone, 0.99)) / 1000);
        p50.push_back(static_cast<double>(bench::Percentile(beside, 0.5)) / 1000);
        p99.push_back(static_cast<double>(bench::Percentile(beside, 0.99)) / 1000);
    }
    using bench::Median;
    table.Row("frames in over TLS, 200 bytes", Median(tls), Median(plain), "frames/cpu-s");
    table.Row("question to answer beside 30 peers, p50", Median(p50), Median(p50Alone), "us");
    table.Row("question to answer beside 30 peers, p99", Median(p99), Median(p99Alone), "us");
    return table.Print() ? 0 : 1;
}
