#include "python/OthersRun.h"

#include <atomic>
#include <chrono>
#include <thread>
#include <unistd.h>

namespace Qx::Python {

namespace {

std::atomic<bool> interpreterEnds = false;
std::atomic<int> comingBack = 0;
std::atomic<std::thread::id> ending;

} // namespace

OthersRun::OthersRun() : state_(PyEval_SaveThread()) {}

OthersRun::~OthersRun()
{
    ++comingBack;
    if (interpreterEnds && ending.load() != std::this_thread::get_id()) {
        --comingBack;
        while (true) {
            ::pause();
        }
    }
    PyEval_RestoreThread(state_);
    --comingBack;
}

void keepOthersOut()
{
    ending = std::this_thread::get_id();
    PyThreadState* const state = PyEval_SaveThread();
    interpreterEnds = true;
    while (comingBack != 0) { // whoever came before has Python's lock soon
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    PyEval_RestoreThread(state);
}

} // namespace Qx::Python
