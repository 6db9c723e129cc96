// Snapshots from a camera and uploads to the platform, beside curl against the same server (nginx, a process of its
// own). One curl process does as many transfers as we do, so that its start is shared out.

#include "bench_support.h"

#include "gvx_common/config/gvx_config_mgr.h"
#include "gvx_common/http/common_http_stream.h"
#include "gvx_common/https/https_stream_util.h"
#include "gvx_common/security/gvx_security_mgr.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kRounds = 7;
constexpr int kSnapshots = 100;
constexpr int kClients = 5;
constexpr int kUploads = 40;  // of each client
constexpr std::size_t kPictureBytes = 300000;
constexpr std::size_t kUploadBytes = 200000;

void Demand(bool good, const char* what) {
    if (!good) {
        std::fprintf(stderr, "%s failed\n", what);
        std::exit(1);
    }
}

std::uint16_t FreePort() {
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    Demand(bind(probe, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
               getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length) == 0,
           "a free port");
    close(probe);
    return ntohs(address.sin_port);
}

bool Listens(std::uint16_t port) {
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    const bool connected = connect(probe, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    close(probe);
    return connected;
}

pid_t Start(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        execvp(arguments[0], arguments.data());
        std::perror(arguments[0]);
        _exit(127);
    }
    return child;
}

// The processor time of a process that ends well, in nanoseconds.
std::int64_t CpuOf(pid_t child, const char* what) {
    int status = 0;
    rusage used{};
    Demand(wait4(child, &status, 0, &used) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0, what);
    const auto ns = [](const timeval& time) { return (time.tv_sec * std::int64_t{1000000} + time.tv_usec) * 1000; };
    return ns(used.ru_utime) + ns(used.ru_stime);
}

