#pragma once

#include "gvxctl/cli/command_line.h"

#include <string>

// What the whole tree of commands tells.
namespace gvxctl {

// One line a code, for the end of each help.
std::string ExitCodeTable();

// What is wrong with a command line that could not be read, in one line: a word that is no command or option with those
// that are near, otherwise the reader's own sentence; and whose help tells more.
std::string WrongUse(const CLI::App& app, const CLI::ParseError& error);

// "completion bash", which the help does not show: prints what a shell needs to complete every command and option. And
// "completion help": the help of all commands, of which the manual page is made.
void AddCompletionCommand(CLI::App& app, CommandLine& line);

}  // namespace gvxctl
