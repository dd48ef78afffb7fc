#pragma once

#include "tools/qxhost/console/Console.h"

#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Qx::Program {

/// Another program, or this one once more, whose outputs are kept in memory. It is asked to end if this one
/// dies, and when this object does, which then waits for it.
class ChildProgram
{
public:
    ChildProgram();
    ~ChildProgram();
    ChildProgram(ChildProgram&&) noexcept;
    /// Not while a program runs.
    ChildProgram& operator=(ChildProgram&&) noexcept;

    /// Starts this program with these arguments. `what` names it in messages ("a conversion"). Throws Failure
    /// (failed).
    static ChildProgram ownProgram(const std::vector<std::string>& arguments, const std::string& what);

    /// The same, with a standard input that tell() and endInput() feed.
    static ChildProgram ownProgramThatListens(const std::vector<std::string>& arguments,
                                              const std::string& what);

    /// Starts the program that PATH has under that name. It ends with 127 if there is none.
    static ChildProgram named(const std::string& name, const std::vector<std::string>& arguments);

    /// Returns true once it has ended. Does not wait.
    bool hasEnded();
    /// It was started, and its end is not known yet.
    bool isRunning() const { return out_ && process_ > 0; }
    void wait();
    /// Asks it to end.
    void stop() const;

    /// Writes a short line, without its end, to the program's standard input. One that has ended misses it.
    void tell(const std::string& line) const;
    void endInput();

    /// Once it has ended: its exit code; that of a failure if a signal ended it, which is then not 0.
    int exitCode() const { return exitCode_; }
    int signal() const { return signal_; }
    const std::string& output() const { return output_; }
    const std::string& errors() const { return errors_; }

    /// What it has written until now.
    std::string outputSoFar() const;
    std::string errorsSoFar() const;

    static constexpr int notStarted = 127;

private:
    class Caught;
    class Pipe;

    static ChildProgram start(const char* file, std::vector<std::string> words, const std::string& what,
                              std::unique_ptr<Pipe> in = nullptr);
    bool reap(int options);

    pid_t process_ = -1;
    std::unique_ptr<Caught> out_;
    std::unique_ptr<Caught> err_;
    std::unique_ptr<Pipe> in_;
    int exitCode_ = 0;
    int signal_ = 0;
    std::string output_;
    std::string errors_;
};

/// Passes on what this program, as a child, has written to standard error: its lines begin with its name.
void repeatLines(const std::string& messages, Console& console);

} // namespace Qx::Program
