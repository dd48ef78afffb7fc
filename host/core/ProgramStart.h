#pragma once

#include <csignal>
#include <spawn.h>
#include <string>
#include <sys/types.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Qx::Host {

/// How to start a program with posix_spawn: its files, its process group, its signals and its environment.
/// What is not said here, the program inherits. Descriptors are set in the order of the calls.
class ProgramStart
{
public:
    ProgramStart()
    {
        keep(::posix_spawn_file_actions_init(&files_));
        keep(::posix_spawnattr_init(&attributes_));
    }
    ~ProgramStart()
    {
        ::posix_spawnattr_destroy(&attributes_);
        ::posix_spawn_file_actions_destroy(&files_);
    }
    ProgramStart(const ProgramStart&) = delete;
    ProgramStart& operator=(const ProgramStart&) = delete;

    /// Opens a file as `descriptor`, with the flags and mode of open().
    void open(int descriptor, const std::string& file, int flags, mode_t mode = 0)
    {
        keep(::posix_spawn_file_actions_addopen(&files_, descriptor, file.c_str(), flags, mode));
    }

    /// Passes one of our descriptors on as `as`.
    void pass(int descriptor, int as) { keep(::posix_spawn_file_actions_adddup2(&files_, descriptor, as)); }

    /// Closes this descriptor and all above it.
    void closeFrom(int first) { keep(::posix_spawn_file_actions_addclosefrom_np(&files_, first)); }

    /// Puts the program into a process group of its own: a terminal's Ctrl-C does not reach it.
    void useOwnGroup()
    {
        keep(::posix_spawnattr_setpgroup(&attributes_, 0));
        flags_ |= POSIX_SPAWN_SETPGROUP;
    }

    /// Gives every signal its default action and blocks none: our handlers and masks are our own.
    void useDefaultSignals()
    {
        sigset_t none;
        sigset_t all;
        ::sigemptyset(&none);
        ::sigfillset(&all);
        keep(::posix_spawnattr_setsigmask(&attributes_, &none));
        keep(::posix_spawnattr_setsigdefault(&attributes_, &all));
        flags_ |= POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    }

    /// Puts variables, NAME=VALUE, in front of the inherited environment: getenv() finds them before those of
    /// the same name.
    void addVariables(std::vector<std::string> variables) { variables_ = std::move(variables); }

    /// Starts the program in that file; `arguments` begin with its name. Returns 0, or an error number.
    int run(const std::string& file, std::vector<std::string> arguments, pid_t& pid)
    {
        keep(::posix_spawnattr_setflags(&attributes_, flags_));
        if (error_ != 0) {
            return error_;
        }
        std::vector<char*> variables = pointers(variables_);
        for (char** each = environ; each != nullptr && *each != nullptr; ++each) { // clearenv() leaves none
            variables.push_back(*each); // of two of the same name the first one wins
        }
        variables.push_back(nullptr);
        std::vector<char*> texts = pointers(arguments);
        texts.push_back(nullptr);
        return ::posix_spawn(&pid, file.c_str(), &files_, &attributes_, texts.data(), variables.data());
    }

private:
    /// Remembers the first error.
    void keep(int error) { error_ = error_ == 0 ? error : error_; }

    static std::vector<char*> pointers(std::vector<std::string>& texts)
    {
        std::vector<char*> all;
        for (std::string& text : texts) {
            all.push_back(text.data());
        }
        return all;
    }

    posix_spawn_file_actions_t files_{};
    posix_spawnattr_t attributes_{};
    std::vector<std::string> variables_;
    short flags_ = 0;
    int error_ = 0;
};

} // namespace Qx::Host
