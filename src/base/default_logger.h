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
};

// Makes the logger that gvxd and the tools use: console and rotating file, secrets removed from every line. Lines that
// the file cannot take are counted, and a line tells of them when it can take lines again; see base/log_fault.h.
// Null when the file cannot be opened; *error then says why. Any thread.
std::shared_ptr<IOMLogger> MakeDefaultLogger(const OMLoggerOptions& options, std::string* error);
