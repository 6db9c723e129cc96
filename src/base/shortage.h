#pragma once

#include <cstddef>
#include <exception>
#include <string>

namespace gvx {

// What a system may have none of to give.
enum class Resource { Thread, Descriptor, Memory };

// Notes that the system had none of it, with the error that it gave. Whoever ends an activity for it says in the log
// what could not be done; the note lets a start that fails name the resource. Any thread; never fails.
void NoteShortage(Resource resource, int error) noexcept;
// The same for the errno of a call that makes a descriptor; one that tells of no shortage notes nothing, and gives
// false.
bool NoteShortage(int error) noexcept;
// The same for what was thrown: std::bad_alloc, or an error of the system, where EAGAIN is the want of a thread.
void NoteShortage(const std::exception& fault) noexcept;

// Whether that many bytes and a little more could be had; notes the shortage when not. Asked ahead of what a library
// makes that does not bear to find none, such as a thread before it reaches our code. Any thread.
bool FindsMemory(std::size_t bytes) noexcept;

// The same for a descriptor. Asked behind the failure of what does not tell why, such as a plug-in.
bool FindsDescriptor() noexcept;

// Behind a step that has come to its end without what it did not find, so that a later failure is not put down to it.
void ForgetShortage() noexcept;

// The last one that was noted: "no descriptor to be had: Too many open files"; empty when there was none. Any thread.
std::string LastShortage();

}  // namespace gvx
