#pragma once

#include "gvx_common/records/stream_param.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class CAdapterLensBase;

namespace plugin_check {

class Journal;
class StreamWatch;
struct DriveOptions;

// The streams of a device: live ones, recordings, talks, and starts that must be refused. Used on the device's thread.
class StreamDrive {
public:
    // All must outlive it. lane: under which its calls stand in the journal.
    StreamDrive(const DriveOptions& options, Journal& journal, const std::string& lane)
        : m_options(options), m_journal(journal), m_lane(lane) {}

    void Stream(CAdapterLensBase& lens, bool overTcp);
    // A stop that comes while the plug-in still begins.
    void StopInStart(CAdapterLensBase& lens);
    void SendWrongArguments(CAdapterLensBase& lens);
    void PlayBack(CAdapterLensBase& lens);
    void Talk(CAdapterLensBase& lens);

    // The device is deleted: nothing may be sent any more. TellAll writes down what is, later on.
    void CloseAll();
    void TellAll();

    // A frame has come in which the core has found no start code; its log is the one place that tells. Any thread.
    static void CountFrameWithoutStartCode() { ++s_framesWithoutStartCode; }

private:
    using Param = std::unique_ptr<CStreamParam>;

    static void Ask(CStreamParam& param, std::uint32_t type, bool overTcp);
    Param Negotiate(CAdapterLensBase& lens, std::uint32_t type, bool overTcp, std::uint32_t business = 0);
    StreamWatch& Watch(const CStreamParam& param);
    int Start(CAdapterLensBase& lens, CStreamParam& param, StreamWatch& watch, const std::string& what = "StartStream");
    // The stream is over whatever StopStream answers.
    void Stop(CAdapterLensBase& lens, CStreamParam& param, StreamWatch& watch);
    void Tell(StreamWatch& watch, const char* operation);

    static std::atomic<int> s_framesWithoutStartCode;

    const DriveOptions& m_options;
    Journal& m_journal;
    const std::string& m_lane;
    std::vector<StreamWatch*> m_watches;  // of all streams; they live for ever
};

}  // namespace plugin_check
