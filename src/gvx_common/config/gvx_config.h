#pragma once

#include <cstddef>
#include <cstdio>
#include <list>
#include <string>
#include <utility>
#include <vector>

// Each entry is one whole comment line with its line end, or "\n" for a blank line.
using COMMENT_LIST = std::list<std::string>;

struct _stKeyValueItem {
    COMMENT_LIST ItemComment;  // the lines directly above the key
    std::string Key;           // not trimmed: a blank before the equals sign belongs to it
    std::string Value;         // trimmed
};
using KEYVALUE_ITEM = _stKeyValueItem;
using KV_LIST = std::list<KEYVALUE_ITEM>;

struct _stSecionItem {
    COMMENT_LIST ItemComment;  // the lines directly above the header
    std::string Section;       // without the brackets
    KV_LIST KvList;
};
using SECTION_ITEM = _stSecionItem;
using SECTION_LIST = std::list<SECTION_ITEM>;

// An image in memory of one INI-style file that keeps comments and blank lines with the item below them, so that one
// value can be changed and the file written back. Sections and keys are never added or removed; order and duplicates
// stay, and lookups find the first. Only ';' in the first column begins a comment, and only the first '=' splits.
// Lines that are neither comment, section nor key, keys above the first section and comments below the last key do
// not survive a save.
//
// No lock: one object belongs to one thread, and callers serialise edits of one file. Results are 0 for success and 1
// for failure unless stated.
// A failure changes nothing, with one exception: kNotOnDisk says that the new file stands in its place and counts from
// now on, but that a power loss may bring the old one back.
class GVX_Config {
public:
    // Working limits in bytes, each with room for the terminator.
    static constexpr std::size_t kLineBytes = 8193;  // a longer line is read as two
    static constexpr std::size_t kSectionBytes = 129;
    static constexpr std::size_t kKeyBytes = 129;
    static constexpr std::size_t kValueBytes = 8064;  // the line end counts
    static constexpr std::size_t kPathBytes = 4097;

    static constexpr int kNotOnDisk = 109100016;  // ZVS_WRITE_FILE_ERROR
    // Whether what was saved is in force, on the disk or not.
    static bool Stands(int result) { return result == 0 || result == kNotOnDisk; }

    // Reads the file; one that cannot be read to its end gives a store without sections, which is never written.
    explicit GVX_Config(const char* filename);
    ~GVX_Config();
    GVX_Config(const GVX_Config&) = delete;
    GVX_Config& operator=(const GVX_Config&) = delete;

    // Reads the file and appends what it holds.
    int init();

    // Whether the file was read to its end.
    bool IsWhole() const { return m_isWhole; }

    // Splits a line at its first '='. key must hold kKeyBytes and value kValueBytes, both zeroed. Gives the index of
    // the '=', 0 when there is none, -1 for a null argument or a part that is too long.
    int GetKeyAndValue(const char* line, char* key, char* value);

    // Trims both ends of s in place: the memory behind s must be writable. Null gives null.
    const char* rtrim(const char* s) const;

    // Copies the value of a key to out, which holds outLen bytes; unchanged when section or key is missing.
    int get(const char* section, const char* key, char* out, unsigned int outLen);

    // Replaces the value of a key that exists and saves at once; on failure the old value is back. A value with a line
    // end is refused. kNotOnDisk; 2 for a null argument.
    int set(const char* section, const char* key, const char* value);

    // The same for several keys of a section, by key and value, in one save: all of them or none.
    int set(const char* section, const std::vector<std::pair<std::string, std::string>>& values);

    // Writes the image to an open stream, which stays open.
    int dump(FILE* stream);

    // Writes the image to "<name>.bak", brings it to the disk and renames it over the file, so that a reader finds
    // either the old file or the new one whole, also after a power loss. A store that could not be read whole is not
    // written. A failure may leave the side file behind; kNotOnDisk when the folder alone could not be brought to the
    // disk.
    int save();

private:
    struct LineBuffers;

    int ReadLines(FILE* file);
    void TakeLine(LineBuffers& buffers, COMMENT_LIST& pending);
    void TakeSection(LineBuffers& buffers, COMMENT_LIST& pending);
    KEYVALUE_ITEM* FindForSet(const char* section, const char* key, const char* value);
    void TakeKey(LineBuffers& buffers, COMMENT_LIST& pending);
    int WriteSideFile(const std::string& backFile);

    std::string m_strIniFilename;
    SECTION_LIST m_secList;
    bool m_isWhole = false;  // the file was read to its end
};
