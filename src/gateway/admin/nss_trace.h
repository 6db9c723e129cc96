#pragma once

#include <cstddef>
#include <string>

namespace gvx {

// Frames of platform links as a trace of a device takes them. Any thread.

// Whether a frame, head included, concerns a device: its code stands in the body as the whole of a text.
bool ConcernsDevice(const char* frame, std::size_t size, const std::string& device);

// The text by which an answer is known as that to its request; empty when the frame has none.
std::string TransactionOfFrame(const char* frame, std::size_t size);

// A frame without its secrets: the texts of its body redacted, its lengths set anew, and zeros for what is no text.
// note says what was done, empty for nothing. Of a body of more than kMostFrameBody bytes the head alone stays.
constexpr std::size_t kMostFrameBody = 64u * 1024;
std::string FrameWithoutSecrets(const char* frame, std::size_t size, std::string& note);

}  // namespace gvx
