#include "tests/contract/recording/Script.h"

#include <chrono>
#include <utility>

namespace Qx::Test {

class Gate::State
{
public:
    void pass()
    {
        std::unique_lock guard(lock_);
        ++reached_;
        changed_.notify_all();
        changed_.wait(guard, [this] { return open_; });
    }

    void open()
    {
        const std::lock_guard guard(lock_);
        open_ = true;
        changed_.notify_all();
    }

    bool waitUntilReached(std::size_t calls)
    {
        std::unique_lock guard(lock_);
        return changed_.wait_for(guard, std::chrono::minutes(1), [&] { return reached_ >= calls; });
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    std::size_t reached_ = 0;
    bool open_ = false;
};

Gate::Gate(std::shared_ptr<State> state) : state_(std::move(state)) {}

Gate::~Gate()
{
    if (state_) {
        state_->open();
    }
}

void Gate::release()
{
    state_->open();
}

bool Gate::waitUntilReached(std::size_t calls) const
{
    return state_->waitUntilReached(calls);
}

void Script::fail(const std::string& operation, std::size_t times)
{
    const std::lock_guard guard(lock_);
    operations_[operation].successes = 0;
    operations_[operation].failures = times;
}

void Script::failAt(const std::string& operation, std::size_t call)
{
    fail(operation, 1);
    const std::lock_guard guard(lock_);
    operations_[operation].successes = call - 1;
}

void Script::during(const std::string& operation, std::function<void()> action)
{
    const std::lock_guard guard(lock_);
    operations_[operation].action = std::move(action);
    operations_[operation].isForOneCall = false;
}

void Script::duringNext(const std::string& operation, std::function<void()> action)
{
    during(operation, std::move(action));
    const std::lock_guard guard(lock_);
    operations_[operation].isForOneCall = true;
}

Gate Script::hold(const std::string& operation)
{
    const std::lock_guard guard(lock_);
    auto state = std::make_shared<Gate::State>();
    operations_[operation].gate = state;
    return Gate(state);
}

void Script::reset()
{
    const std::lock_guard guard(lock_);
    operations_.clear();
}

bool Script::play(const std::string& operation)
{
    Operation now;
    {
        const std::lock_guard guard(lock_);
        const auto found = operations_.find(operation);
        if (found == operations_.end()) {
            return true;
        }
        now = found->second;
        if (now.isForOneCall) {
            found->second.action = nullptr;
        }
        if (now.successes != 0) {
            --found->second.successes;
        } else if (now.failures != 0 && now.failures != always) {
            --found->second.failures;
        }
    }
    if (now.action) {
        now.action();
    }
    if (now.gate) {
        now.gate->pass();
    }
    return now.successes != 0 || now.failures == 0;
}

} // namespace Qx::Test
