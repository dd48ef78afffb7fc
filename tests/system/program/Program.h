#pragma once

#include "tests/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Qx::System {

namespace fs = std::filesystem;

/// What a program left behind.
struct Outcome
{
    int exitCode = -1; ///< 128 + signal when a signal ended it
    std::string out;
    std::string err;
};

/// A program that is running, its outputs going to files.
class Running
{
public:
    Running(const std::vector<std::string>& command, const fs::path& directory);
    ~Running();
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

    pid_t id() const { return pid_; }
    void signal(int number) const;

    /// The same to each process that it has started and that runs; how many these are.
    int signalChildren(int number) const;
    bool isRunning();

    /// What it has written to standard output and standard error until now.
    std::string outputSoFar() const;
    std::string errorSoFar() const;

    /// Waits for the end. A program that hangs is killed after a while, and fails the test.
    Outcome wait();

private:
    bool reap(bool wait);

    pid_t pid_ = -1;
    fs::path out_;
    fs::path err_;
    int status_ = 0;
    bool ended_ = false;
};

/// Part of a display matrix: a, b, c, d of ISO/IEC 14496-12, 8.2.2.3, in units of 1.
using MatrixPart = std::array<int, 4>;

/// A directory of its own for each test, in which programs run with settings, data and log of their own.
class ProgramTest : public testing::Test
{
protected:
    fs::path at(const std::string& name) const { return directory_ / name; }

    /// Runs the program under test.
    Outcome qxhost(const std::vector<std::string>& arguments) const;
    Outcome run(const std::vector<std::string>& command) const;

    /// Runs "qxhost convert" with --force; it must end with that code.
    Outcome convert(std::vector<std::string> arguments, int exitCode = 0) const;

    /// Runs ffmpeg in the test's directory; it must succeed.
    void ffmpeg(const std::vector<std::string>& arguments) const;

    /// What ffprobe says of a file's first stream of a kind ("v" or "a"), "key=value" a line.
    std::string probe(const std::string& file, const std::string& entries,
                      const std::string& kind = "v") const;

    /// The frames of a file as ffmpeg decodes them to this pixel format.
    std::vector<std::uint8_t> decoded(const std::string& file, const std::string& pixelFormat) const;

    /// Names in the directory other than those given, sorted: nothing else may be left behind.
    std::vector<std::string> filesBeside(const std::vector<std::string>& known) const;

    static std::string read(const fs::path& file);
    void write(const std::string& name, const std::string& text) const;

    /// Copies a clip in MOV or MP4, with a display matrix.
    void turn(const std::string& from, const std::string& to, const MatrixPart& part,
              int unit = 1 << 16) const;

    /// What `qxhost devices --json` says of the device that is chosen.
    nlohmann::json chosenDevice() const;

    const Qx::Test::TemporaryDirectory temporary_;
    const fs::path directory_ = temporary_.path();
};

/// The program under test.
std::string programPath();

} // namespace Qx::System
