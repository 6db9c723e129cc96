#include "gateway/admin/trace_recorder.h"

#include "base/clock.h"
#include "base/log.h"
#include "bp/dispatcher.h"
#include "bp/net_factory.h"
#include "gateway/admin/nss_trace.h"
#include "nss/nss_msg_header.h"

#include <ace/Message_Block.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <utility>

#include <fcntl.h>
#include <pthread.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace gvx {

namespace {

constexpr std::chrono::milliseconds kTurn(200);
constexpr mode_t kFileMode = 0640;
constexpr std::size_t kMostAnswers = 256;
constexpr std::size_t kEndBytes = 2048;  // of the file, for what tells why it ends

// What Wireshark has for a protocol; lines of text for one that it may not know. A sentence of the gateway shows as a
// line of a log.
const char* DissectorOf(const DialogueEntry& entry) {
    if (entry.protocol.empty()) {
        return "syslog";
    }
    if (::strcasecmp(entry.protocol.c_str(), "RTSP") == 0) {
        return "rtsp";
    }
    return ::strcasecmp(entry.protocol.c_str(), "HTTP") == 0 ? "http" : "data-text-lines";
}

// The other end of a link; zeros for one that is no more.
GvxTraceEnd PeerOf(const std::string& link) {
    for (const BP::LinkInfo& info : BP::CNetFactory::Links()) {
        if (info.linkID == link) {
            return GvxMakeTraceEnd(info.ip, static_cast<std::uint16_t>(info.port));
        }
    }
    return {};
}

// The traces that run, for the frames of links.
class FrameWatch {
public:
    // Never destroyed: links end after the static objects, perhaps.
    static FrameWatch& Instance() {
        static FrameWatch* const watch = new FrameWatch;
        return *watch;
    }

    void Add(std::shared_ptr<TraceRecorder> recorder) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_recorders.push_back(std::move(recorder));
        BP::CDispatcher::SetTap(&FrameWatch::Show);
    }

    void Remove(const TraceRecorder* recorder) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_recorders.erase(std::remove_if(m_recorders.begin(), m_recorders.end(),
                                         [&](const auto& each) { return each.get() == recorder; }),
                          m_recorders.end());
        if (m_recorders.empty()) {
            BP::CDispatcher::SetTap(nullptr);
        }
    }

private:
    static void Show(bool in, const std::string& link, const ACE_Message_Block& frame) {
        try {
            std::string copy;
            for (const ACE_Message_Block* part = frame.cont() != nullptr ? &frame : nullptr; part != nullptr;
                 part = part->cont()) {
                copy.append(part->rd_ptr(), part->length());
            }
            const bool whole = frame.cont() == nullptr;
            for (const std::shared_ptr<TraceRecorder>& recorder : Instance().Recorders()) {
                recorder->OnFrame(in, link, whole ? frame.rd_ptr() : copy.data(), whole ? frame.length() : copy.size());
            }
        } catch (const std::bad_alloc&) {  // the frame is not shown
        }
    }

    std::vector<std::shared_ptr<TraceRecorder>> Recorders() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_recorders;
    }

    std::mutex m_mutex;
    std::vector<std::shared_ptr<TraceRecorder>> m_recorders;  // Guarded by m_mutex.
};

}  // namespace

TraceRecorder::TraceRecorder(std::string device, std::string path, int seconds)
    : m_device(std::move(device)), m_path(std::move(path)) {
    m_writing.reserve(kBufferBytes);
    m_filling.reserve(kBufferBytes);
    m_answers.resize(kMostAnswers);
    m_facts.device = m_device;
    m_facts.file = m_path.substr(m_path.rfind('/') + 1);
    m_facts.running = true;
    m_facts.beganMs = MonotonicMilliseconds();
    m_facts.endsMs = m_facts.beganMs + std::int64_t{1000} * seconds;
}

std::shared_ptr<TraceRecorder> TraceRecorder::Make(const std::string& device, const std::string& path, int seconds,
                                                   const std::string& application, std::string& reason) {
    std::shared_ptr<TraceRecorder> made(new TraceRecorder(device, path, seconds));
    made->m_file.Reset(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kFileMode));
    const std::string head = PcapngHead(device, application,
                                        "Trace of device " + device +
                                            ". Credentials were taken out; of media packets the heads alone are here; "
                                            "addresses that are not known are left out.");
    if (!made->m_file.Valid() || !made->Write(head.data(), head.size())) {
        reason = path + ": " + std::strerror(errno);
        if (made->m_file.Valid()) {
            ::unlink(path.c_str());
        }
        return nullptr;
    }
    return made;
}

