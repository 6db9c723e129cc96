#pragma once

#include "base/zvs_error.h"
#include "base/zvs_types.h"
#include "gvx_common/records/conf_item_mask.h"
#include "gvx_common/records/gvx_adapter_records.h"
#include "gvx_common/records/media_types.h"
#include "gvx_common/rtp/media_channel.h"

#include <ace/OS_NS_Thread.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Thread_Semaphore.h>

#include <deque>
#include <list>
#include <memory>
#include <string>

class ACE_Message_Block;
namespace gvx {
class SnapshotWorker;
}
class CAdapterDevBase;
class CStreamParam;
class MemHandler;
class TLV_Encoder;
struct _META_RECT_S;
struct ITSPlates;
struct ITSPlatesTrim;
struct stFaceRects;
struct stObjectRect;

// One lens or channel of a device. The virtual operations are called on the device's command reactor thread, one at a
// time. Media comes in on the plug-in's own threads: one thread at a time for a channel, since sequence numbers,
// timestamps and packet buffer of a channel have no lock. No exception may leave an operation.
class CAdapterLensBase {
public:
    // lensId (at most 32 characters; null for none) and channel are copied; parent must outlive the lens.
    CAdapterLensBase(const char* lensId, const short& channel, CAdapterDevBase& parent);
    CAdapterLensBase(const CAdapterLensBase&) = delete;
    CAdapterLensBase& operator=(const CAdapterLensBase&) = delete;
    // Destroys the channels and their packet buffers: no thread may send any more.
    virtual ~CAdapterLensBase();

    // The virtual operations, in slot order: an operation is found by its place, so that order, number and signatures
    // are part of what a plug-in was built against (GVX_PLUGIN_ABI_VERSION). Pure ones must be supplied; the others
    // stand with the answer that a plug-in gives when it supplies nothing.

