#pragma once

#include <cstddef>
#include <cstdint>

// What a device's analysis found, as a plug-in hands it to CAdapterLensBase::MetaDataToRtpAndSend (pictures by pointer)
// and MetaDataToRtpAndSendEx (pictures by their position in the MemHandler whose first page starts with the record).
// Packed, numbers in host byte order. The record and what it points to stay the caller's.

#pragma pack(push, 1)

// A rectangle as it stands on the wire.
struct _META_RECT_S {
    unsigned short usX;
    unsigned short usY;
    unsigned short usWidth;
    unsigned short usHeight;
};

// A rectangle as devices report it; the unit is the device's.
struct stObjectRect {
    unsigned short x;
    unsigned short y;
    unsigned short width;
    unsigned short height;
};

// One face.
struct FaceRect {
    short x;  // rectangle of the face in the panorama
    short y;
    short width;
    short height;
    short neighbors;           // score
    short angle;               // degrees
    std::uint64_t ulfaceid;    // the device's number of the face, sent as FACE_ID and GLOBAL_OBJID
    unsigned char* pfacebuf;   // plain form: JPEG of the face
    std::uint32_t facebufPos;  // Ex form: where it lies
    std::uint32_t ulsize;      // its bytes; 0 for none
    std::uint64_t uFaceTime;   // when it was taken
};

constexpr int GVX_MAX_FACES = 16;

// The faces of one panorama.
struct stFaceRects {
    std::uint64_t ulChId;
    std::uint64_t uAlarmTime;    // sent as FACE_PIC_TIME of the panorama
    std::uint32_t uiTimeStampH;  // high and low half of the PTS; the low half is the RTP timestamp
    std::uint32_t uiTimeStampL;
    unsigned char* pPanoramaPicBuf;   // plain form: JPEG of the whole scene
    std::uint32_t panoramaPicBufPos;  // Ex form: where it lies
    std::uint32_t ulPanoramaPicsize;  // its bytes; 0 for none
    std::int32_t count;               // faces in use, 0 to 16; what is beyond is cut
    FaceRect faces[GVX_MAX_FACES];
};
using FaceRects = stFaceRects;

// The places of the two pictures of a plate record.
enum ITS_PIC_PLACE : int {
    ITS_PIC_PLATE = 0,     // the plate alone, sent as PLATE_PIC
    ITS_PIC_PANORAMA = 1,  // the whole scene, sent as PANORAMA_PIC
};
constexpr int GVX_ITS_PIC_NUM = 2;

// One picture. Which of the two it is follows from its place in the record.
struct _ITSSnapPictureInfo {
    std::int32_t iPicType;        // the device's own number; not sent
    std::int32_t iPicLen;         // bytes; 0 or less for none
    std::uint64_t ulPicFileID;    // that of the plate picture is sent as GLOBAL_OBJID
    unsigned char* ptrPicBuffer;  // JPEG
    std::uint32_t picBufferPos;   // not used in the plain form
    char szPicName[256];          // not sent
    char szPicTime[32];           // not sent
};

struct _ITSSnapPictureInfoTrim {
    std::int32_t iPicType;
    std::int32_t iPicLen;
    std::uint64_t ulPicFileID;
    unsigned char* ptrPicBuffer;  // not used in the Ex form
    std::uint32_t picBufferPos;   // where the JPEG lies
};

struct TV_ITS_PLATE_INFO {
    char cPlateType;  // sent in one byte each
    char cPlateColor;
    char szPlateNumber[32];  // text, ended by a NUL when shorter; empty when the plate was not read
};

struct TV_ITS_VEHICLE_DETAIL {
    char cVehicleType;  // sent in one byte each
    char cVehicleColor;
    std::int32_t iVehicleSpeed;  // sent in four bytes
};

struct TV_ITS_VEHICLE_INFO {
    char cLaneChannel;         // number of the lane, sent in one byte
    std::uint64_t uiSnapTime;  // when the pictures were taken; sent as PTS and PIC_SNAPSHOT_TIME, and the RTP timestamp
    TV_ITS_PLATE_INFO stPlateInfo;
    TV_ITS_VEHICLE_DETAIL stVehicleInfo;
    char szDeviceID[64];   // not sent
    char szRoadName[256];  // not sent
};

struct TV_ITS_VEHICLE_INFO_TRIM {
    char cLaneChannel;
    std::uint64_t uiSnapTime;
    TV_ITS_PLATE_INFO stPlateInfo;
    TV_ITS_VEHICLE_DETAIL stVehicleInfo;
};

// A plate or a vehicle.
struct ITSPlates {
    std::int32_t iPicCnt;  // places of astPicInfos in use, 0 to 2
    _ITSSnapPictureInfo astPicInfos[GVX_ITS_PIC_NUM];
    TV_ITS_VEHICLE_INFO vehicleInfo;
    stObjectRect stPlatePos;
    stObjectRect platePosCom;
    stObjectRect platePosAbs;
    stObjectRect vehiclePosCom;
    stObjectRect vehiclePosAbs;
};

// The same without the long texts, for the Ex form.
struct ITSPlatesTrim {
    std::int32_t iPicCnt;
    _ITSSnapPictureInfoTrim astPicInfos[GVX_ITS_PIC_NUM];
    TV_ITS_VEHICLE_INFO_TRIM vehicleInfo;
    stObjectRect stPlatePos;
    stObjectRect platePosCom;
    stObjectRect platePosAbs;
    stObjectRect vehiclePosCom;
    stObjectRect vehiclePosAbs;
};

#pragma pack(pop)

static_assert(sizeof(_META_RECT_S) == 8, "eight bytes on the wire");
static_assert(sizeof(stFaceRects) <= 2048 && sizeof(ITSPlatesTrim) <= 2048,
              "a record of the Ex form lies in the first page of its MemHandler");
