#include "gvxctl/cli/command_tree.h"

#include "base/near_words.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace gvxctl {
namespace {

constexpr const char* kHidden = "";  // a group that no help shows

std::vector<std::string> CommandsOf(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        if (command->get_group() != kHidden) {
            names.push_back(command->get_name());
        }
    }
    return names;
}

std::vector<std::string> OptionsOf(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

std::string Joined(const std::vector<std::string>& words, const char* between) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : between) + word;
    }
    return text;
}

// The command that was reached, as it is typed.
const CLI::App& Reached(const CLI::App& app, std::string& path) {
    const CLI::App* command = &app;
    path = app.get_name();
    while (!command->get_subcommands().empty()) {
        command = command->get_subcommands().front();
        path += " " + command->get_name();
    }
    return *command;
}

// Near ones, and those in which the word stands: somebody who types "stream" means "start-stream" or "stop-stream".
std::vector<std::string> Meant(const std::string& word, const std::vector<std::string>& names) {
    constexpr std::size_t kLeastLetters = 3;
    constexpr std::size_t kMostNames = 4;
    std::vector<std::string> meant = gvx::NearWords(word, names);
    for (const std::string& name : names) {
        if (word.size() >= kLeastLetters && name.find(word) != std::string::npos && meant.size() < kMostNames &&
            std::find(meant.begin(), meant.end(), name) == meant.end()) {
            meant.push_back(name);
        }
    }
    return meant;
}

// "prefix" and what may stand behind it, for this command and all below it, as the arms of a shell's case.
void AddCompletions(const CLI::App& app, const std::string& path, std::string& text) {
    std::vector<std::string> words = CommandsOf(app);
    const std::vector<std::string> options = OptionsOf(app);
    words.insert(words.end(), options.begin(), options.end());
    text += "        '" + path + "') words='" + Joined(words, " ") + "' ;;\n";
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        if (command->get_group() != kHidden) {
            AddCompletions(*command, path + (path.empty() ? "" : " ") + command->get_name(), text);
        }
    }
}

std::string BashCompletion(const CLI::App& app) {
    std::string arms;
    AddCompletions(app, "", arms);
    return "# Completes gvxctl in bash.\n"
           "_gvxctl() {\n"
           "    local path='' word words=''\n"
           "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
           "        [[ $word == -* || $word == *=* ]] && break\n"
           "        path+=${path:+ }$word\n"
           "    done\n"
           "    case $path in\n" +
           arms +
           "    esac\n"
           "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"${COMP_WORDS[COMP_CWORD]}\")\n"
           "}\n"
           "complete -o default -F _gvxctl gvxctl\n";
}

// The help of every command, led by a line with "= " and how it is typed behind gvxctl.
void AddHelp(const CLI::App& app, const std::string& path, std::string& text) {
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        if (command->get_group() != kHidden) {
            const std::string typed = path + (path.empty() ? "" : " ") + command->get_name();
            text += "= " + typed + "\n" + command->help();
            AddHelp(*command, typed, text);
        }
    }
}

}  // namespace

std::string ExitCodeTable() {
    std::string text = "Exit codes:\n";
    for (const ExitCodeRow& row : kExitCodeRows) {
        text += "  " + std::to_string(row.code) + "  " + row.meaning + "\n";
    }
    return text;
}

std::string WrongUse(const CLI::App& app, const CLI::ParseError& error) {
    std::string path;
    const CLI::App& command = Reached(app, path);
    std::string text = error.what();
    const std::vector<std::string> unknown = app.remaining(true);
    if (!unknown.empty()) {
        const std::string word = unknown.front().substr(0, unknown.front().find('='));
        const bool isOption = word.size() > 1 && word[0] == '-';
        const std::vector<std::string> names = isOption ? OptionsOf(command) : CommandsOf(command);
        const std::vector<std::string> meant = Meant(word, names);
        text = word +
               (isOption        ? " is no option of " + path
                : names.empty() ? " is not expected by " + path
                                : " is no command of " + path) +
               (meant.empty() ? "" : "; near: " + Joined(meant, ", "));
    } else if (const std::string prefix = "Could not convert: "; text.compare(0, prefix.size(), prefix) == 0) {
        text = text.substr(prefix.size()) + " is not what it takes";
    } else if (command.get_subcommands().empty() && !CommandsOf(command).empty()) {
        text = path + " needs a command: " + Joined(CommandsOf(command), ", ");
    }
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text + "; " + path + " --help tells more";
}

void AddCompletionCommand(CLI::App& app, CommandLine& line) {
    CLI::App& completion = *app.add_subcommand("completion", "what a shell completes commands by")->group(kHidden);
    completion.require_subcommand(1);
    AddCommand(completion, line, "bash", "for bash", [&app] {
        std::fputs(BashCompletion(app).c_str(), stdout);
        return kExitOk;
    });
    AddCommand(completion, line, "help", "the help of every command, for the manual", [&app] {
        std::string text;
        AddHelp(app, "", text);
        std::fputs(text.c_str(), stdout);
        return kExitOk;
    });
}

}  // namespace gvxctl
