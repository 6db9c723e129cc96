#pragma once

#include "gvxctl/commands.h"

#include <string>
#include <vector>

// Commands about what devices see, have recorded and say: searches, snapshots, playback, talk. As in commands.h.
namespace gvxctl {

struct SearchOptions {
    std::string plugin = "file";
    std::vector<std::string> ranges;  // "FIRST-LAST" or one address, perhaps with ":PORT"; none: the gateway's segment
    std::vector<std::string> added;   // addresses that the platform has
    int protocol = 0;
    int seconds = 660;  // ends the search after that time
};
// Searches for devices and prints each; stops the search when it is interrupted.
int RunSearch(const CommonOptions& common, const SearchOptions& options);

struct SnapshotOptions {
    std::string devCode = "CAM001";
    std::string lensCode;
    int count = 1;
    int type = 1;     // a SnapType
    std::string url;  // where pictures are sent to; empty: they are not sent
    int seconds = 60;
};
// Asks for snapshots, tells the gateway the address for them, and waits until each was sent.
int RunSnapshot(const CommonOptions& common, const SnapshotOptions& options);

struct PlaybackOptions {
    StreamSpec stream;
    std::string ip = "127.0.0.1";  // of this end
    RecordFiles files;
    double speed = 1;
    int seek = -1;    // seconds from the recording's start; below 0: none
    int pauseMs = 0;  // stands still that long once pictures have come
    int seconds = 600;
};
// Plays a range of a recording, records it and waits for its end.
int RunPlayback(const CommonOptions& common, const PlaybackOptions& options);

struct TalkOptions {
    StreamSpec stream;
    std::string ip = "127.0.0.1";  // of this end
    std::string send;              // G.711 that is said to the lens
    std::string receive;           // file for what the lens says
    int seconds = 0;               // ends after that time; 0: when the file was said
};
int RunTalk(const CommonOptions& common, const TalkOptions& options);

}  // namespace gvxctl
