#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace gvx {

// What is looked at of a request to the status port before anything is done for it.
struct StatusRequest {
    std::string_view method;
    std::string_view target;              // as it came: path and query
    std::vector<std::string_view> hosts;  // of each Host header
    bool hasBody = false;
    bool isHttp10 = false;
};

enum class StatusPage { None, Page, Live, Ready, Metrics, Json, Events };

struct RequestVerdict {
    unsigned int code = 0;  // of HTTP; 200 for a page, which is named then
    StatusPage page = StatusPage::None;
    const char* reason = "";  // one sentence for a refusal; static text
};

constexpr std::size_t kMaxTargetBytes = 1024;

// Whether the port answers, and with what. Only GET and HEAD, without a body, for a path that is one of ours letter by
// letter; and only under a name that no page of another site can have (DNS rebinding): localhost, a loopback address,
// the address of the port, or, where that is all interfaces, any address; with any port's number or without one. Where
// HTTP/1.0 needs no name there may be none: browsers always send one. Any thread.
RequestVerdict CheckRequest(const StatusRequest& request, const std::string& address);

}  // namespace gvx