    // Called once behind the constructor; Uninit before the destructor, when no stream runs any more.
    virtual int Init() { return 0; }
    virtual int Uninit() { return 0; }
    // Makes the record of a new stream, with m_strServiceID set. It is the caller's, who deletes it when StopStream
    // has returned; null when there is no memory. The caller then fills in what the platform asked for.
    virtual CStreamParam* CreateStreamParam(const std::string& serviceID) = 0;
    // Completes the record before the stream starts: m_nVideoFormat, m_nAudioFormat (0 for none),
    // m_nVideoPayLoadType, m_nAudioPayLoadType. The caller may clear m_nAudioFormat afterwards: the stream then starts
    // without audio. 0, or an enZvsError that refuses the stream.
    virtual int NegotiateStreamParam(CStreamParam* param) = 0;
    // A last word of the device before StartStream; non-zero refuses the stream.
    virtual int CheckSpecialCase(CStreamParam*) { return 0; }
    // As StartStream, for a talk (m_nStreamID 4) or a broadcast (10): the device's sound, if any, leaves by func.
    virtual int StartVoiceStream(void*, SEND_VOICE_STREAM_FUNC*, CStreamParam*) = 0;
    // Starts sending. The plug-in stores func in m_pSendStreamFunc of the channel, gives the channel its packet buffer
    // (m_pMediaBufWithRTP, GVX_MEDIA_BUF_MIN_SIZE at least) and puts userInfo into MEDIA_DATA::pUserInfo of each
    // record. The channel is param->m_nStreamID, plus 11 when param->m_nDstTransProtocol is RTP_OVER_TCP. func may be
    // called from a thread of the plug-in before StartStream returns, by one thread at a time for a channel; its result
    // ZVS_GVX_OPEN_SOCKET_ERROR means that the stream is gone, and the lens sends no more for it. param and userInfo
    // stay valid until StopStream has returned. needExternData asks for the RTP header extension. 0, or an enZvsError;
    // the stream then does not run and is not stopped.
    virtual int StartStream(void* userInfo, SEND_STREAM_FUNC* func, CStreamParam* param, bool needExternData) = 0;
    // Stops the stream of that record: when it returns, no call of the send function is running or will be made for it.
    // force: do not wait for the device's answer.
    virtual int StopStream(CStreamParam* param, bool force) = 0;
    // Asks the device for a key frame; best effort, does not wait for it.
    virtual int RequestKeyframe(CStreamParam* param) = 0;
    // Audio towards the device (talk and broadcast): one frame. The block becomes the lens's, which releases it. Called
    // on a thread of the gateway that does nothing else, one frame at a time, between StartVoiceStream and
    // StopVoiceStream; must not wait.
    virtual void EnqueueAudioData(ACE_Message_Block* block) = 0;
    virtual int StopVoiceStream(CStreamParam* param) = 0;
    virtual int PlayBackStreamControl(const STREAM_CONTROL_PARAM_S&, CStreamParam*) = 0;
    virtual int GetAudioParam(GVX_PU_AUDIO_INFO&) = 0;
    virtual int SetAudioParam(const GVX_PU_AUDIO_INFO&) = 0;
    virtual int SetVideoMaskParam(const PU_SET_VIDEO_MASK_STRU&, std::list<_AREA_INFO>&) = 0;
    virtual int SetVideoMaskParamEx(const PU_SET_VIDEO_MASK_STRU&, std::list<_AREA_INFO_EX>&) {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    virtual int GetVideoMaskParam(PU_GET_VIDEO_MASK_STRU&, std::list<_AREA_INFO>&) = 0;
    virtual int GetVideoMaskParamEx(PU_GET_VIDEO_MASK_STRU&, std::list<_AREA_INFO_EX>&) {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    virtual int SetMotionDetectionAlarmParam(const MSG_SET_MOTION_DETECTION_ALARM_REQ&, std::list<_AREA_INFO>&,
                                             std::list<_MOTION_DETECTION_ALARM_GUARD_TIME>&) = 0;
    virtual int GetMotionDetectionAlarmParam(MSG_GET_MOTION_DETECTION_ALARM_REQ&, std::list<_AREA_INFO>&,
                                             std::list<_MOTION_DETECTION_ALARM_GUARD_TIME>&) = 0;
    virtual int SetAudioAlarmParam(const MSG_SET_AUDIO_ALARM_INFO&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int GetAudioAlarmParam(MSG_GET_AUDIO_ALARM_INFO&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int SetPuGuardState(PU_Guard_State) = 0;
    virtual int GetPuGuardState(PU_Guard_State&) = 0;
    virtual int GetOSDParam(PU_OSD_CONF_STRU&) = 0;
    virtual int SetOSDParam(const PU_OSD_CONF_STRU&) = 0;
    // Takes pictures, on the lens's snapshot worker, and reports each (ADAPTER_REPORT_PICTURE_TAKEN); the platform's
    // word about one that was sent.
    virtual int VcuSnapShotReqInfo(const PU_SNAP_CONF_REQ&) = 0;
    virtual int VcuUploadImgCompReq(PU_UPLOAD_IMAGE_COMP_REQ&) = 0;
    virtual int SetPresetParam(MSG_PTZ_SET_PRESET_REQ&) = 0;
    virtual int GetPresetParam(std::list<_MSG_PTZ_GET_PRESET_RSP>&) = 0;
    virtual int DelPresetParam(const MSG_PTZ_DEL_PRESET_REQ&) = 0;
    virtual int setDeviceConfigParam(MSG_DEVICE_CONFIG_REQ&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int getDeviceConfigParam(MSG_DEVICE_CONFIG_GET_RSP&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int SetGuardPositionParam(const MSG_PTZ_SET_HOME_POSITION_REQ&) = 0;
    virtual int GetGuardPositionParam(MSG_PTZ_GET_HOME_POSITION_RSP&) = 0;
    virtual int GetGuardInfoParam(MSG_PTZ_GET_GUARD_INFO_RSP&) { return ZVS_GVX_UNSUPPORT_PTZ_CMD; }
    virtual int SetWatermark(bool) = 0;
    // The stream that the device itself records.
    virtual int SetPuRecordStream(PU_RECORD_STREAM_STRU) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int SetLayerCode(const PU_RECORD_LAYER_STRU&) = 0;
    virtual int setAutoTraceParam(AUTO_TRACE_PARAM_S&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int SetAlarmGuard(bool) = 0;
    virtual int SetCameraStreamParam(const PU_CAMERA_STREAM_CONFIG&) = 0;
    virtual int GetCameraStreamParam(PU_CAMERA_STREAM_CONFIG&) = 0;
    virtual int SetImagParam(const PU_IMAGE_PARAM_CONFIG&) = 0;
    virtual int GetImagParam(PU_IMAGE_PARAM_CONFIG&) = 0;
    virtual int SetExtImagParam(const PU_EXTENDED_IMAGE_PARAM_CONFIG&) = 0;
    virtual int GetExtImagParam(PU_EXTENDED_IMAGE_PARAM_CONFIG&) = 0;
    virtual int SetRecordPlan(const PU_RECORD_PLAN_INFO&, PU_RECORD_PLAN_MAP&) = 0;
    virtual int GetRecordPlan(PU_RECORD_PLAN_INFO&, PU_RECORD_PLAN_MAP&) = 0;
    virtual int SetSnapShotPlan(std::list<_PU_SNAP_SHOT_PLAN>&) = 0;
    virtual int GetSnapShotPlan(PU_GET_SNAP_SHOT_PLAN&, std::list<_PU_SNAP_SHOT_PLAN>&) = 0;
    virtual int StartPuRecord(const PU_RECORD_START_STRU&) = 0;
    virtual int StopPuRecord() = 0;
    virtual int GetPuRecordState(PU_RECORD_STATE&) = 0;
    virtual int GetPuRecordList(GET_PU_RECORD_INFO&, std::list<_GET_PU_RECORD_DATA_LIST>&) = 0;
    virtual int SetIntelligentParam(RULE_COMMON_PARAM_S&, std::list<RULE_ALARM_PARAM>&, RULE_ALARM_PARAM_S&) = 0;
    virtual int GetIntelligentParam(RULE_COMMON_PARAM_S&, std::list<RULE_ALARM_PARAM>&) = 0;
    virtual int SetPtzParamReq(const MSG_PTZ_PARAM&) = 0;
    virtual int GetPtzParamReq(MSG_PTZ_PARAM&) = 0;
    virtual int PtzControlReq(const MSG_PTZ_CTRL_REQ&) = 0;
    virtual int SetCruiseTrackReq(const MSG_PTZ_SET_CRUISE_TRACK_REQ&, MSG_PTZ_SET_CRUISE_TRACK_RSP&) = 0;
    virtual int GetCruiseTrackReq(MSG_PTZ_GET_CRUISE_TRACK_RSP&) = 0;
    virtual int DelCruiseTrackReq(const MSG_PTZ_DEL_CRUISE_TRACK_REQ&) = 0;
    virtual int HandleAbsoluteMove(const MSG_PTZ_CTRL_REQ&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int HandleDiectionMove(const MSG_PTZ_CTRL_REQ&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int SetCameraTamperParam(const PU_HIDE_ALARM_CONF_STRU&, const std::list<_AREA_INFO>&,
                                     const std::list<_PU_Guard_Time>&) = 0;
    virtual int GetCameraTamperParam(PU_HIDE_ALARM_CONF_STRU&, std::list<_AREA_INFO>&, std::list<_PU_Guard_Time>&) = 0;
    // Search results of recordings on the device, kept by the plug-in between requests.
    virtual int PopFrontRecordIndex(CStreamParam*&) = 0;
    virtual void PushBackRecordIndex(const CStreamParam*) = 0;
    virtual int SetPuFecParam(const PU_Fec_CONF_INFO&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int GetPuFecParam(PU_Fec_CONF_INFO&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int GetVideoEncodeOptions(VIDEO_ENCODE_OPTIONS&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int GetPtzAbsPosition(MSG_PTZ_ABS_POSITION_RSP&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    // The session description of the answer to the platform, and the address of the stream for players. The lens's own
    // is CServiceSDP's private form of an answer, under m_strSrcCode: 0, 1 for a transport that its video block has no
    // words for, or 2 for null or an empty code.
    virtual int EncodeRspSDP(const CStreamParam* param, std::string& sdp);
    virtual int EncodeRTSPUrl(const CStreamParam*, std::string&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int SetVisualAreaInfoReq(const VisualAreaInfo&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int SetPresetInfo(const char*) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual int SetHomePostionInfo(const char*) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual void setConnectId(const ZVS_CHAR*) {}
    // Passes a JSON message to the device: its method, its body, and the device's answer.
    // A lens that takes none leaves the answer empty: ZVS_GVX_DEV_UN_SUPPORT.
    virtual ZVS_INT32 HandleSendJsonMessage(const std::string& method, const std::string& body, std::string& answer);
    virtual ZVS_INT32 HandleStartCalibration(bool) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual ZVS_INT32 HandleGetMasterSlaveCalibrationStatus(MASTER_SLAVE_CALIBRATION_STATUS_PARA&) {
        return ZVS_GVX_DEV_UN_SUPPORT;
    }
    virtual ZVS_INT32 HandleStartMasterSlaveLocate(MASTER_SLAVE_LOCATE_PARA&) { return ZVS_GVX_DEV_UN_SUPPORT; }
    virtual void GetVisualAreaBufferInfo(VisualAreaInfo&) {}
    virtual void SetLensChannelId(const unsigned long&) {}
    virtual enProfileAbnormalType GetChannelAbnormalFlag() { return m_profileFlag; }
    // True when the request may still run: it is at most 1000 ms old. A timeStamp in the future counts as too old.
    virtual bool OnCheckSnapShotRequest(const PU_SNAP_CONF_REQ& snapReq);

    // Snapshots: requests wait, five at most, for one worker thread of the lens, which the first of them starts. It
    // calls VcuSnapShotReqInfo for each that OnCheckSnapShotRequest lets pass, and pauses for EveryIPC_CapInterval
    // milliseconds after each that succeeded.

    // Queues a copy; any thread. 0; ZVS_GVX_GET_SNAP_SHOT_ERROR when five wait or the worker cannot be started; 1 when
    // a lock failed.
    int EnqueueSnapRequest(const PU_SNAP_CONF_REQ& snapReq);
    // Waits for the next request. 0; 1 without one, queueExit then saying whether the worker is to end.
    int GetOneSnapRequest(PU_SNAP_CONF_REQ& snapReq, bool& queueExit);
    // The worker's body; arg is the lens. 0, or ZVS_NULL_POINTER for null.
    static int ProcessSnapShotQueue(void* arg);
    // Makes queue and worker. 0 or ZVS_GVX_GET_SNAP_SHOT_ERROR. A lens that was stopped serves no request any more: its
    // worker ends at the first.
    int StartSnapQueueThread();
    // Ends the worker, at once where it pauses, and waits for the capture that it is at; what waits is dropped. 0, also
    // without a worker, or 1 when the lock failed. ZVS_GVX_GET_SNAP_SHOT_ERROR, with a reason, when the capture has not
    // returned within GVX_PLUGIN_CALL_LIMIT: its thread is left behind, and the lens must not be deleted. By one thread
    // at a time, not the worker's; before the object of the plug-in's class goes.
    int StopSnapQueueThread();

    // Frames to packets. A channel index is a stream type (0 to 10) for RTP over UDP, that value plus 11 (11 to 21)
    // for RTP over TCP. The int operations return 0, 1 for a failure, or ZVS_GVX_OPEN_SOCKET_ERROR when the send
    // function returned that. When they return, everything has gone to the send function of the channel.

    // A frame of an elementary stream with four-byte start codes (or, with bPSType, a program stream packet), cut into
    // NAL units and packets of at most 1390 payload bytes. strMediaData says by nVideoSize, else nAudioSize, what the
    // frame is, and is overwritten packet by packet. The time arguments go into the header extension, which is written
    // when bNeedAddExternData is set. pFrameBuf stays the caller's and is not changed.
    int H264ToRtp(unsigned char* pFrameBuf, int iFrameLen, _MEDIA_DATA& strMediaData, int iChannelID,
                  bool bIsSendOverTCP, bool bNeedAddExternData, unsigned short usGmtMillsecond,
                  unsigned int uiGmtSecond, bool bPSType);
    // A frame of a private format, sent whole behind a made-up NAL header.
    int SendHikStream(unsigned char* pFrameBuf, int iFrameLen, _MEDIA_DATA& strMediaData, int iChannelID,
                      bool bIsSendOverTCP, bool bNeedAddExternData, unsigned short usGmtMillsecond,
                      unsigned int uiGmtSecond);
    // A packet that the plug-in has built itself, passed straight to the send function, whose result is ignored.
    // False when the channel would be none.
    bool DoSendVideoFrame(const _MEDIA_DATA& struMediaData, const _STREAM_TYPE_EX& streamType);

    // The steps of the above: packets from the NAL units that wait in the channel; NAL units from a frame; elementary
    // streams from a program stream packet (the spans lead into the parser's memory, valid until its next call).
    int SendFrame(_MEDIA_DATA& strMediaData, int iChannelID, bool bIsSendOverTCP, bool bHaveExternData,
                  unsigned short usGmtMillsecond, unsigned int uiGmtSecond);
    int SplitFrame2Nalu(unsigned char* pFrameBuf, unsigned int iFrameLen, int iChannelID);
    int HSPspkt2ESFrm(const unsigned char* pPacket, int iPktLen, unsigned char*& pVideoData, unsigned int& iVideoLen,
                      unsigned char*& pAudioData, unsigned int& iAudioLen, int iChannelID);

    // Metadata packets: head with the magic byte behind it; interleave with rtpLen already in network order; the
    // packet in the channel's buffer to the send function; the timestamp of a record.
    void PackRtpHead(bool isLast, bool isSendOverTCP, int channelID, unsigned long long pts);
    void SetTcpInter(unsigned short rtpLen, int channelID);
    int SendMediaData(_METADATE_TYPE metaDataType, void* userInfo, bool isSendOverTCP, int channelID);
    unsigned long long GetPts(_METADATE_TYPE metaDataType, const void* metaData);
    // A control marker for the caller, an empty block of type MB_PROTO, which the caller releases; null when there is
    // no memory.
    ACE_Message_Block* CreateMediaHeartBeatPkt();

    // Metadata to packets: a record of gvx_metadata_records.h as a three-layer TLV message, cut into packets of at most
    // 1390 TLV bytes of payload type 107 on a channel of its own, the last one marked. One thread at a time for a lens.
    // 0; 1 for a failure, with nothing sent; ZVS_GVX_MEDIA_BUF_WITH_RTP_INVALID when the channel has no packet buffer;
    // ZVS_GVX_OPEN_SOCKET_ERROR when a packet could not be sent, the rest then staying behind.

    // pMetaData is an ITSPlates or a stFaceRects with pictures by pointer; it is not read for a heartbeat.
    int MetaDataToRtpAndSend(_METADATE_TYPE enMetaDataType, const void* pMetaData, int iChannelID, void* pUserInfo,
                             bool bIsSendOverTCP);
    // metaData is a MemHandler whose first page starts with an ITSPlatesTrim or a stFaceRects, and which holds the
    // pictures; they go from page to page. It is not read for a heartbeat, and stays the caller's.
    int MetaDataToRtpAndSendEx(_METADATE_TYPE metaDataType, const void* metaData, int channelID, void* userInfo,
                               bool isSendOverTCP);
    // The packets of an encoded message.
    int SendMetaData(_METADATE_TYPE metaDataType, void* userInfo, int channelID, const MemHandler& tlvMem,
                     unsigned long ulMetaDataTlvlen, bool isSendOverTCP, unsigned long long ullPts);

    // The steps of the above: a record into an encoder, in the map form and in the memory form. 0, or 1 with an error
    // line and the encoder cleared. The helpers append the items of one part of a layer, for a face that of its index.
    int GetMetaTlv(_METADATE_TYPE metaDataType, const void* metaData, TLV_Encoder& encoder);
    int GetMetaTlvEx(_METADATE_TYPE metaDataType, const void* metaData, TLV_Encoder& encoder);
    int ITSMetaDataToTLV(const ITSPlates* plates, TLV_Encoder& encoder);
    int FaceMetaDataToTLV(const stFaceRects* faces, TLV_Encoder& encoder);
    int ITSMetaDataToTLVEx(const MemHandler* record, TLV_Encoder& encoder);
    int FaceMetaDataToTLVEx(const MemHandler* record, TLV_Encoder& encoder);
    int ITSVehicleMetaDataToTLVEx(const ITSPlatesTrim* plates, TLV_Encoder& encoder);
    int ITSPlateRectMetaDataToTLVEx(const ITSPlatesTrim* plates, TLV_Encoder& encoder);
    int FaceInfoMetaDataToTLVEx(const stFaceRects* faces, TLV_Encoder& encoder, const MemHandler* record,
                                unsigned int index);
    static void GetPlateRect(const stObjectRect& from, _META_RECT_S& to);

    const char* GetSubDevID() const { return m_chSubDevID; }
    short GetSubDevChannelNo() const { return m_nChannelId; }
    const CAdapterDevBase& GetParentDev() const { return m_ParentDev; }
    enMainDevType GetMainDevType() const { return m_MainDevType; }
    void SetMainDevType(enMainDevType type) { m_MainDevType = type; }
    // The state of a channel, owned by the lens; null for an index that is none.
    CMediaChannel* getMidiaChannel(int iChannelID) const;

    // True exactly when the item's byte is 1; false for a null mask and for an index outside the mask.
    static bool IsConfItemValid(const CONF_ITEM_MASK_STRU* mask, _DEVICE_CONFIG_INDEX index);
    // True when the mask names a parameter of the serial line: baud rate, data bits, stop bits, parity, control
    // protocol or address. The numbers of the port do not count.
    static bool IsSerialParam(const CONF_ITEM_MASK_STRU* mask);

protected:
    const CAdapterDevBase& m_ParentDev;
    const short m_nChannelId;
    char m_chSubDevID[33];
    CMediaChannel* m_pMediaChannel = nullptr;  // GVX_MEDIA_CHANNEL_NUM of them, owned
    enMainDevType m_MainDevType = MAIN_DEV_TYPE_IPC;
    unsigned short m_usMetaDataSeqNo = 0;  // shared by all channels of the lens
    enProfileAbnormalType m_profileFlag = PROFILE_NORMAL;

    // Snapshot requests that wait; all null while no worker runs. m_snapQueueMutex guards the queue and the flag, which
    // stays set after a stop.
    ACE_thread_t m_snapQueueThreadHandle = 0;
    std::deque<PU_SNAP_CONF_REQ>* m_snapQueue = nullptr;
    ACE_Recursive_Thread_Mutex* m_snapQueueMutex = nullptr;
    ACE_Thread_Semaphore* m_snapQueueSema = nullptr;
    bool m_snapQueueExit = false;

private:
    const std::string m_strParentIP;  // as the lens was made: lines of media threads must not read the device's own

    int MakeSnapQueue();
    int StartSnapQueueLocked();  // with the worker's QueueLife held
    void DeleteSnapQueue();
    void ServeSnapQueue();
    bool Capture(const PU_SNAP_CONF_REQ& request);

    const std::unique_ptr<gvx::SnapshotWorker> m_snapWorker;
};
