#pragma once

namespace CBB {
class CXml;
}

namespace gvx {

// The device error reporter of this process: made at start, deleted when nothing can report any more.
void StartErrorReports();
void StopErrorReports();

// Moves what plug-ins have reported on this thread into a document, <Content><InfoType/><DevErrorInfo/></Content>, with
// the answer's code. False when nothing was reported or the code is no failure; xml is then unchanged.
bool TakeErrorReport(int code, CBB::CXml& xml);

}  // namespace gvx
