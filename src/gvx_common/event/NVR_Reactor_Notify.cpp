#include "gvx_common/event/NVR_Reactor_Notify.h"

#include "base/log.h"
#include "gvx_common/event/NVR_Reactor.h"

#include <ace/Flag_Manip.h>
#include <ace/Guard_T.h>
#include <ace/Log_Msg.h>

#include <cerrno>

#include <fcntl.h>
#include <sys/socket.h>

namespace {

constexpr int kPipeBufferBytes = 65535;
// One read takes the bytes of a whole burst of rings.
constexpr std::size_t kDrainBytes = 1024;

}  // namespace

NVR_Reactor_Notify::NVR_Reactor_Notify() = default;

NVR_Reactor_Notify::~NVR_Reactor_Notify() {
    m_notificationPipe.close();
}

int NVR_Reactor_Notify::open(ACE_Reactor_Impl* reactor, ACE_Timer_Queue* timerQueue, int disableNotifyPipe) {
    if (disableNotifyPipe != 0) {
        return 0;
    }
    auto* nvrReactor = dynamic_cast<NVR_Reactor*>(reactor);
    if (nvrReactor == nullptr) {
        GVX_LOG_ERR("open notification", ":openEx,failed to open m_notificationPipe.");
        return -1;
    }
    return openEx(nvrReactor, dynamic_cast<ACE_Timer_Heap*>(timerQueue), disableNotifyPipe);
}

int NVR_Reactor_Notify::openEx(NVR_Reactor* reactor, ACE_Timer_Heap*, int disableNotifyPipe) {
    if (disableNotifyPipe != 0) {
        return 0;
    }
    m_reactor = reactor;
    if (OpenPipe() != 0) {
        const int error = errno;
        GVX_LOG_ERR(gvx::ErrnoText("open notification", error).c_str(),
                    "failed to open m_notificationPipe.read handle %d,write handle %d",
                    m_notificationPipe.read_handle(), m_notificationPipe.write_handle());
        return -1;
    }
    if (m_notificationQueue.open() == -1) {
        GVX_LOG_ERR("open notification", "failed to init m_notificationQueue.");
        return -1;
    }
    if (ACE::set_flags(m_notificationPipe.read_handle(), O_NONBLOCK) == -1) {
        const int error = errno;
        GVX_LOG_ERR(gvx::ErrnoText("open notification", error).c_str(),
                    "failed to open set_flags. m_notificationPipe.read_handle ()");
        return -1;
    }
    return 0;
}

int NVR_Reactor_Notify::OpenPipe() {
    if (m_notificationPipe.open(kPipeBufferBytes) == -1 ||
        ::fcntl(m_notificationPipe.read_handle(), F_SETFD, FD_CLOEXEC) == -1 ||
        ::fcntl(m_notificationPipe.write_handle(), F_SETFD, FD_CLOEXEC) == -1) {
        return -1;
    }
    return 0;
}

int NVR_Reactor_Notify::close() {
    m_notificationQueue.reset();
    return m_notificationPipe.close();
}

int NVR_Reactor_Notify::notify(ACE_Event_Handler* handler, ACE_Reactor_Mask mask, ACE_Time_Value*) {
    if (m_reactor == nullptr) {
        GVX_LOG_ERR("notify", "this->m_reactor is null.");
        return 0;
    }
    const ACE_Notification_Buffer buffer(handler, mask);
    int pushed = -1;
    {
        ACE_Guard<ACE_Thread_Mutex> guard(m_mutex);
        if (guard.locked()) {
            pushed = m_notificationQueue.push_new_notification(buffer);
            ++m_pushes;
        }
    }
    if (pushed == -1) {
        GVX_LOG_ERR("notify",
                    "failed to push notification buffer                [eventHandler %p, eventMask %lu] into "
                    "quene.",
                    static_cast<void*>(handler), mask);
        return -1;
    }
    // An item behind others needs no ring. The byte for the first of them is in the pipe; the pass that takes the first
    // sees this item and leaves the byte there.
    if (pushed == 0 && !m_bellBroken.load(std::memory_order_relaxed)) {
        return 0;
    }
    const int rung = Ring();
    const int error = errno;
    m_bellBroken.store(rung != 0, std::memory_order_relaxed);
    if (rung != 0) {
        GVX_LOG_ERR(gvx::ErrnoText("notify", error).c_str(),
                    "failed to write notification buffer            [eventHandler %p, eventMask %lu] into pipe.",
                    static_cast<void*>(handler), mask);
        return -1;
    }
    return 0;
}

