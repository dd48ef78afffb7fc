#include "tests/system/program/Program.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ; // NOLINT: POSIX declares it nowhere

namespace Qx::System {

namespace {

/// The test's own environment, with the user's directories moved into the test's. Compiled effects are shared
/// by all tests, unless one makes a ".cache" of its own.
std::vector<std::string> environmentFor(const fs::path& directory)
{
    const fs::path ownCache = directory / ".cache";
    const fs::path cache = fs::exists(ownCache) ? ownCache : fs::path(QX_BUILD_FOLDER) / "tests/cache";
    std::vector<std::string> variables{"XDG_CONFIG_HOME=" + (directory / ".config").string(),
                                       "XDG_DATA_HOME=" + (directory / ".data").string(),
                                       "XDG_STATE_HOME=" + (directory / ".state").string(),
                                       "XDG_CACHE_HOME=" + cache.string()};
    for (char** each = environ; *each != nullptr; ++each) {
        if (!std::string_view(*each).starts_with("XDG_")) {
            variables.emplace_back(*each);
        }
    }
    return variables;
}

std::vector<char*> pointers(std::vector<std::string>& texts)
{
    std::vector<char*> result;
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

std::string textOf(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

} // namespace

std::string programPath()
{
    const char* chosen = std::getenv("QX_TEST_PROGRAM");
    return chosen != nullptr ? chosen : QX_PROGRAM;
}

Running::Running(const std::vector<std::string>& command, const fs::path& directory)
{
    static int count = 0;
    out_ = directory / (".stdout-" + std::to_string(++count));
    err_ = directory / (".stderr-" + std::to_string(count));
    std::vector<std::string> arguments = command;
    std::vector<std::string> variables = environmentFor(directory);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    constexpr int mode = 0600;
    constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_addchdir_np(&files, directory.c_str());
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, out_.c_str(), flags, mode);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, err_.c_str(), flags, mode);
    const int error = ::posix_spawnp(&pid_, arguments.front().c_str(), &files, nullptr,
                                     pointers(arguments).data(), pointers(variables).data());
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) {
        ADD_FAILURE() << command.front() << " could not be started";
        ended_ = true;
    }
}

Running::~Running()
{
    if (!ended_) {
        ::kill(pid_, SIGKILL);
        reap(true);
    }
}

void Running::signal(int number) const
{
    ::kill(pid_, number);
}

int Running::signalChildren(int number) const
{
    int signalled = 0;
    for (const fs::directory_entry& thread :
         fs::directory_iterator("/proc/" + std::to_string(pid_) + "/task")) {
        std::ifstream children(thread.path() / "children"); // of this thread, proc(5)
        for (pid_t child = 0; children >> child;) {
            signalled += ::kill(child, number) == 0 ? 1 : 0;
        }
    }
    return signalled;
}

bool Running::reap(bool wait)
{
    pid_t got = 0;
    while (!ended_ && (got = ::waitpid(pid_, &status_, wait ? 0 : WNOHANG)) < 0 && errno == EINTR) {
    }
    ended_ = ended_ || got != 0;
    return ended_;
}

bool Running::isRunning()
{
    return !reap(false);
}

std::string Running::outputSoFar() const
{
    return textOf(out_);
}

std::string Running::errorSoFar() const
{
    return textOf(err_);
}

Outcome Running::wait()
{
    using namespace std::chrono_literals;
    const auto limit = std::chrono::steady_clock::now() + 240s; // far beyond what any of them takes
    while (isRunning() && std::chrono::steady_clock::now() < limit) {
        std::this_thread::sleep_for(5ms);
    }
    if (isRunning()) {
        ADD_FAILURE() << "the program hangs";
        ::kill(pid_, SIGKILL);
        reap(true);
    }
    constexpr int signalBase = 128;
    return {WIFEXITED(status_) ? WEXITSTATUS(status_) : signalBase + WTERMSIG(status_), textOf(out_),
            textOf(err_)};
}

Outcome ProgramTest::run(const std::vector<std::string>& command) const
{
    return Running(command, directory_).wait();
}

Outcome ProgramTest::qxhost(const std::vector<std::string>& arguments) const
{
    std::vector<std::string> command{programPath()};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return run(command);
}

Outcome ProgramTest::convert(std::vector<std::string> arguments, int exitCode) const
{
    arguments.insert(arguments.begin(), "convert");
    arguments.emplace_back("--force");
    Outcome outcome = qxhost(arguments);
    EXPECT_EQ(outcome.exitCode, exitCode) << outcome.err;
    return outcome;
}

void ProgramTest::ffmpeg(const std::vector<std::string>& arguments) const
{
    std::vector<std::string> command{"ffmpeg", "-nostdin", "-v", "error", "-y"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const Outcome outcome = run(command);
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
}

std::string ProgramTest::probe(const std::string& file, const std::string& entries,
                               const std::string& kind) const
{
    const Outcome outcome =
        run({"ffprobe", "-v", "error", "-select_streams", kind + ":0", "-count_frames", "-show_entries",
             "stream=" + entries, "-of", "default=noprint_wrappers=1", file});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    return outcome.out;
}

std::vector<std::uint8_t> ProgramTest::decoded(const std::string& file, const std::string& pixelFormat) const
{
    ffmpeg({"-i", file, "-f", "rawvideo", "-vsync", "0", "-pix_fmt", pixelFormat, "decoded.raw"});
    const std::string bytes = read(at("decoded.raw"));
    fs::remove(at("decoded.raw"));
    return {bytes.begin(), bytes.end()};
}

std::vector<std::string> ProgramTest::filesBeside(const std::vector<std::string>& known) const
{
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory_)) {
        const std::string name = entry.path().filename().string();
        const bool ours = name.starts_with(".stdout-") || name.starts_with(".stderr-") || name == ".config" ||
                          name == ".data" || name == ".state" || name == ".cache";
        if (!ours && std::find(known.begin(), known.end(), name) == known.end()) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string ProgramTest::read(const fs::path& file)
{
    return textOf(file);
}

void ProgramTest::turn(const std::string& from, const std::string& to, const MatrixPart& part, int unit) const
{
    std::string bytes = read(at(from));
    const std::size_t header = bytes.find("tkhd");
    ASSERT_NE(header, std::string::npos);
    std::size_t place = header + 4 + 4 + 20 + 16; // version 0: times, layer and volume before the matrix
    for (const int value : {part[0] * unit, part[1] * unit, 0, part[2] * unit, part[3] * unit, 0}) {
        for (const int shift : {24, 16, 8, 0}) {
            bytes[place++] = static_cast<char>(static_cast<unsigned>(value) >> shift);
        }
    }
    write(to, bytes);
}

nlohmann::json ProgramTest::chosenDevice() const
{
    for (const nlohmann::json& device : nlohmann::json::parse(qxhost({"devices", "--json"}).out)) {
        if (device.at("chosen").get<bool>()) {
            return device;
        }
    }
    ADD_FAILURE() << "no device is chosen";
    return {{"notes", nlohmann::json::array()}, {"driver", ""}};
}

void ProgramTest::write(const std::string& name, const std::string& text) const
{
    std::ofstream out(at(name), std::ios::binary);
    out << text;
    ASSERT_TRUE(out.flush().good());
}

} // namespace Qx::System
