#pragma once

#include <cstddef>
#include <string>

namespace gvx {

// What a system may have none of to give.
enum class Resource { Thread, Descriptor, Memory };

// Notes that the system had none of it, with the error that it gave. Whoever ends an activity for it says in the log
// what could not be done; the note lets a start that fails name the resource. Any thread; never fails.
void NoteShortage(Resource resource, int error) noexcept;
// The same for the errno of a call that makes a descriptor; one that tells of no shortage notes nothing.
void NoteShortage(int error) noexcept;

// Whether a thread with a stack of that many bytes would find memory to begin with; notes the shortage when not. For
// threads of libraries that end the process when theirs finds none before it reaches our code. Any thread.
bool ThreadFindsMemory(std::size_t stackBytes) noexcept;

// The last one that was noted: "no descriptor to be had: Too many open files"; empty when there was none. Any thread.
std::string LastShortage();

}  // namespace gvx