int NVR_Reactor_Notify::Ring() {
    const char anyByte = 0;
    ssize_t sent = -1;
    do {
        sent = ::send(m_notificationPipe.write_handle(), &anyByte, sizeof(anyByte), MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (sent == -1 && errno == EINTR);
    // A full pipe holds wake-ups that are still to be read, and each pass rings again while items are queued.
    return sent == 1 || errno == EAGAIN || errno == EWOULDBLOCK ? 0 : -1;
}

int NVR_Reactor_Notify::dispatch_notifications(int&, ACE_Handle_Set&) {
    return 0;
}

ACE_HANDLE NVR_Reactor_Notify::notify_handle() {
    return m_notificationPipe.read_handle();
}

int NVR_Reactor_Notify::is_dispatchable(ACE_Notification_Buffer& buffer) {
    return buffer.eh_ != nullptr ? 1 : 0;
}

int NVR_Reactor_Notify::dispatch_notify(ACE_Notification_Buffer& buffer) {
    if (buffer.eh_ == nullptr) {
        return 1;
    }
    CallHandler(buffer);
    // The handler runs first, because somebody waits for it and nobody waits for an empty pipe.
    if (m_emptyAfterService) {
        m_emptyAfterService = false;
        EmptyPipeUnlessPushed();
    }
    return 1;
}

void NVR_Reactor_Notify::CallHandler(const ACE_Notification_Buffer& buffer) {
    ACE_Event_Handler* const handler = buffer.eh_;
    int result = 0;
    switch (buffer.mask_) {
        case ACE_Event_Handler::READ_MASK:
        case ACE_Event_Handler::ACCEPT_MASK:
            result = handler->handle_input(ACE_INVALID_HANDLE);
            break;
        case ACE_Event_Handler::WRITE_MASK:
            result = handler->handle_output(ACE_INVALID_HANDLE);
            break;
        case ACE_Event_Handler::EXCEPT_MASK:
            result = handler->handle_exception(ACE_INVALID_HANDLE);
            break;
        default:
            ACELIB_ERROR((LM_ERROR, ACE_TEXT("dispatch_notify invalid mask = %d\n"), static_cast<int>(buffer.mask_)));
            break;
    }
    if (result == -1) {
        handler->handle_close(ACE_INVALID_HANDLE, buffer.mask_);
    }
}

int NVR_Reactor_Notify::dequeue_one(ACE_Notification_Buffer& buffer) {
    buffer.eh_ = nullptr;
    buffer.mask_ = 0;
    return read_notify_pipe(notify_handle(), buffer);
}

int NVR_Reactor_Notify::read_notify_pipe(ACE_HANDLE, ACE_Notification_Buffer& buffer) {
    m_pushesBeforePop = m_pushes.load();
    m_moreQueued = false;
    ACE_Notification_Buffer next;
    int popped = 0;
    do {
        popped = m_notificationQueue.pop_next_notification(buffer, m_moreQueued, next);
    } while (popped == 1 && buffer.eh_ == nullptr);
    if (popped < 0) {
        GVX_LOG_ERR("notify", "failed to pop next notification from m_notificationQueue.");
        return popped;
    }
    // While items are queued the pipe holds a byte, and it stays for the next pass: emptying the pipe only to ring
    // again would cost two system calls for each item of a burst.
    m_emptyAfterService = !m_moreQueued && buffer.eh_ != nullptr;
    if (!m_moreQueued && buffer.eh_ == nullptr) {
        EmptyPipeUnlessPushed();
    }
    return 1;
}

// To be called when the last pop has left the queue empty. An item that was pushed since then needs the byte in the
// pipe, so the byte stays.
void NVR_Reactor_Notify::EmptyPipeUnlessPushed() {
    if (m_pushes.load() != m_pushesBeforePop) {
        return;
    }
    char drained[kDrainBytes];
    // The queue decides. It does not matter what the bytes say, or whether there are any.
    [[maybe_unused]] const ssize_t bytes = ::recv(notify_handle(), drained, sizeof(drained), MSG_DONTWAIT);
    // An item may have come in while the pipe was emptied, and its byte may have been taken out: it is rung for anew.
    if (m_pushes.load() != m_pushesBeforePop) {
        Ring();
    }
}

void NVR_Reactor_Notify::max_notify_iterations(int iterations) {
    m_maxNotifyIterations = iterations;
}

int NVR_Reactor_Notify::max_notify_iterations() {
    return m_maxNotifyIterations;
}

int NVR_Reactor_Notify::purge_pending_notifications(ACE_Event_Handler* handler, ACE_Reactor_Mask mask) {
    return m_notificationQueue.purge_pending_notifications(handler, mask);
}

void NVR_Reactor_Notify::dump() const {
    GVX_DEBUG("notifier[%p] reactor[%p] read handle[%d] write handle[%d]", static_cast<const void*>(this),
              static_cast<void*>(m_reactor), m_notificationPipe.read_handle(), m_notificationPipe.write_handle());
}
