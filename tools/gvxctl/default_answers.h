#pragma once

#include "gvxctl/port_service.h"

#include <functional>
#include <string>

namespace gvxctl {

// What a platform answers by itself, so that the gateway is not kept waiting: the question for the media unit's port,
// the exchange of media ports, and the list of plug-ins. Any thread.
class DefaultAnswers {
public:
    // Tells which SCU the question for the media unit's port concerns and which port that is; false for no answer.
    using MuPortOf = std::function<bool(std::string& scuId, std::uint16_t& port)>;

    DefaultAnswers(const PortRanges& ranges, MuPortOf muPortOf);

    // False when that request is left unanswered.
    bool Answer(const Frame& request, FrameSpec& answer);

private:
    PortService m_ports;
    MuPortOf m_muPortOf;
};

}  // namespace gvxctl
