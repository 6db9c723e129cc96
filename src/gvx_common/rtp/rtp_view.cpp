#include "gvx_common/rtp/rtp_view.h"

namespace gvx {

bool ParseRtp(const std::uint8_t* data, std::size_t size, RtpView& view) noexcept {
    constexpr std::size_t kFixedHead = 12;
    constexpr std::size_t kExtensionHead = 4;
    if (data == nullptr || size < kFixedHead || data[0] >> 6 != 2) {
        return false;
    }
    std::size_t head = kFixedHead + 4u * (data[0] & 0x0F);
    if ((data[0] & 0x10) != 0) {
        if (size < head + kExtensionHead) {
            return false;
        }
        head += kExtensionHead + 4u * LoadBe16(data + head + 2);
    }
    if (head > size) {
        return false;
    }
    std::size_t padding = 0;
    if ((data[0] & 0x20) != 0) {
        // The last byte counts itself, so 0 is as wrong as a number that reaches into the head.
        padding = data[size - 1];
        if (padding == 0 || padding > size - head) {
            return false;
        }
    }
    view.payload = data + head;
    view.payloadSize = size - head - padding;
    view.timestamp = LoadBe32(data + 4);
    view.ssrc = LoadBe32(data + 8);
    view.seq = LoadBe16(data + 2);
    view.payloadType = data[1] & 0x7F;
    view.marker = (data[1] & 0x80) != 0;
    return true;
}

}  // namespace gvx
