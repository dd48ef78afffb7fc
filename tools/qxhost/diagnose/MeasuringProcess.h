#pragma once

#include "tools/qxhost/diagnose/LifeSign.h"
#include "tools/qxhost/diagnose/MeasureOptions.h"
#include "tools/qxhost/diagnose/Messages.h"

#include <chrono>
#include <functional>
#include <string>
#include <sys/types.h>

namespace Qx::Diagnosis {

/// This program once more, as the process that measures: a driver that hangs or crashes takes that one down
/// and not us. It ends with us, whatever becomes of us.
class MeasuringProcess
{
public:
    struct Listener
    {
        std::function<void(const Message&)> message;
        std::function<void(const std::string&)> line; ///< of its standard error
        std::function<void()> meanwhile;              ///< several times a second
    };

    /// Starts it. Throws Failure.
    explicit MeasuringProcess(Program::MeasureOptions options);
    ~MeasuringProcess();
    MeasuringProcess(const MeasuringProcess&) = delete;
    MeasuringProcess& operator=(const MeasuringProcess&) = delete;

    /// Hears it out, and says how it ended. It is killed when it shows no sign of life for `limit`, or when
    /// the file descriptor `stop` becomes readable.
    Ending watch(std::chrono::milliseconds limit, int stop, const Listener& listener);

    /// What it is at, for people.
    std::string doing() const { return life_.last(); }

private:
    class Lines;
    class Hearing;

    void kill() const;
    bool reap(std::chrono::milliseconds limit);
    std::string howItEnded() const;

    LifeSign life_;
    pid_t pid_ = -1;
    int out_ = -1;
    int err_ = -1;
    int status_ = 0;
    bool reaped_ = false;
};

} // namespace Qx::Diagnosis
