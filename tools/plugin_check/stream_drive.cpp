#include "plugin_check/stream_drive.h"

#include "base/zvs_error.h"
#include "gvx_common/adapter/gvx_adapter_lens.h"
#include "gvx_common/records/recording_records.h"
#include "plugin_check/drive.h"
#include "plugin_check/journal.h"
#include "plugin_check/stream_watch.h"

#include <ace/Message_Block.h>

#include <arpa/inet.h>

#include <chrono>
#include <cstring>
#include <list>
#include <thread>
#include <utility>

namespace plugin_check {

namespace {

constexpr int kPictures = 10;
constexpr int kTalkBlocks = 5;
constexpr std::size_t kTalkBlockBytes = 160;  // 20 ms of G.711

}  // namespace

std::atomic<int> StreamDrive::s_framesWithoutStartCode{0};

void StreamDrive::Ask(CStreamParam& param, std::uint32_t type, bool overTcp) {
    param.m_nStreamID = type;
    param.m_nSrcTransProtocol = overTcp ? RTP_OVER_TCP : RTP_OVER_UDP;
    param.m_nDstTransProtocol = param.m_nSrcTransProtocol;
    param.m_nDstVideoIP = INADDR_LOOPBACK;
    param.m_nDstVideoPort = 20000;
    param.m_nDstAudioIP = INADDR_LOOPBACK;
    param.m_nDstAudioPort = 20002;
    param.m_nMediaTransMode = MU_MEDIA_DIRECT_TRANS;
}

StreamDrive::Param StreamDrive::Negotiate(CAdapterLensBase& lens, std::uint32_t type, bool overTcp,
                                          std::uint32_t business) {
    Param param;
    m_journal.Call(m_lane, "CreateStreamParam", [&] {
        param.reset(lens.CreateStreamParam("check"));
        return param == nullptr ? ZVS_ALLOC_MEMORY_ERROR : ZVS_SUCCEED;
    });
    if (param == nullptr) {
        return param;
    }
    Ask(*param, type, overTcp);
    param->m_nBusinessType = business;
    param->m_strSrcCode = lens.GetSubDevID();
    const auto agree = [&] { return lens.NegotiateStreamParam(param.get()); };
    const auto special = [&] { return lens.CheckSpecialCase(param.get()); };
    if (m_journal.Call(m_lane, "NegotiateStreamParam", agree) != 0 ||
        m_journal.Call(m_lane, "CheckSpecialCase", special) != 0) {
        param.reset();
    }
    return param;
}

StreamWatch& StreamDrive::Watch(const CStreamParam& param) {
    m_watches.push_back(&StreamWatch::Begin(param.m_nVideoPayLoadType, param.m_nAudioPayLoadType,
                                            param.m_nDstTransProtocol == RTP_OVER_TCP));
    return *m_watches.back();
}

int StreamDrive::Start(CAdapterLensBase& lens, CStreamParam& param, StreamWatch& watch, const std::string& what) {
    return m_journal.Call(m_lane, what,
                          [&] { return lens.StartStream(watch.UserInfo(), &StreamWatch::Send, &param, false); });
}

void StreamDrive::Stop(CAdapterLensBase& lens, CStreamParam& param, StreamWatch& watch) {
    m_journal.Call(m_lane, "StopStream", [&] { return lens.StopStream(&param, false); });
    watch.Close("StopStream has returned");
}

void StreamDrive::Tell(StreamWatch& watch, const char* operation) {
    for (const std::string& fault : watch.TakeFaults()) {
        m_journal.Broken(m_lane, operation, fault);
    }
}

void StreamDrive::Stream(CAdapterLensBase& lens, bool overTcp) {
    const Param param = Negotiate(lens, STREAM_TYPE_REAL_MAIN, overTcp);
    if (param == nullptr) {
        return;
    }
    StreamWatch& watch = Watch(*param);
    const int without = s_framesWithoutStartCode;
    if (Start(lens, *param, watch) != 0) {
        return;
    }
    m_journal.Call(m_lane, "EncodeRspSDP", [&] {
        std::string sdp;
        return lens.EncodeRspSDP(param.get(), sdp);
    });
    m_journal.Call(m_lane, "EncodeRTSPUrl", [&] {
        std::string url;
        return lens.EncodeRTSPUrl(param.get(), url);
    });
    const auto wait = [&](int count) {
        const auto end = std::chrono::steady_clock::now() + m_options.pictureLimit;
        while (watch.Pictures() < count && s_framesWithoutStartCode == without &&
               std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return watch.Pictures();
    };
    const int pictures = wait(kPictures);
    m_journal.Call(m_lane, "RequestKeyframe", [&] { return lens.RequestKeyframe(param.get()); });
    const int more = pictures < kPictures ? pictures : wait(pictures + 2);
    m_journal.MustRefuse(m_lane, "StartStream of a stream that runs",
                         [&] { return lens.StartStream(watch.UserInfo(), &StreamWatch::Send, param.get(), false); });
    Stop(lens, *param, watch);
    std::this_thread::sleep_for(kSilence);
    const char* const transport = overTcp ? "a stream over TCP" : "a stream over UDP";
    if (s_framesWithoutStartCode > without) {
        m_journal.Broken(m_lane, transport, "frames come without a start code of four bytes, and are not sent");
    } else if (more < kPictures) {
        m_journal.Broken(m_lane, transport,
                         watch.Packets() > kPictures ? "many packets have one time stamp: nTimeTick does not go on"
                                                     : "fewer than " + std::to_string(kPictures) + " pictures came");
    }
    Tell(watch, transport);
    m_journal.Figure(
        m_lane, transport,
        std::to_string(more) + " pictures and " + std::to_string(watch.Packets()) + " packets were looked at");
    m_journal.MustRefuse(m_lane, "StopStream of a stopped stream", [&] { return lens.StopStream(param.get(), false); });
}

void StreamDrive::StopInStart(CAdapterLensBase& lens) {
    for (int i = 0; i < 3; ++i) {
        const Param param = Negotiate(lens, STREAM_TYPE_REAL_MAIN, false);
        if (param == nullptr) {
            return;
        }
        StreamWatch& watch = Watch(*param);
        if (Start(lens, *param, watch, "StartStream with a stop behind it") == 0) {
            Stop(lens, *param, watch);
        }
        std::this_thread::sleep_for(kSilence / 3);
        Tell(watch, "a stop in the midst of a start");
    }
}

void StreamDrive::SendWrongArguments(CAdapterLensBase& lens) {
    CStreamParam odd("odd");
    Ask(odd, kUnknownType, false);
    StreamWatch& watch = Watch(odd);
    m_journal.MustRefuse(m_lane, "StartStream of an unknown type",
                         [&] { return lens.StartStream(watch.UserInfo(), &StreamWatch::Send, &odd, false); });
    m_journal.MustRefuse(m_lane, "StartStream without parameters",
                         [&] { return lens.StartStream(watch.UserInfo(), &StreamWatch::Send, nullptr, false); });
    CStreamParam plain("plain");
    Ask(plain, STREAM_TYPE_REAL_MAIN, false);
    m_journal.MustRefuse(m_lane, "StartStream without a send function",
                         [&] { return lens.StartStream(watch.UserInfo(), nullptr, &plain, false); });
    m_journal.MustRefuse(m_lane, "NegotiateStreamParam without parameters",
                         [&] { return lens.NegotiateStreamParam(nullptr); });
    m_journal.MustRefuse(m_lane, "StopStream without parameters", [&] { return lens.StopStream(nullptr, false); });
    m_journal.MustRefuse(m_lane, "StopStream of an unknown type", [&] { return lens.StopStream(&odd, true); });
    m_journal.MustRefuse(m_lane, "RequestKeyframe without parameters", [&] { return lens.RequestKeyframe(nullptr); });
    Tell(watch, "a stream that did not start");
}

void StreamDrive::PlayBack(CAdapterLensBase& lens) {
    GET_PU_RECORD_INFO asked;
    std::list<_GET_PU_RECORD_DATA_LIST> recordings;
    const int listed =
        m_journal.Call(m_lane, "GetPuRecordList", [&] { return lens.GetPuRecordList(asked, recordings); });
    m_journal.Call(m_lane, "PopFrontRecordIndex", [&] {
        CStreamParam* next = nullptr;
        const int code = lens.PopFrontRecordIndex(next);
        delete next;
        return code;
    });
    if (listed != 0 || recordings.empty()) {
        return;
    }
    const _GET_PU_RECORD_DATA_LIST& first = recordings.front();
    const Param param = Negotiate(lens, STREAM_TYPE_PLAYBACK1, false, SERVICE_TYPE_PU_PLAYBACK);
    if (param == nullptr) {
        return;
    }
    param->m_strRecordFileName = first.strContentID;
    param->m_strPuRecordStartTime = first.strStartTime;
    param->m_strPuRecordEndTime = first.strEndTime;
    StreamWatch& watch = Watch(*param);
    if (Start(lens, *param, watch, "StartStream of a recording") != 0) {
        return;
    }
    const auto end = std::chrono::steady_clock::now() + m_options.pictureLimit;
    while (watch.Pictures() == 0 && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (watch.Pictures() == 0) {
        m_journal.Broken(m_lane, "StartStream of a recording", "no picture came");
    }
    for (const auto& [name, command] : {std::pair<const char*, STREAM_CONTROL_CMD>{"pause", STREAM_CONTROL_PAUSE},
                                        {"seek", STREAM_CONTROL_SEEK},
                                        {"speed", STREAM_CONTROL_SPEED},
                                        {"play", STREAM_CONTROL_PLAY}}) {
        STREAM_CONTROL_PARAM_S control;
        control.eCmd = command;
        control.dSpeed = command == STREAM_CONTROL_SPEED ? 2 : 1;
        m_journal.Call(m_lane, std::string("PlayBackStreamControl, ") + name,
                       [&] { return lens.PlayBackStreamControl(control, param.get()); });
    }
    Stop(lens, *param, watch);
    std::this_thread::sleep_for(kSilence);
    // A seek may lead back, so only what follows the stop is wrong in any case.
    for (const std::string& fault : watch.TakeFaults()) {
        if (fault.find("time stamps") == std::string::npos) {
            m_journal.Broken(m_lane, "a recording", fault);
        }
    }
}

void StreamDrive::Talk(CAdapterLensBase& lens) {
    CStreamParam param("talk");
    Ask(param, STREAM_AUDIO_TALKBACK, false);
    param.m_nBusinessType = SERVICE_TYPE_AUDIO_CALL;
    param.m_nAudioFormat = GVX_AUDIO_FORMAT_G711A;
    param.m_nAudioPayLoadType = 8;
    StreamWatch& watch = Watch(param);
    if (m_journal.Call(m_lane, "StartVoiceStream",
                       [&] { return lens.StartVoiceStream(watch.UserInfo(), &StreamWatch::Send, &param); }) != 0) {
        return;
    }
    for (int i = 0; i < kTalkBlocks; ++i) {
        m_journal.Call(m_lane, "EnqueueAudioData", [&] {
            auto* block = new ACE_Message_Block(kTalkBlockBytes);
            std::memset(block->wr_ptr(), 0xD5, kTalkBlockBytes);  // silence in A-law
            block->wr_ptr(kTalkBlockBytes);
            lens.EnqueueAudioData(block);
            return 0;
        });
    }
    m_journal.Call(m_lane, "StopVoiceStream", [&] { return lens.StopVoiceStream(&param); });
    watch.Close("StopVoiceStream has returned");
    std::this_thread::sleep_for(kSilence);
    Tell(watch, "a talk");
}

void StreamDrive::CloseAll() {
    for (StreamWatch* watch : m_watches) {
        watch->Close("its device is deleted");
    }
}

void StreamDrive::TellAll() {
    for (StreamWatch* watch : m_watches) {
        Tell(*watch, "a stream");
    }
}

}  // namespace plugin_check
