#include "gvx_common/security/gvx_security_mgr.h"
#include "support/rtsp_client.h"

#include <cstdio>
#include <iostream>
#include <map>
#include <string>

// Goes through a whole session with an RTSP server, and prints a line for each step. The clear password is the one line
// of standard input.
//
//   rtsp_session URL USER TRANSPORT
//
// TRANSPORT is the header's value for the first media, with two numbers "0-1" that are counted up for the next. When
// the media travels on the connection, packets are read until each of its channels has brought one.

namespace {

constexpr int kMaxPackets = 2000;

int Failed(const char* step, int result) {
    std::printf("%s %d\n", step, result);
    return 1;
}

std::string TransportOf(const std::string& pattern, int media) {
    const std::string numbers = "0-1";
    std::string transport = pattern;
    const std::size_t at = transport.rfind(numbers);
    if (at != std::string::npos) {
        transport.replace(at, numbers.size(), std::to_string(2 * media) + "-" + std::to_string(2 * media + 1));
    }
    return transport;
}

}  // namespace

int main(int argc, char** argv) {
    std::string clear;
    if (argc != 4 || !std::getline(std::cin, clear)) {
        std::fprintf(stderr, "usage: %s URL USER TRANSPORT <PASSWORD\n", argv[0]);
        return 2;
    }
    char password[512] = {};
    if (CSecurityMgr::Instance()->EncryptString(clear.c_str(), password, sizeof(password)) != 0) {
        return Failed("EncryptString", 1);
    }
    RtspClient client(argv[1], argv[2], password);
    std::map<int, int> packets;
    client.SetOnInterleaved([&packets](unsigned char channel, const std::string&) { ++packets[channel]; });
    int result = 0;
    if ((result = client.Connect()) != 0) {
        return Failed("CONNECT", result);
    }
    if ((result = client.Options()) != 0) {
        return Failed("OPTIONS", result);
    }
    std::printf("OPTIONS 0");
    for (const std::string& method : client.MethodNames()) {
        std::printf(" %s", method.c_str());
    }
    if ((result = client.Describe()) != 0) {
        return Failed("\nDESCRIBE", result);
    }
    std::printf("\nDESCRIBE 0");
    for (const CCommonSession* session : client.Sessions()) {
        std::printf(" %s=%s=%s", session->m_szSessionName, session->m_szSessionType, session->m_szCtrlPath);
    }
    std::printf("\n");
    int media = 0;
    for (const CCommonSession* session : client.Sessions()) {
        if ((result = client.Setup(*session, TransportOf(argv[3], media++))) != 0) {
            return Failed("SETUP", result);
        }
        std::printf("SETUP 0 %s\n", client.ServerTransport().c_str());
    }
    if ((result = client.Play()) != 0) {
        return Failed("PLAY", result);
    }
    std::printf("PLAY 0\n");
    if (std::string(argv[3]).find("interleaved=") != std::string::npos) {
        int read = 0;
        while (read < kMaxPackets && (packets[0] == 0 || packets[2] == 0) && client.ReadInterleaved()) {
            ++read;
        }
        std::printf("PACKETS %s\n", packets[0] != 0 && packets[2] != 0 ? "of each" : "missing");
    }
    if ((result = client.Teardown()) != 0) {
        return Failed("TEARDOWN", result);
    }
    const std::string scheme = client.Authorization().substr(0, client.Authorization().find(' '));
    std::printf("TEARDOWN 0\nAUTHORIZATION %s\n", scheme.c_str());
    return 0;
}
