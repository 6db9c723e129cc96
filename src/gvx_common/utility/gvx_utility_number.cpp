#include "gvx_common/utility/gvx_utility.h"

#include "base/bounded_string.h"
#include "base/clock.h"
#include "base/log.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <iterator>
#include <mutex>
#include <string_view>

namespace {

constexpr unsigned int kMaxSeqID = 60000;
constexpr unsigned int kFirstSeqIDAfterWrap = 3;  // 0 to 2 do not come again
constexpr std::size_t kTransactionNoBytes = 64;
constexpr unsigned int kXModemPolynomial = 0x1021;
constexpr int kDefaultBitRate = 2048;

struct BitRateRow {
    std::string_view resolution;
    int kilobits;
};

constexpr BitRateRow kBitRates[] = {
    {"704*576", 1024},   {"704*480", 1024},   {"352*576", 512},   {"704*288", 512},    {"352*288", 256},
    {"176*144", 128},    {"160*128", 128},    {"320*240", 256},   {"640*480", 768},    {"480*480", 576},
    {"800*592", 1192},   {"1024*768", 1984},  {"1280*800", 2272}, {"1280*1024", 3076}, {"1600*1024", 3640},
    {"1600*1200", 3792}, {"1920*1200", 4548}, {"1280*720", 2048}, {"1280*960", 3072},  {"1920*1080", 4096},
    {"2408*1536", 7168},
};

}  // namespace

unsigned int CGvxUtility::CreatSeqID() {
    static std::mutex mutex;
    static unsigned int counter = 0;  // Guarded by mutex.
    const std::lock_guard<std::mutex> guard(mutex);
    if (counter > kMaxSeqID) {
        counter = kFirstSeqIDAfterWrap;
    }
    return counter++;
}

std::string CGvxUtility::GenerateTransactionNo(const std::string& prefix, unsigned int number) {
    static std::mutex mutex;
    const std::lock_guard<std::mutex> guard(mutex);
    const std::time_t now = gvx::WallSeconds();
    std::tm local{};
    if (localtime_r(&now, &local) == nullptr) {
        return std::string();
    }
    char text[kTransactionNoBytes] = {};
    const int length = snprintf_s(text, sizeof(text), sizeof(text) - 1, "%s%04d%02d%02d%02d%02d%02d%05u",
                                  prefix.c_str(), local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                                  local.tm_min, local.tm_sec, number);
    return length < 0 ? std::string() : std::string(text);
}

unsigned short CGvxUtility::CalcCRCXModem(const char* data, unsigned int length) {
    if (data == nullptr) {
        return 1;
    }
    unsigned int crc = 0;
    for (unsigned int i = 0; i < length; ++i) {
        crc ^= static_cast<unsigned int>(static_cast<unsigned char>(data[i])) << 8;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x8000u) != 0 ? (crc << 1) ^ kXModemPolynomial : crc << 1;
        }
        crc &= 0xFFFFu;
    }
    return static_cast<unsigned short>(crc);
}

unsigned long CGvxUtility::RotatingHash(const std::string& text, unsigned long modulus) {
    if (modulus == 0) {
        GVX_LOG_ERR_CODE("RotatingHash", ZVS_PARA_INVALID, "The modulus is 0.");
        return 0;
    }
    std::uint64_t state = text.size();
    for (const char c : text) {
        state = (state << 4) ^ (state >> 28) ^ static_cast<unsigned char>(c);
    }
    return static_cast<unsigned long>(state % modulus);
}

void CGvxUtility::GetDefaultBitRateByResolution(const std::string& resolution, int& bitRate) {
    const auto* row =
        std::find_if(std::begin(kBitRates), std::end(kBitRates),
                     [&resolution](const BitRateRow& candidate) { return candidate.resolution == resolution; });
    bitRate = row == std::end(kBitRates) ? kDefaultBitRate : row->kilobits;
}
