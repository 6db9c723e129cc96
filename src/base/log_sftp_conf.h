#pragma once

#include <cstddef>
#include <cstdint>

// Where log files are uploaded to. Texts are terminated, the port is in host order. The password is clear: whoever
// holds the record wipes it (memset_s) as soon as it is used.
#pragma pack(push, 1)
struct LOG_SFTP_CONF {
    char WorkSpace[768];
    char ServerAddr[64];
    std::uint16_t ServerPort;
    char Username[64];
    char Password[64];
    char Reserve[64];  // zero
};
#pragma pack(pop)
static_assert(sizeof(LOG_SFTP_CONF) == 1026, "the record's layout is fixed");

// The settings are kept in log_sftp.conf of the configuration folder, mode 0600, with the password enciphered under the
// key in log_sftp.key beside it, which the first write makes. Writes are whole: a reader finds the old settings or the
// new ones. Both: 0 for success, 1 with a log line. One thread at a time.

// Without a file, or with an empty one, the record is all zero. After a failure it is, too.
int read_log_sftp_conf(LOG_SFTP_CONF* conf);
int write_log_sftp_conf(const LOG_SFTP_CONF* conf);
