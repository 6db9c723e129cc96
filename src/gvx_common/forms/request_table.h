#pragma once

#include "gvx_common/forms/record_form.h"

#include <cstddef>
#include <cstdint>
#include <string>

// The requests of request_table.inc as data: what each carries and is answered with. Any thread.
namespace gvx {

enum class RequestScope { Plugin, Device, Lens };

struct RequestRow {
    std::uint16_t reqID;
    const char* name;     // such as "NSS_SET_PRESET_REQ"
    const char* command;  // of gvxctl
    const char* verb;     // behind the command; empty for none
    RequestScope scope;
    const RecordForm& (*request)();
    const RecordForm& (*answer)();
    const char* sentence;
};

struct RequestRows {
    const RequestRow* rows;
    std::size_t count;

    const RequestRow* begin() const { return rows; }
    const RequestRow* end() const { return rows + count; }
};

// All of them, in the order of the reference page.
RequestRows AllRequests();

// The reference page of all requests, in Markdown.
std::string RequestsPage();

}  // namespace gvx
