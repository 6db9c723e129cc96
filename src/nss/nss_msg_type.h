#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

// The numbering of all messages of the protocol. A request is NSS_<stem>_REQ with a value below 0x9000; its
// response is NSS_<stem>_RSP, the request's value plus 0x9000. Several values carry two names; both are valid.
//
// There is one source of the numbering, nss_msg_type.list, in a notation as compact as a printed table; the
// build turns it into the enumerators below and into the name tables behind the lookups. Any thread.
enum enNssMsgType : std::uint32_t {
#include "nss/nss_msg_type_enumerators.inc"
};

// First name of a value, such as "NSS_ADD_MAIN_DEV_REQ"; "NSS_UNKNOWN" for a value without one. Static text.
const char* NssMsgTypeName(std::uint32_t value) noexcept;

// Every name in table order, responses behind their requests.
struct NssMsgTypeRow {
    const char* name;
    std::uint16_t value;
};
const NssMsgTypeRow* NssMsgTypeRows(std::size_t& count) noexcept;

// Value of a name given whole, with or without its "NSS_"; false when there is no such name.
bool NssMsgTypeFromName(std::string_view name, std::uint16_t& value) noexcept;
