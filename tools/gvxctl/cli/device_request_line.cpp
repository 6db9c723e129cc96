#include "gvx_common/forms/request_table.h"
#include "gvxctl/cli/command_line.h"

#include <map>

namespace gvxctl {
namespace {

constexpr const char* kGroup = "Requests to devices";

void AddTarget(CLI::App& command, DeviceRequestOptions& options, gvx::RequestScope scope) {
    if (scope == gvx::RequestScope::Plugin) {
        command.add_option("--plugin", options.plugin, "name of the plug-in")->capture_default_str();
        return;
    }
    command.add_option("--dev", options.devCode, "device code")->capture_default_str();
    command.add_option("--lens", options.lensCode, "lens code (default: the device's first)");
}

// The command that a row's verb stands behind; its text tells the verbs.
CLI::App& GroupOf(CLI::App& app, std::map<std::string, CLI::App*>& groups, const gvx::RequestRow& row) {
    CLI::App*& group = groups[row.command];
    if (group == nullptr) {
        group = app.add_subcommand(row.command, row.verb);
        group->require_subcommand(1)->group(kGroup);
    } else {
        group->description(group->get_description() + ", " + row.verb);
    }
    return *group;
}

}  // namespace

void AddDeviceRequestCommands(CLI::App& app, CommandLine& line) {
    std::map<std::string, CLI::App*> groups;
    for (const gvx::RequestRow& row : gvx::AllRequests()) {
        const bool alone = *row.verb == '\0';
        CLI::App& parent = alone ? app : GroupOf(app, groups, row);
        CLI::App& command = AddLinkedCommand(parent, line, alone ? row.command : row.verb, row.sentence, [&line, &row] {
            return RunDeviceRequest(line.common, row, line.request);
        });
        if (alone) {
            command.group(kGroup);
        }
        AddTarget(command, line.request, row.scope);
        command.add_option("members", line.request.words,
                           "NAME=VALUE, or values of those that must be there, in order");
        command.add_option("--body", line.request.body, "a JSON object with further members");
        command.add_flag("--json", line.common.json, "print the response as JSON");
        command.footer([&row] { return MembersText(row); });
    }
    CLI::App& requests = AddCommand(app, line, "requests", "list every request to devices and its command",
                                    [&line] { return RunRequests(line.requestsPage); });
    requests.add_flag("--page", line.requestsPage, "print the reference page, Markdown");
}

}  // namespace gvxctl
