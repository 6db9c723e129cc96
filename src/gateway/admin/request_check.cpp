#include "gateway/admin/request_check.h"

#include <algorithm>
#include <iterator>

#include <arpa/inet.h>

namespace gvx {

namespace {

constexpr unsigned int kOk = 200;
constexpr unsigned int kBadRequest = 400;
constexpr unsigned int kNotFound = 404;
constexpr unsigned int kMethodNotAllowed = 405;
constexpr unsigned int kContentTooLarge = 413;
constexpr unsigned int kUriTooLong = 414;
constexpr unsigned int kMisdirected = 421;
constexpr const char* kAllInterfaces = "0.0.0.0";

struct PathRow {
    std::string_view path;
    StatusPage page;
};
constexpr PathRow kPaths[] = {
    {"/", StatusPage::Page},           {"/livez", StatusPage::Live},       {"/readyz", StatusPage::Ready},
    {"/metrics", StatusPage::Metrics}, {"/status.json", StatusPage::Json}, {"/events", StatusPage::Events}};

bool IsLocalhost(std::string_view name) {
    constexpr std::string_view kName = "localhost";
    return name.size() == kName.size() && std::equal(name.begin(), name.end(), kName.begin(), [](char one, char other) {
               return (one >= 'A' && one <= 'Z' ? static_cast<char>(one - 'A' + 'a') : one) == other;
           });
}

// In dotted form, as browsers write it.
bool IsAddress(std::string_view name, std::uint32_t& address) {
    const std::string text(name.substr(0, INET_ADDRSTRLEN));
    in_addr binary{};
    if (name.find('\0') != std::string_view::npos || inet_pton(AF_INET, text.c_str(), &binary) != 1) {
        return false;
    }
    address = ntohl(binary.s_addr);
    return true;
}

// Any port: a forwarded one has a number of its own, and a page of another site cannot have one of these names.
bool MayBeCalled(std::string_view host, const std::string& address) {
    const std::size_t colon = host.rfind(':');
    const bool bracketed = !host.empty() && host.back() == ']';
    std::string_view name = host;
    if (colon != std::string_view::npos && !bracketed) {
        const std::string_view port = host.substr(colon + 1);
        if (port.empty() || port.find_first_not_of("0123456789") != std::string_view::npos) {
            return false;
        }
        name = host.substr(0, colon);
    }
    constexpr unsigned int kLoopbackNet = 127;
    constexpr unsigned int kNetShift = 24;
    std::uint32_t number = 0;
    return IsLocalhost(name) || name == "[::1]" || name == address ||
           (IsAddress(name, number) && (number >> kNetShift == kLoopbackNet || address == kAllInterfaces));
}

}  // namespace

RequestVerdict CheckRequest(const StatusRequest& request, const std::string& address) {
    const bool isCalled = request.hosts.size() == 1 && MayBeCalled(request.hosts[0], address);
    if (!isCalled && !(request.hosts.empty() && request.isHttp10)) {
        return {request.hosts.size() > 1 ? kBadRequest : kMisdirected, StatusPage::None,
                "This port answers under its own address alone."};
    }
    if (request.method != "GET" && request.method != "HEAD") {
        return {kMethodNotAllowed, StatusPage::None, "This port is read alone: GET and HEAD."};
    }
    if (request.hasBody) {
        return {kContentTooLarge, StatusPage::None, "A request has no body here."};
    }
    if (request.target.size() > kMaxTargetBytes) {
        return {kUriTooLong, StatusPage::None, "The path is too long."};
    }
    const std::string_view path = request.target.substr(0, request.target.find('?'));
    const PathRow* const row =
        std::find_if(std::begin(kPaths), std::end(kPaths), [path](const PathRow& known) { return known.path == path; });
    if (row == std::end(kPaths)) {
        return {kNotFound, StatusPage::None, "There are /, /livez, /readyz, /metrics, /status.json and /events."};
    }
    return {kOk, row->page, ""};
}

}  // namespace gvx
