#pragma once

#include "gvx_common/records/gvx_metadata_records.h"

class MemHandler;
class TLV_Encoder;

namespace gvx {

// Writes a record that lies in pool pages with its pictures as a message in the memory form: items leave in the order
// in which they are appended, and a picture goes from page to page. On the thread of the lens's metadata. All
// operations give 0, or 1 with an error line.
class ExMetadataWriter {
public:
    // The encoder is fresh and outlives the writer.
    explicit ExMetadataWriter(TLV_Encoder& encoder) : m_encoder(encoder) {}

    // A whole message from the ITSPlatesTrim, or the stFaceRects, at the start of the record. A failure clears the
    // encoder.
    int WritePlates(const MemHandler& record);
    int WriteFaces(const MemHandler& record);

    // The items of a part of a layer: those of the vehicle and of its plate, five rectangles, one face with its
    // picture.
    int WriteVehicle(const ITSPlatesTrim& plates);
    int WritePlateRects(const ITSPlatesTrim& plates);
    int WriteFace(const FaceRect& face, const MemHandler& record);

private:
    int CloseMessage(const char* title, bool failed, TLV_Encoder& outer);

    TLV_Encoder& m_encoder;
};

}  // namespace gvx
