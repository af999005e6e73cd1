// python/src/fork_gate.h - keeps a process from being copied while threads of this module are at work.
#pragma once

#include <pybind11/pybind11.h>

#include <shared_mutex>

namespace mailtree::python {

/// Shared by whoever works in a thread of its own; os.fork() waits until nobody does. A child process has
/// none of these threads, so what one of them held would be held there for ever. Not to be taken twice.
std::shared_mutex& forkGate();

/// Makes os.fork() wait at the gate.
void addForkGate();

}  // namespace mailtree::python
