#pragma once

#include <string>

// Why an operation of a plug-in fails, in words. The gateway forgets the reason of a thread before it calls an
// operation on it, and takes it when the operation answers a failure: the sentence then stands in the log line and, as
// "Reason", in the answer to the platform. Each thread has a reason of its own. Nothing secret may stand in it.

// Sets the reason of the calling thread: one sentence, cut at the last character within 511 bytes. Replaces one that is there.
void GvxSetReason(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The same, and returns the code, for the end of an operation:
//     return GvxFail(ZVS_GVX_DEV_NOT_EXIST, "There is no medium '%s'.", name.c_str());
int GvxFail(int code, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Takes the reason of the calling thread; an empty text when there is none.
std::string GvxTakeReason();
