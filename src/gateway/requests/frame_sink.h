#pragma once

#include "bp/cmd.h"
#include "gateway/messages/request_body.h"

#include <memory>
#include <string>

class CGvxReactor;

namespace gvx {

struct GatewayContext;

// Takes every frame that comes in to the reactor that serves it: that of its device or of its plug-in, else the
// gateway's own. Runs on the link I/O thread and on threads that feed frames in; waits for nobody, but for the thread
// of a plug-in's reactor when the first request for that plug-in has it made.
class FrameSink {
public:
    explicit FrameSink(GatewayContext& context) : m_context(context) {}

    // 0 when the frame was taken, answered or not; the code of the link when a frame of ours could not leave. A request
    // that cannot be understood, an addition that cannot succeed, what a reactor's full queue refuses and that for
    // which there is no memory are answered at once. What is read of an addition goes with it, as its attachment.
    int Take(BP::CCmd& cmd);

private:
    int TakeOrThrow(BP::CCmd& cmd);
    void PushAddition(BP::CCmd& cmd, const std::string& device);
    void Push(BP::CCmd& cmd, const std::string& device, CGvxReactor* reactor);
    bool Queue(BP::CCmd& cmd, const std::string& device, CGvxReactor* reactor);
    static bool ConsumeOwnAnswer(const BP::CCmd& cmd);
    static int ForwardToOmu(const BP::CCmd& cmd);

    GatewayContext& m_context;
};

}  // namespace gvx
