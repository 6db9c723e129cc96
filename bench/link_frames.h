#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include <sys/types.h>

// Frames with bodies of 200 bytes between this process and a peer that is a process of its own, so that the peer's work
// is not counted.
namespace bench_link {

constexpr std::size_t kBodyBytes = 200;  // the text; its item's head comes on top
constexpr std::size_t kFrameBytes = 116 + 6 + kBodyBytes;

// A request for one device, with a time in its body.
std::string RequestFrame(int device, std::int64_t stampNs);
// Puts another time into such a frame, and takes it out again.
void Stamp(char* frame, std::int64_t stampNs);
std::int64_t StampOf(const char* frame);
std::string DeviceID(int device);

// A counter that both processes see.
class SharedCount {
public:
    SharedCount();
    ~SharedCount();
    SharedCount(const SharedCount&) = delete;
    SharedCount& operator=(const SharedCount&) = delete;
    void Reset() { m_count->store(0); }
    void Add(std::uint64_t number) { m_count->fetch_add(number, std::memory_order_relaxed); }
    std::uint64_t Get() const { return m_count->load(std::memory_order_relaxed); }

private:
    std::atomic<std::uint64_t>* m_count;
};

// A child process that runs work and ends; killed at the end of the scope.
class PeerProcess {
public:
    explicit PeerProcess(const std::function<void()>& work);
    ~PeerProcess();
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

private:
    pid_t m_child;
};

// Connects to a port of this machine; what registers an identifier there; both in turn.
int ConnectedSocket(std::uint16_t port);
std::string RegistrationFrame(const char* linkID);
int LinkedSocket(std::uint16_t port, const char* linkID);
void WriteAll(int socket, const char* data, std::size_t length);
void SleepUntil(std::int64_t ns);

// How requests are sent: to so many devices in turn, in groups of one write each.
struct Feed {
    std::uint64_t frames;
    int devices;
    int group;
    std::uint64_t window;  // of frames that are not done yet; 0 for none
    std::int64_t paceNs;   // from one group to the next; 0 for none
};
// Runs in the peer: sends, and stays until it is ended.
void SendFeed(int socket, const Feed& feed, const SharedCount& done);

// A bare socket that a peer connects to.
class Listener {
public:
    Listener();
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    std::uint16_t Port() const { return m_port; }
    // Waits for the peer and takes its registration off the stream.
    int AcceptRegistered();

private:
    int m_socket;
    std::uint16_t m_port = 0;
};

}  // namespace bench_link
