#pragma once

#include <memory>

// Told on the consumer's thread that a command of that device has reached its service.
class ServedListener {
public:
    virtual ~ServedListener() = default;
    virtual void OnServed(int device) = 0;
};

// One way from a push to its service, with one consumer thread a device.
class CommandPath {
public:
    virtual ~CommandPath() = default;
    // Several threads may push, each for devices of its own.
    virtual void Push(int device) = 0;
};

// The device reactors: CGvxReactor::PushMessage to the session's work.
std::unique_ptr<CommandPath> MakeReactorPath(int devices, ServedListener& listener);

// The floor: a mutex-guarded deque of items made beforehand, and an eventfd that wakes a thread that only pops.
std::unique_ptr<CommandPath> MakeFloorPath(int devices, ServedListener& listener);
