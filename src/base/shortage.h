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

// Whether that many bytes and a little more could be had; notes the shortage when not. Asked ahead of what a library makes
// that does not bear to find none, such as a thread before it reaches our code. Any thread.
bool FindsMemory(std::size_t bytes) noexcept;

// Behind a step that has come to its end without what it did not find, so that a later failure is not put down to it.
void ForgetShortage() noexcept;

// The last one that was noted: "no descriptor to be had: Too many open files"; empty when there was none. Any thread.
std::string LastShortage();

}  // namespace gvx
