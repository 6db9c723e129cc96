#pragma once

#include "bp/message_block_ptr.h"

#include <cstdint>
#include <string>

// How links name themselves, and the frames that they exchange about themselves: docs/nss-link.md. Any thread.
namespace BP {

// A registration is never longer than this, so an unknown peer cannot make us hold more.
constexpr std::size_t kMaxRegistrationBytes = 4096;

// 1 to 40 printable ASCII characters without blanks, '#' among them.
bool IsLinkIdentifier(const std::string& text);

// The net element code of a peer from its link identifier: 10105 SCU, 60105 OMU, 30105 MU, 240105 IMGU, 40105 GVX,
// otherwise 80105. The first name that is found in this order decides, since "OMU" contains "MU".
int ElementTypeOf(const std::string& linkID);
// The name that decides so, such as "SCU"; null for none. Static text.
const char* ElementNameOf(const std::string& linkID);

// Control frames are marked by their block's type and not counted among a link's frames. Null when there is no memory.
MessageBlockPtr MakeRegisterRequest(const std::string& localID);
MessageBlockPtr MakeRegisterResponse(const ACE_Message_Block* request, const std::string& localID,
                                     std::uint32_t rspCode);
MessageBlockPtr MakeKeepAliveRequest();
MessageBlockPtr MakeKeepAliveResponse(const ACE_Message_Block* request);
bool IsControlFrame(const ACE_Message_Block* block);

// Reads the identifier from the JSON item of a registration's body. False, and *fault says why, when there is none
// or it is not allowed.
bool ReadRegistration(const ACE_Message_Block* frame, std::string& linkID, std::string* fault);

}  // namespace BP
