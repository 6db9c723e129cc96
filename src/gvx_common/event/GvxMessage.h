#pragma once

enum GVX_MESSAGE_TYPE {
    EN_GVX_MESSAGE_TYPE_THREAD_ALIVE = 0,
    EN_GVX_MESSAGE_TYPE_MAIN_DEVICE_ONLINE = 1,
    EN_GVX_MESSAGE_TYPE_MAX = 2,  // no valid type
};

// What a GvxNotifier tells its observers; derive from it to say more. Shared between the holders, so it is not
// changed any more once it has been handed out.
class GvxMessage {
public:
    GvxMessage() = default;
    virtual ~GvxMessage() = default;

    GVX_MESSAGE_TYPE GetMessageType() const { return m_enMessageType; }
    void SetMessageTye(GVX_MESSAGE_TYPE type) { m_enMessageType = type; }

private:
    GVX_MESSAGE_TYPE m_enMessageType = EN_GVX_MESSAGE_TYPE_MAX;
};
