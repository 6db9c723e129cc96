// Session descriptions: what it costs to make a usual one and to read it, against a plain walk over the same bytes (a
// copy line by line, a search for the ends of lines). Without a logger, so that no line is formatted.

#include "bench_support.h"

#include "gvx_common/records/media_types.h"
#include "gvx_common/sdp/gvx_sip_sdp.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <arpa/inet.h>

namespace {

constexpr int kCalls = 100000;
constexpr int kRounds = 9;

struct Cost {
    double ns;
    double allocations;
};

Cost CostOf(const std::function<void()>& call) {
    std::vector<double> costs;
    const std::uint64_t allocations = bench::Allocations();
    for (int round = 0; round < kRounds; ++round) {
        const std::int64_t begin = bench::ThreadCpuNs();
        for (int i = 0; i < kCalls; ++i) {
            call();
        }
        costs.push_back(static_cast<double>(bench::ThreadCpuNs() - begin) / kCalls);
    }
    const auto made = static_cast<double>(bench::Allocations() - allocations);
    return {bench::Median(costs), made / kCalls / kRounds};
}

// Live video and audio over UDP.
CStreamParam UsualStream() {
    CStreamParam param("0123456789abcdef");
    param.m_strSessionID = "1700000000123";
    param.m_nVideoFormat = VIDEO_DEC_H264;
    param.m_nAudioFormat = GVX_AUDIO_FORMAT_G711A;
    param.m_nSrcTransProtocol = param.m_nDstTransProtocol = RTP_OVER_UDP;
    param.m_nSrcRtpVideoIp = param.m_nSrcRtpAudioIp = inet_addr("192.0.2.10");
    param.m_nSrcRtpVideoPort = 40000;
    param.m_nSrcRtpAudioPort = 40002;
    return param;
}

void Require(bool holds) {
    if (!holds) {
        std::fprintf(stderr, "a session description is not as expected\n");
        std::exit(1);
    }
}

void Report(bench::Table& table, const std::string& name, const Cost& cost, const Cost& floor) {
    table.Row(name, cost.ns, floor.ns, "ns");
    table.Plain(name + ", allocations", cost.allocations, "");
    table.Plain("floor, allocations", floor.allocations, "");
}

}  // namespace

int main() {
    bench::Table table("session descriptions of SIP");
    const std::string lens = "34020000001320000001";
    CServiceSDP codec;
    CStreamParam param = UsualStream();
    std::string text;
    Require(codec.EncodeSDP(lens, &param, text, true) == 0);
    table.Plain("bytes of the usual body", static_cast<double>(text.size()), "");

    volatile std::size_t sum = 0;
    const Cost copy = CostOf([&] {
        std::string walked;
        walked.reserve(text.size());
        for (std::size_t begin = 0, end = 0; begin < text.size(); begin = end + 1) {
            end = text.find('\n', begin);
            walked.append(text, begin, end + 1 - begin);
        }
        sum = sum + walked.size();
    });
    const Cost walk = CostOf([&] {
        std::size_t letters = 0;
        for (std::size_t begin = 0, end = 0; begin < text.size(); begin = end + 1) {
            end = text.find('\n', begin);
            letters += static_cast<unsigned char>(text[begin]);
        }
        sum = sum + letters;
    });
    Report(table, "EncodeSDP, against a copy", CostOf([&] {
               std::string made;
               codec.EncodeSDP(lens, &param, made, true);
               sum = sum + made.size();
           }),
           copy);
    Report(table, "EncodeT28181SDP, against a copy", CostOf([&] {
               std::string made;
               codec.EncodeT28181SDP(lens, &param, made, true, false);
               sum = sum + made.size();
           }),
           copy);
    CStreamParam got;
    Report(table, "DecodeSDP, against a walk", CostOf([&] {
               got.m_nSrcRtpVideoPort = got.m_nSrcRtpAudioPort = 0;
               codec.DecodeSDP(text, &got);
               sum = sum + got.m_nSrcRtpVideoPort;
           }),
           walk);
    Require(got.m_nSrcRtpVideoPort == 40000 && got.m_nVideoPayLoadType == 99 && sum != 0);
    return table.Print() ? 0 : 1;
}