TraceRecorder::~TraceRecorder() {
    Join();
}

void TraceRecorder::Join() {
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

bool TraceRecorder::Start(std::string& reason) {
    KeptDialogue before;
    if (!BeginDeviceTrace(m_device, shared_from_this(), before)) {
        reason = "Device " + m_device + " was deleted just now, or is traced already.";
        ::unlink(m_path.c_str());
        return false;
    }
    for (const auto* const entries : {&before.episode, &before.recent}) {
        for (const DialogueEntry& entry : *entries) {
            OnMessage(entry);
        }
    }
    try {
        FrameWatch::Instance().Add(shared_from_this());
        m_thread = std::thread(&TraceRecorder::Run, this);
    } catch (const std::exception& fault) {
        reason = std::string("There is no thread for it: ") + fault.what() + ".";
        FrameWatch::Instance().Remove(this);
        EndDeviceTrace(m_device, this);
        ::unlink(m_path.c_str());
        return false;
    }
    return true;
}

void TraceRecorder::End(const char* ended) noexcept {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        EndLocked(ended);
    }
    m_wake.notify_one();
}

void TraceRecorder::EndLocked(const char* ended) noexcept {
    if (std::exchange(m_endWanted, true)) {
        return;
    }
    try {
        m_facts.ended = ended;
    } catch (const std::bad_alloc&) {  // it ends without saying why
    }
}

TraceFacts TraceRecorder::Facts() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_facts;
}

void TraceRecorder::OnMessage(const DialogueEntry& entry) noexcept {
    try {
        PcapngPacket packet;
        packet.dissector = DissectorOf(entry);
        packet.from = entry.toDevice ? entry.local : entry.peer;
        packet.to = entry.toDevice ? entry.peer : entry.local;
        packet.outbound = entry.toDevice;
        packet.wallUs = entry.wallUs;
        packet.data = entry.text.data();
        packet.kept = entry.text.size();
        packet.whole = entry.text.size() + entry.leftOut;
        if (entry.leftOut != 0) {
            packet.comment = "The rest of the message was left out.";
        }
        Put(packet, &TraceFacts::messages);
    } catch (const std::bad_alloc&) {
        CountLost();
    }
}

void TraceRecorder::OnPacket(const GvxTracedPacket& traced, std::size_t head) noexcept {
    PcapngPacket packet;
    packet.dissector = traced.bControl ? "rtcp" : "rtp";
    packet.from = traced.bToDevice ? traced.local : traced.peer;
    packet.to = traced.bToDevice ? traced.peer : traced.local;
    packet.udp = !traced.bOverTcp;
    packet.outbound = traced.bToDevice;
    packet.wallUs = CurrentClock().WallMicroseconds();
    packet.data = traced.pData;
    packet.kept = head;
    packet.whole = traced.nSize;
    Put(packet, &TraceFacts::packets);
}

void TraceRecorder::OnDeviceGone() noexcept {
    End("The device was deleted.");
}

// Answers may have no body: they are known by their transaction.
bool TraceRecorder::Concerns(const char* frame, std::size_t size) {
    const std::string transaction = TransactionOfFrame(frame, size);
    const bool named = ConcernsDevice(frame, size, m_device);
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_endWanted) {
        return false;
    }
    const bool known =
        !transaction.empty() && std::find(m_answers.begin(), m_answers.end(), transaction) != m_answers.end();
    if (named && !known && !transaction.empty()) {
        m_answers[m_nextAnswer++ % kMostAnswers] = transaction;
    }
    return named || known;
}

void TraceRecorder::OnFrame(bool in, const std::string& link, const char* frame, std::size_t size) noexcept {
    try {
        if (!Concerns(frame, size)) {
            return;
        }
        std::string note;
        const std::string clean = FrameWithoutSecrets(frame, size, note);
        PcapngPacket packet;
        packet.dissector = "gvxnss";
        (in ? packet.from : packet.to) = PeerOf(link);
        packet.outbound = !in;
        packet.wallUs = CurrentClock().WallMicroseconds();
        packet.data = clean.data();
        packet.kept = clean.size();
        packet.whole = clean.size() == kNssHeaderBytes ? std::max(size, clean.size()) : clean.size();
        packet.comment = note;
        Put(packet, &TraceFacts::frames);
    } catch (const std::bad_alloc&) {
        CountLost();
    }
}

