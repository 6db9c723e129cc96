#pragma once

#include <atomic>
#include <cstddef>
#include <string>

namespace gvxctl {

// Set by SIGINT and SIGTERM once CatchInterrupts has been called, and when whoever read standard output has gone, so
// that a command in progress can end in order. Any thread may look; CatchInterrupts belongs to main's.
std::atomic<bool>& Interrupted();
void CatchInterrupts();
// Whether it was the reader of standard output.
bool NobodyReads();

// Sleeps in short steps; false when interrupted.
bool SleepUnlessInterrupted(int milliseconds);

// A text as a terminal may show it: gateways, peers and plug-ins say what they like, and a terminal takes control
// characters for commands. Those stand as \x1b, and so do bytes that are no UTF-8 and marks that turn the direction of
// writing (\u202e); line feeds and tabs stay. Of a longer text, the first maxBytes and its length.
std::string Printable(const std::string& text, std::size_t maxBytes = 4096);
// The same on one line: line feeds and tabs stand as \n and \t.
std::string PrintableLine(const std::string& text);

// A text on standard output, made printable, and a line feed, at once.
void Print(const std::string& text);
// The same on standard error; returns the code that the program is to end with.
int Fail(int code, const std::string& error);

}  // namespace gvxctl
