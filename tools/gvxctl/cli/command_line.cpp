#include "gvxctl/cli/command_line.h"

namespace gvxctl {
namespace {

void AddPortRange(CLI::App& command, const std::string& name, PortRange& range, const std::string& text) {
    const auto parse = [&range](const std::string& value) {
        if (!ParsePortRange(value, range)) {
            throw CLI::ValidationError(value + " is no range of ports such as 40000-40100");
        }
    };
    command.add_option_function<std::string>(name, parse, text)->type_name("MIN-MAX");
}

}  // namespace

CLI::Option* AddEndpoint(CLI::App& command, const std::string& name, Endpoint& endpoint, const std::string& text) {
    const auto parse = [&endpoint](const std::string& value) {
        if (!ParseEndpoint(value, endpoint)) {
            throw CLI::ValidationError(value + " is neither IP:PORT nor PORT");
        }
    };
    return command.add_option_function<std::string>(name, parse, text)->type_name("[IP:]PORT");
}

CLI::App& AddCommand(CLI::App& app, CommandLine& line, const char* name, const char* text, std::function<int()> run) {
    CLI::App& command = *app.add_subcommand(name, text);
    command.callback([&line, run = std::move(run)] { line.run = run; });
    return command;
}

CLI::App& AddLinkedCommand(CLI::App& app, CommandLine& line, const char* name, const char* text,
                           std::function<int()> run) {
    CLI::App& command = AddCommand(app, line, name, text, std::move(run));
    AddEndpoint(command, "--gateway", line.common.gateway, "where gvxd listens for links (default: 127.0.0.1:9600)");
    AddPortRange(command, "--udp-ports", line.common.ports.udp,
                 "UDP ports that the main service hands out, in steps of two (default: 30000-30999)");
    AddPortRange(command, "--tcp-ports", line.common.ports.tcp,
                 "TCP ports that the main service hands out (default: 31000-31999)");
    return command;
}

}  // namespace gvxctl