void TraceRecorder::CountLost() noexcept {
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_facts.lost;
}

// Takes no memory for a packet without a comment.
void TraceRecorder::Put(const PcapngPacket& packet, std::uint64_t TraceFacts::*count) {
    const std::size_t size = PcapngPacketBytes(packet);
    bool much = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_endWanted) {
            return;
        }
        if (m_filling.size() + size > kBufferBytes) {
            ++m_facts.lost;
            return;
        }
        much = m_filling.size() < kBufferBytes / 2 && m_filling.size() + size >= kBufferBytes / 2;
        AppendPcapngPacket(packet, m_filling);
        ++(m_facts.*count);
    }
    if (much) {
        m_wake.notify_one();
    }
}

void TraceRecorder::Run() noexcept {
    ::pthread_setname_np(::pthread_self(), "DeviceTrace");
    bool goesOn = true;
    while (goesOn) {
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            if (!m_endWanted && m_filling.size() < kBufferBytes / 2) {
                m_wake.wait_for(lock, kTurn);
            }
            if (MonotonicMilliseconds() >= m_facts.endsMs) {
                EndLocked("Its time was over.");
            }
            goesOn = !m_endWanted;
            m_writing.swap(m_filling);
        }
        goesOn = Turn() && goesOn;
    }
    FrameWatch::Instance().Remove(this);
    EndDeviceTrace(m_device, this);
    try {
        WriteEnd();
    } catch (const std::bad_alloc&) {  // the file ends with its last packet
    }
    m_file.Reset();
    std::vector<char>().swap(m_writing);
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<char>().swap(m_filling);  // the facts alone stay
    std::vector<std::string>().swap(m_answers);
    m_facts.running = false;
}

// False when no more can be written.
bool TraceRecorder::Turn() {
    const std::size_t room = kFileBytes - kEndBytes - std::min<std::uint64_t>(m_written, kFileBytes - kEndBytes);
    const std::size_t fitting = PcapngFitting(m_writing, room);
    const bool fits = fitting == m_writing.size();
    const bool written = Write(m_writing.data(), fitting);
    m_writing.clear();
    if (written && !fits) {
        End("The file is full.");
    }
    return written && fits;
}

bool TraceRecorder::FileIsGone() const {
    struct stat own {};
    struct stat there {};
    return ::fstat(m_file.Get(), &own) == 0 &&
           (::lstat(m_path.c_str(), &there) != 0 || own.st_dev != there.st_dev || own.st_ino != there.st_ino);
}

void TraceRecorder::WriteEnd() {
    if (FileIsGone()) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_facts.gone = true;
        m_facts.ended += " Its file was moved or removed meanwhile.";
    }
    const TraceFacts facts = Facts();
    const std::string end =
        PcapngEnd(CurrentClock().WallMicroseconds(), facts.messages + facts.packets + facts.frames + facts.lost,
                  facts.lost, facts.ended);
    Write(end.data(), end.size());
    GVX_LOG_INFO("Device trace", "%s Device[%s], file[%s], %llu bytes, %llu lost.", facts.ended.c_str(),
                 m_device.c_str(), m_path.c_str(), static_cast<unsigned long long>(m_written),
                 static_cast<unsigned long long>(facts.lost));
}

// Whole or not at all, so that the file can be read to its end.
bool TraceRecorder::Write(const char* data, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = ::write(m_file.Get(), data + done, size - done);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            const int fault = count < 0 ? errno : ENOSPC;
            const bool cut = ::ftruncate(m_file.Get(), static_cast<off_t>(m_written)) == 0;
            GVX_LOG_WARN("Device trace", "%s cannot be written: %s.%s", m_path.c_str(), std::strerror(fault),
                         cut ? "" : " Its last packet is cut.");
            char ended[128];
            std::snprintf(ended, sizeof(ended), "The file cannot be written: %s.", std::strerror(fault));
            End(ended);
            errno = fault;
            return false;
        }
        done += static_cast<std::size_t>(count);
    }
    m_written += size;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_facts.bytes = m_written;
    return true;
}

}  // namespace gvx
