#pragma once

#include "base/om_adapter.h"

#include <cstddef>
#include <memory>
#include <string>

struct OMLoggerOptions {
    int level = OM_LOG_INFO;                         // lines above this number are not written
    bool console = true;                             // standard error
    std::string file;                                // empty: no file
    std::size_t maxFileBytes = 10u * 1024u * 1024u;  // a file is rotated when it would grow beyond this
    std::size_t maxFiles = 5;                        // backups kept
    bool json = false;                               // each line an object of JSON instead of a text
    std::size_t repeatLimit = 0;                     // lines a minute of one place of the code; 0: any number
    bool triesAgain = false;                         // a file that cannot be opened now is opened when it can be
};

// Makes the logger that gvxd and the tools use: console and rotating file, secrets removed from every line. Where
// standard error is the journal's (JOURNAL_STREAM, systemd.exec(5)), a line there begins with its level as "<3>"
// (sd-daemon(3)), and a text has no time of its own. An object of JSON holds time (RFC 3339), level, title, text, file,
// line and function, and is valid whatever bytes a text holds: what is no UTF-8 becomes U+FFFD. Lines beyond the repeat
// limit are counted, and a line of the same level and title tells how many there were when their minute is over; see
// base/log_repeats.h. Lines that the file cannot take are counted, and a line tells of them when it can take lines
// again; see base/log_fault.h. Null when the file cannot be opened; *error then says why. With triesAgain the logger
// goes on without the file, and *error says why it is missing. Any thread.
std::shared_ptr<IOMLogger> MakeDefaultLogger(const OMLoggerOptions& options, std::string* error);
