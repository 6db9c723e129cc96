#pragma once

#include "gvx_common/records/gvx_metadata_records.h"

#include <cstddef>

class MemHandler;

// What both forms of the metadata writers read from a record. Any thread.
namespace gvx {

// The record at the start of the first page; null with an error line when the buffer is too short for it.
const void* RecordAtHead(const MemHandler* record, std::size_t size, const char* title);

template <typename Record>
const Record* RecordOf(const MemHandler* record, const char* title) {
    return static_cast<const Record*>(RecordAtHead(record, sizeof(Record), title));
}

// Faces in use, whatever the record says.
unsigned int FaceCount(const stFaceRects& faces);
unsigned long long FacePts(const stFaceRects& faces);
_META_RECT_S FacePos(const FaceRect& face);
_META_RECT_S PlateRect(const stObjectRect& from);

// Characters of the plate's text without its terminator.
unsigned int PlateTextLength(const TV_ITS_PLATE_INFO& plate);

// True when the record says that there is a picture at that place (ITS_PIC_PLACE).
template <typename Plates>
bool HasPicture(const Plates& plates, int place) {
    return place < plates.iPicCnt && plates.astPicInfos[place].iPicLen > 0;
}

}  // namespace gvx