// The server with its files, certificate and configuration; ours is beside it.
class Site {
public:
    Site() : m_http(FreePort()), m_https(FreePort()) {
        std::string pattern = (std::filesystem::temp_directory_path() / "gvx_bench_XXXXXX").string();
        m_path = mkdtemp(pattern.data());
        const std::string folder = m_path.string();
        std::filesystem::create_directories(m_path / "conf/omu_portal");
        std::filesystem::create_directories(m_path / "conf/alarm");
        Write("picture.jpg", std::string(kPictureBytes, 'p'));
        Write("upload.bin", std::string(kUploadBytes, 'u'));
        Write("conf/net.xml", "<Net/>");
        Write("conf/zvs_gvx.conf", "; settings\nHTTPS_CHECK_HOST_NAME=1\n");
        Write("conf/zvs_gvx_nat.conf", "[SUBNET_NAT]\nSUBNET_NAT_IP_LIST=\n");
        Write("conf/alarm/gvx_nvt_alarm_description.xml",
              "<AlarmInfoList><AlarmInfo><AlarmType>A</AlarmType></AlarmInfo></AlarmInfoList>");
        CpuOf(Start({"openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", folder + "/key.pem", "-out",
                     CertificatePath(), "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost"}),
              "openssl");
        const std::string temps = "client_body_temp_path " + folder + "/t1; proxy_temp_path " + folder +
                                  "/t2; fastcgi_temp_path " + folder + "/t3; uwsgi_temp_path " + folder +
                                  "/t4; scgi_temp_path " + folder + "/t5;";
        Write("nginx.conf",
              std::string("daemon off; master_process off; pid ") + folder + "/pid; error_log " + folder +
                  "/error.log;\nevents {}\nhttp { access_log off; client_max_body_size 0; keepalive_requests 100000; " +
                  temps + "\nserver { listen 127.0.0.1:" + std::to_string(m_http) + "; root " + folder +
                  "; }\nserver { listen 127.0.0.1:" + std::to_string(m_https) + " ssl; ssl_certificate " +
                  CertificatePath() + "; ssl_certificate_key " + folder +
                  "/key.pem; location / { return 200 stored; } } }\n");
        setenv("GVX_CONFIG_DIR", (folder + "/conf").c_str(), 1);
        setenv("GVX_ROOT", (folder + "/root").c_str(), 1);
        m_server = Start({"/usr/sbin/nginx", "-e", folder + "/error.log", "-c", folder + "/nginx.conf"});
        for (int i = 0; i < 500 && !(Listens(m_http) && Listens(m_https)); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        Demand(Listens(m_http) && Listens(m_https), "nginx");
    }
    ~Site() {
        kill(m_server, SIGTERM);
        waitpid(m_server, nullptr, 0);
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    Site(const Site&) = delete;
    Site& operator=(const Site&) = delete;

    std::string Path(const std::string& name) const { return (m_path / name).string(); }
    std::string CertificatePath() const { return Path("conf/omu_portal/cacert.pem"); }
    std::uint16_t HttpPort() const { return m_http; }
    std::string PictureURL() const { return "http://127.0.0.1:" + std::to_string(m_http) + "/picture.jpg"; }
    std::string UploadURL() const {
        return "https://localhost:" + std::to_string(m_https) + "/store/file.bin?FILESESSIONID=1";
    }

private:
    void Write(const std::string& name, const std::string& content) const {
        std::ofstream(m_path / name, std::ios::binary) << content;
    }

    std::filesystem::path m_path;
    const std::uint16_t m_http;
    const std::uint16_t m_https;
    pid_t m_server = -1;
};

// The last snapshot's heap allocations, from composing its request on, go to allocations.
double OurSnapshots(const Site& site, const char* password, std::uint64_t& allocations) {
    const std::int64_t before = bench::ProcessCpuNs();
    const std::string port = std::to_string(site.HttpPort());
    CCommonHttpStream stream;
    for (int i = 0; i < kSnapshots; ++i) {
        const std::string file = site.Path("ours" + std::to_string(i));
        std::filesystem::remove(file);
        Common_HTTP_AUTH auth{};
        long length = 0;
        Demand(stream.Init("127.0.0.1", site.HttpPort(), "admin", password) == 0, "our connection");
        allocations = bench::Allocations();
        Demand(stream.FormatRequestHeader("127.0.0.1", port.c_str(), "/picture.jpg", length, "GET ", nullptr, nullptr,
                                          0, 0, 0) != nullptr &&
                   stream.SendRequest(nullptr, length, false) && stream.DealHttpSnapShot(file.c_str(), auth) == 0,
               "our snapshot");
        allocations = bench::Allocations() - allocations;
        Demand(std::filesystem::file_size(file) == kPictureBytes, "our picture");
        stream.Close();
    }
    return static_cast<double>(bench::ProcessCpuNs() - before) / kSnapshots / 1000;
}

double CurlSnapshots(const Site& site) {
    std::vector<std::string> command = {"curl", "-sSf", "-H", "Connection: close"};
    for (int i = 0; i < kSnapshots; ++i) {
        command.insert(command.end(), {"-o", site.Path("curl" + std::to_string(i)), site.PictureURL()});
    }
    return static_cast<double>(CpuOf(Start(command), "curl's snapshots")) / kSnapshots / 1000;
}

double PerSecond(std::int64_t begunNs) {
    return kClients * kUploads * 1e9 / static_cast<double>(bench::NowNs() - begunNs);
}

double OurUploads(const Site& site, double& cpuUs) {
    const std::int64_t begun = bench::NowNs();
    const std::int64_t before = bench::ProcessCpuNs();
    std::vector<std::thread> clients;
    for (int i = 0; i < kClients; ++i) {
        clients.emplace_back([&site] {
            for (int j = 0; j < kUploads; ++j) {
                Demand(CHttpsStreamUtil::GetInstance()->UploadFile(site.Path("upload.bin"), site.UploadURL()) == 0,
                       "our upload");
            }
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    cpuUs = static_cast<double>(bench::ProcessCpuNs() - before) / (kClients * kUploads) / 1000;
    return PerSecond(begun);
}

double CurlUploads(const Site& site, double& cpuUs) {
    std::vector<std::string> command = {"curl", "-sSf", "--cacert", site.CertificatePath()};
    for (int j = 0; j < kUploads; ++j) {
        command.insert(command.end(), {"-H", "Content-Type: application/octet-stream", "-H", "Expect:", "--data-binary",
                                       "@" + site.Path("upload.bin"), "-o", "/dev/null", site.UploadURL()});
        if (j + 1 < kUploads) {
            command.insert(command.end(), {"--next", "-sSf", "--cacert", site.CertificatePath()});
        }
    }
    const std::int64_t begun = bench::NowNs();
    std::vector<pid_t> clients;
    for (int i = 0; i < kClients; ++i) {
        clients.push_back(Start(command));
    }
    std::int64_t cpu = 0;
    for (const pid_t client : clients) {
        cpu += CpuOf(client, "curl's uploads");
    }
    cpuUs = static_cast<double>(cpu) / (kClients * kUploads) / 1000;
    return PerSecond(begun);
}

}  // namespace

int main() {
    std::signal(SIGPIPE, SIG_IGN);
    const Site site;
    Demand(GvxConfigMgr()->Init() == 0, "the configuration");
    char password[256];
    Demand(GvxSecurityMgr()->EncryptString("secret", password, sizeof(password)) == 0, "a password");
    std::vector<double> ours;
    std::vector<double> curls;
    std::vector<double> ourRate;
    std::vector<double> curlRate;
    std::vector<double> ourCpu;
    std::vector<double> curlCpu;
    std::uint64_t allocations = 0;
    for (int i = 0; i < kRounds; ++i) {
        double cpu = 0;
        ours.push_back(OurSnapshots(site, password, allocations));
        curls.push_back(CurlSnapshots(site));
        ourRate.push_back(OurUploads(site, cpu));
        ourCpu.push_back(cpu);
        curlRate.push_back(CurlUploads(site, cpu));
        curlCpu.push_back(cpu);
    }
    bench::Table table("HTTP: snapshots of 300 kB, uploads of 200 kB over TLS by 5 clients; the floor is curl");
    table.Paired("snapshot, CPU time", ours, curls, "us", bench::Goal::AtMost, 1.5);
    table.Paired("uploads a second", ourRate, curlRate, "1/s");
    table.Paired("upload, CPU time", ourCpu, curlCpu, "us");
    table.Plain("heap allocations a snapshot", static_cast<double>(allocations), "");
    return table.Print() ? 0 : 1;
}
