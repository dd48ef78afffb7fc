#pragma once

#include <pybind11/pybind11.h>

namespace Qx::Python {

/// Lets other threads of Python run as long as it lives. Make it the first in its scope. Where the
/// interpreter has ended meanwhile, its thread stays in the destructor: Python would unwind the thread
/// through it, which ends the process.
class OthersRun
{
public:
    OthersRun();
    ~OthersRun();
    OthersRun(const OthersRun&) = delete;
    OthersRun& operator=(const OthersRun&) = delete;

private:
    PyThreadState* state_;
};

/// Call it before the interpreter ends, on the thread that ends it: from then on, no other thread comes back
/// to Python.
void keepOthersOut();

} // namespace Qx::Python
