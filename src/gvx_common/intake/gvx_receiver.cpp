#include "gvx_common/intake/gvx_receiver.h"

#include "base/clock.h"
#include "base/fixed_text.h"
#include "base/log.h"
#include "bp/message_block_ptr.h"
#include "gvx_common/utility/gvx_utility.h"

#include <ace/INET_Addr.h>
#include <ace/OS_NS_sys_time.h>

#include <cerrno>
#include <new>
#include <string>

#include <fcntl.h>
#include <sys/socket.h>

namespace {

const ACE_Time_Value kReadLimit(3);
const ACE_Time_Value kPostLimit(3);
const ACE_Time_Value kIdleLimit(30);
constexpr ACE_Reactor_Mask kCleanUpMask = ACE_Event_Handler::READ_MASK | ACE_Event_Handler::WRITE_MASK |
                                          ACE_Event_Handler::EXCEPT_MASK | ACE_Event_Handler::DONT_CALL;

ACE_Time_Value TimeOfDay() {
    const std::int64_t now = gvx::CurrentClock().WallMicroseconds();
    return ACE_Time_Value(static_cast<time_t>(now / 1000000), static_cast<suseconds_t>(now % 1000000));
}

}  // namespace

void* CGVXReceiver::operator new(std::size_t size) {
    return Base::operator new(size);
}

void* CGVXReceiver::operator new(std::size_t size, const std::nothrow_t& tag) noexcept {
    return Base::operator new(size, tag);
}

void CGVXReceiver::operator delete(void* memory) {
    Base::operator delete(memory);
}

void CGVXReceiver::operator delete(void* memory, const std::nothrow_t& tag) noexcept {
    Base::operator delete(memory, tag);
}

std::atomic<std::size_t> CGVXReceiver::s_count{0};

CGVXReceiver::CGVXReceiver(ACE_Thread_Manager* threadManager, ACE_Reactor* reactor)
    : Base(threadManager, nullptr, reactor) {
    ++g_bp_memstat;
    ++s_count;
}

CGVXReceiver::CGVXReceiver(GvxReceiverQueue* queue, ACE_Reactor* reactor)
    : Base(nullptr, nullptr, reactor), m_queue(queue) {
    ++g_bp_memstat;
    ++s_count;
}

CGVXReceiver::~CGVXReceiver() {
    // Keeps errno for the caller, who may close the connection because of it.
    const int error = errno;
    const ACE_HANDLE handle = get_handle();
    ::shutdown(handle, SHUT_RDWR);
    GVX_LOG_INFO("FD close", "GVX Close fd[%d] ", handle);
    peer().close();
    --g_bp_memstat;
    --s_count;
    errno = error;
}

int CGVXReceiver::open(void* arg) {
    ::fcntl(get_handle(), F_SETFD, FD_CLOEXEC);
    ReadPeerAddress();
    if (Base::open(arg) != 0 || reactor() == nullptr ||
        reactor()->register_handler(this, ACE_Event_Handler::READ_MASK) != 0) {
        GVX_LOG_ERR("open", "Can not watch fd[%d], errno[%d]", get_handle(), errno);
        return -1;
    }
    if (reactor()->schedule_timer(this, nullptr, kIdleLimit, kIdleLimit) == -1) {
        GVX_LOG_ERR("open", "failed to schedule timer, [%d]", errno);
    }
    return 0;
}

void CGVXReceiver::ReadPeerAddress() {
    ACE_INET_Addr address;
    char text[64] = {};
    if (peer().get_remote_addr(address) != 0 || address.get_host_addr(text, sizeof(text)) == nullptr ||
        !gvx::PutText(m_peerAddr, text)) {
        GVX_LOG_WARN("open", "The peer of fd[%d] has no address to name.", get_handle());
        return;
    }
    m_peerPort = address.get_port_number();
}

int CGVXReceiver::handle_input(ACE_HANDLE) {
    char data[kMaxRead];
    const ssize_t length = peer().recv(data, sizeof(data), &kReadLimit);
    if (length == 0) {
        return -1;
    }
    if (length < 0) {
        return errno == EAGAIN || errno == ETIME ? 0 : -1;
    }
    m_lastRecvTime = TimeOfDay();
    try {
        return PostData(data, static_cast<std::size_t>(length));
    } catch (const std::bad_alloc&) {
        GVX_LOG_ERR_CODE("handle_input", ZVS_ALLOC_MEMORY_ERROR, "There is no memory for what fd[%d] has sent.",
                         get_handle());
        return -1;
    }
}

int CGVXReceiver::PostData(const char* data, std::size_t length) {
    BP::MessageBlockPtr block = BP::MakeMessageBlock(sizeof(GVX_RECEIVED_HEAD) + length);
    if (block == nullptr) {
        errno = ENOMEM;
        GVX_LOG_ERR_CODE("handle_input", ZVS_ALLOC_MEMORY_ERROR, "handle_input New ACE_Message_Block failed!");
        return -1;
    }
    if (!FillBlock(*block, data, length)) {
        return 0;
    }
    if (m_queue == nullptr) {
        GVX_LOG_ERR("handle_input", "handle_input msg queue is NULL!");
        return -1;
    }
    // The queue compares the deadline with the system's time of day.
    ACE_Time_Value deadline = ACE_OS::gettimeofday() + kPostLimit;
    if (m_queue->enqueue_tail(block.get(), &deadline) < 0) {
        GVX_LOG_ERR("handle_input", "handle_input enqueue_tail failed!");
        return 0;
    }
    (void)block.release();  // the queue's
    return 0;
}

bool CGVXReceiver::FillBlock(ACE_Message_Block& block, const char* data, std::size_t length) const {
    GVX_RECEIVED_HEAD head{};
    head.length = static_cast<std::int32_t>(length);
    std::string now;
    CGvxUtility::GetCurrentUtcTime(now, "YYYYMMDDhhmmss");
    if (!gvx::PutText(head.peerAddr, gvx::TextOf(m_peerAddr)) || !gvx::PutText(head.recvTime, now)) {
        GVX_LOG_ERR("handle_input", "strncpy_s failed!");
        return false;
    }
    if (memcpy_s(block.wr_ptr(), block.space(), &head, sizeof(head)) != 0 ||
        memcpy_s(block.wr_ptr() + sizeof(head), block.space() - sizeof(head), data, length) != 0) {
        GVX_LOG_ERR("handle_input", "memcpy_s failed!");
        return false;
    }
    block.wr_ptr(sizeof(head) + length);
    block.msg_priority(static_cast<unsigned long>(m_peerPort));
    return true;
}

int CGVXReceiver::handle_timeout(const ACE_Time_Value&, const void*) {
    if (TimeOfDay() - m_lastRecvTime > kIdleLimit) {
        GVX_LOG_WARN("handle_timeout", "socket timeout, will close the connection");
        close(0);
    }
    return 0;
}

int CGVXReceiver::handle_close(ACE_HANDLE handle, ACE_Reactor_Mask mask) {
    CleanUpReactor();
    Base::handle_close(handle, mask);
    return 0;
}

void CGVXReceiver::CleanUpReactor() {
    ACE_Reactor* const watching = reactor();
    if (watching == nullptr) {
        return;
    }
    watching->remove_handler(get_handle(), kCleanUpMask);
    constexpr int kDontCall = 1;
    watching->cancel_timer(this, kDontCall);
    reactor(nullptr);
}
