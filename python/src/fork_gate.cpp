#include "python/src/fork_gate.h"

#include <new>

namespace mailtree::python {

namespace py = pybind11;

std::shared_mutex& forkGate() {
  static auto* const gate = new std::shared_mutex();
  return *gate;
}

void addForkGate() {
  using namespace py::literals;
  // The lock of the interpreter is held in all three: whoever is at work does not wait for it. A lock
  // belongs to a thread of its process, so the child makes a new one.
  py::module_::import("os").attr("register_at_fork")(
      "before"_a = py::cpp_function([] { forkGate().lock(); }),
      "after_in_parent"_a = py::cpp_function([] { forkGate().unlock(); }),
      "after_in_child"_a = py::cpp_function([] { new (&forkGate()) std::shared_mutex(); }));
}

}  // namespace mailtree::python
