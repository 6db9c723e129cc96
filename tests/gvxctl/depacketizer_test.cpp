#include "gvxctl/depacketizer.h"

#include <gtest/gtest.h>

namespace gvxctl {
namespace {

using Bytes = std::vector<std::uint8_t>;

class DepacketizerTest : public ::testing::Test {
protected:
    std::unique_ptr<Depacketizer> Make(Depacketizer::Codec codec) {
        return std::make_unique<Depacketizer>(
            codec, [this](const std::uint8_t* nal, std::size_t length) { m_units.emplace_back(nal, nal + length); });
    }
    static void Take(Depacketizer& depacketizer, const Bytes& payload, bool afterGap = false) {
        depacketizer.Take(payload.data(), payload.size(), afterGap);
    }
    std::vector<Bytes> m_units;
};

Bytes Numbered(std::size_t length, std::uint8_t first) {
    Bytes bytes(length);
    for (std::size_t i = 0; i < length; ++i) {
        bytes[i] = static_cast<std::uint8_t>(i * 7 + 3);
    }
    bytes[0] = first;
    return bytes;
}

// An H.264 unit cut as the gateway cuts it: 1390 bytes a fragment, the first with the NAL header overwritten.
std::vector<Bytes> CutH264(const Bytes& nal) {
    std::vector<Bytes> payloads;
    for (std::size_t at = 0; at < nal.size(); at += 1390) {
        const std::size_t end = std::min(at + 1390, nal.size());
        const std::size_t begin = at == 0 ? 1 : at;
        Bytes payload = {static_cast<std::uint8_t>((nal[0] & 0xE0) | 28), static_cast<std::uint8_t>(nal[0] & 0x1F)};
        payload[1] = static_cast<std::uint8_t>(payload[1] | (at == 0 ? 0x80 : 0) | (end == nal.size() ? 0x40 : 0));
        payload.insert(payload.end(), nal.begin() + static_cast<long>(begin), nal.begin() + static_cast<long>(end));
        payloads.push_back(payload);
    }
    return payloads;
}

TEST_F(DepacketizerTest, LossThrowsTheWholeUnitAwayOnce) {
    const std::vector<Bytes> payloads = CutH264(Numbered(1390 * 4, 0x41));
    struct Row {
        const char* name;
        std::size_t missing;
    };
    for (const Row& row : {Row{"beginning", 0}, Row{"middle", 1}, Row{"end", 3}}) {
        m_units.clear();
        const auto depacketizer = Make(Depacketizer::Codec::H264);
        Take(*depacketizer, {0x68, 0x01});
        for (std::size_t i = 0; i < payloads.size(); ++i) {
            if (i != row.missing) {
                Take(*depacketizer, payloads[i], i == row.missing + 1);
            }
        }
        Take(*depacketizer, {0x41, 0x02}, row.missing == 3);
        Take(*depacketizer, payloads[0]);
        EXPECT_EQ(m_units, (std::vector<Bytes>{{0x68, 0x01}, {0x41, 0x02}})) << row.name;
        EXPECT_EQ(depacketizer->DroppedUnits(), 1u) << row.name;
        depacketizer->Finish();
        EXPECT_EQ(depacketizer->DroppedUnits(), 2u) << "the unit that is open at the end counts as well";
    }
}

}  // namespace
}  // namespace gvxctl
