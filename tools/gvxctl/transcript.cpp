#include "gvxctl/transcript.h"

#include "base/clock.h"
#include "gvxctl/frame_text.h"
#include "gvxctl/terminal.h"

#include <cstdio>

namespace gvxctl {

Transcript::Transcript(bool full) : m_full(full), m_begin(gvx::MonotonicMilliseconds()) {}

void Transcript::Line(const std::string& text) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const double seconds = static_cast<double>(gvx::MonotonicMilliseconds() - m_begin) / 1000.0;
    char time[32];
    std::snprintf(time, sizeof time, "%8.3f ", seconds);
    Print(time + text);
}

void Transcript::Frame(const PeerSet::Traffic& traffic) {
    const std::string text = m_full ? DescribeFrame(traffic.frame) : FrameLine(traffic.frame);
    Line("    " + traffic.linkId + (traffic.incoming ? " << " : " >> ") + text +
         (traffic.note.empty() ? "" : "  (" + traffic.note + ")"));
}

}  // namespace gvxctl
