#pragma once

#include <cstddef>
#include <string>

namespace gvx {

// Reads a regular file of at most maxBytes. False when it cannot be read whole. This and the next: any thread.
bool ReadWholeFile(const std::string& path, std::size_t maxBytes, std::string& content);

// Writes "<path>.bak" to the disk and renames it over path, so that readers see the old text or the new one whole.
// An existing file keeps its access bits. False when that fails; path is then as it was and no .bak is left, unless the
// folder alone could not be brought to the disk: a power loss may then bring the old text back.
bool ReplaceWholeFile(const std::string& path, const std::string& content);

// The same for a file that only its owner may read: its mode becomes 0600 before anything is written to it.
bool ReplacePrivateFile(const std::string& path, const std::string& content);

// Brings a folder's entries to the disk, so that a rename in it outlives a power loss.
bool SyncFolder(const std::string& folder);

}  // namespace gvx
