// Requests to the status port: a line with method and target, then a line for each Host header. What is answered with a
// page is a GET or HEAD of one of our paths under one name, which is localhost or an address.

#include "fuzz_input.h"
#include "gateway/admin/request_check.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace {

std::vector<std::string_view> Lines(std::string_view text) {
    std::vector<std::string_view> lines;
    while (true) {
        const std::size_t end = text.find('\n');
        lines.push_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return lines;
        }
        text.remove_prefix(end + 1);
    }
}

// localhost, [::1] or four groups of digits, of the loopback or the port's own where that is one, with any port or
// none.
bool IsOurName(std::string_view host, const std::string& address) {
    const std::size_t number = host.find_last_not_of("0123456789") + 1;  // npos + 1 is 0
    if (number > 0 && number < host.size() && host[number - 1] == ':') {
        host = host.substr(0, number - 1);
    }
    std::string name(host);
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (name == "localhost" || name == "[::1]") {
        return true;
    }
    const bool isAddress =
        std::count(name.begin(), name.end(), '.') == 3 && name.find_first_not_of("0123456789.") == std::string::npos;
    return isAddress && (name.compare(0, 4, "127.") == 0 || name == address || address == "0.0.0.0");
}

void CheckUnder(const std::string& address, const gvx::StatusRequest& request) {
    const gvx::RequestVerdict verdict = gvx::CheckRequest(request, address);
    fuzz::Require((verdict.code == 200) == (verdict.page != gvx::StatusPage::None));
    if (verdict.code != 200) {
        fuzz::Require(verdict.code >= 400 && verdict.code < 500 && *verdict.reason != '\0');
        return;
    }
    const std::string_view path = request.target.substr(0, request.target.find('?'));
    const std::string_view paths[] = {"/", "/livez", "/readyz", "/metrics", "/status.json", "/events"};
    fuzz::Require(std::find(std::begin(paths), std::end(paths), path) != std::end(paths));
    fuzz::Require(request.method == "GET" || request.method == "HEAD");
    fuzz::Require(!request.hasBody);
    fuzz::Require(request.hosts.empty() ? request.isHttp10
                                        : request.hosts.size() == 1 && IsOurName(request.hosts[0], address));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    gvx::StatusRequest request;
    const std::uint8_t flags = input.Byte();
    request.hasBody = (flags & 1) != 0;
    request.isHttp10 = (flags & 2) != 0;
    const std::vector<std::uint8_t> bytes = input.Bytes(size);
    const std::vector<std::string_view> lines = Lines({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    const std::size_t blank = lines[0].find(' ');
    request.method = lines[0].substr(0, blank);
    request.target = blank == std::string_view::npos ? std::string_view() : lines[0].substr(blank + 1);
    request.hosts.assign(lines.begin() + 1, lines.end());
    for (const char* address : {"127.0.0.1", "0.0.0.0", "10.0.0.7"}) {
        CheckUnder(address, request);
    }
    return 0;
}
