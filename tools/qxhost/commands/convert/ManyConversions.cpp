#include "tools/qxhost/commands/convert/ManyConversions.h"

#include "host/files/SystemError.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Interruption.h"
#include "tools/qxhost/console/Json.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <optional>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace Qx::Program {

namespace {

namespace fs = std::filesystem;

constexpr const char* fieldsOfTo = "; the fields are {name} and {folder}, and {{ stands for a brace";

/// A file in memory that takes an output of a process.
class CaughtOutput
{
public:
    CaughtOutput() : file_(::memfd_create("qxhost-output", MFD_CLOEXEC))
    {
        if (file_ < 0) {
            throw Failure(ExitCode::failed, "cannot start a conversion: " + Host::systemProblem(errno));
        }
    }
    ~CaughtOutput() { ::close(file_); }
    CaughtOutput(const CaughtOutput&) = delete;
    CaughtOutput& operator=(const CaughtOutput&) = delete;

    int file() const { return file_; }

    std::string text() const
    {
        std::string all;
        std::array<char, 4096> part{};
        for (off_t at = 0;;) {
            const ssize_t count = ::pread(file_, part.data(), part.size(), at);
            if (count <= 0) {
                return all;
            }
            all.append(part.data(), static_cast<std::size_t>(count));
            at += count;
        }
    }

private:
    int file_;
};

/// One conversion, as a process.
class Job
{
public:
    Job(fs::path in, fs::path out) : input(std::move(in)), output(std::move(out)) {}

    void start(const std::vector<std::string>& arguments);
    /// Returns true once it has ended.
    bool hasEnded();
    void stop() const { ::kill(process_, SIGTERM); }

    const fs::path input;
    const fs::path output;
    int exitCode = 0;
    std::string report;   ///< JSON
    std::string messages; ///< a line each

private:
    pid_t process_ = -1;
    std::unique_ptr<CaughtOutput> out_;
    std::unique_ptr<CaughtOutput> err_;
};

void Job::start(const std::vector<std::string>& arguments)
{
    out_ = std::make_unique<CaughtOutput>();
    err_ = std::make_unique<CaughtOutput>();
    std::vector<std::string> words{"qxhost", "convert", "--json", "--no-progress"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    words.insert(words.end(), {"--", input.string(), output.string()});
    std::vector<char*> command;
    for (std::string& word : words) {
        command.push_back(word.data());
    }
    command.push_back(nullptr);
    const pid_t parent = ::getpid();
    process_ = ::fork();
    if (process_ < 0) {
        throw Failure(ExitCode::failed, "cannot start a conversion: " + Host::systemProblem(errno));
    }
    if (process_ == 0) {
        constexpr int notStarted = 127;
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (::getppid() != parent || ::dup2(out_->file(), 1) < 0 || ::dup2(err_->file(), 2) < 0) {
            ::_exit(notStarted);
        }
        ::execv("/proc/self/exe", command.data());
        ::_exit(notStarted);
    }
}

bool Job::hasEnded()
{
    int status = 0;
    if (::waitpid(process_, &status, WNOHANG) != process_) {
        return false;
    }
    exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : static_cast<int>(ExitCode::failed);
    messages = err_->text();
    if (!WIFEXITED(status)) {
        messages += fmt::format("qxhost: {}: its conversion was ended by signal {}\n", input.string(),
                                WTERMSIG(status));
    }
    report = out_->text();
    out_.reset();
    err_.reset();
    return true;
}

using Jobs = std::vector<std::unique_ptr<Job>>;

fs::path realPath(const fs::path& file)
{
    std::error_code error;
    const fs::path real = fs::weakly_canonical(file, error);
    return error ? fs::absolute(file, error).lexically_normal() : real;
}

/// What is wrong with the outputs as a whole is refused before anything is converted.
Jobs makeJobs(const ManyConversions& many)
{
    Jobs jobs;
    std::map<fs::path, fs::path> inputs;
    for (const fs::path& input : many.inputs) {
        inputs.emplace(realPath(input), input);
    }
    std::map<fs::path, const Job*> outputs;
    for (const fs::path& input : many.inputs) {
        jobs.push_back(std::make_unique<Job>(input, outputFor(input, many.to)));
        const Job& job = *jobs.back();
        const fs::path real = realPath(job.output);
        if (const auto [other, isNew] = outputs.emplace(real, &job); !isNew) {
            throw Failure(ExitCode::usage,
                          fmt::format("--to {}: {} and {} would both be written to {}; add {{name}} "
                                      "or {{folder}} to it, or convert them one by one",
                                      many.to, other->second->input.string(), input.string(),
                                      job.output.string()));
        }
        if (const auto same = inputs.find(real); same != inputs.end()) {
            throw Failure(ExitCode::output,
                          fmt::format("--to {}: {} would be written to {}, which is an input; "
                                      "choose another name",
                                      many.to, input.string(), same->second.string()));
        }
        const fs::path folder = job.output.parent_path();
        if (std::error_code error; !folder.empty() && !fs::is_directory(folder, error)) {
            throw Failure(ExitCode::output, fmt::format("--to {}: {} is no directory; make it first", many.to,
                                                        folder.string()));
        }
    }
    return jobs;
}

/// Shows how many are done, and those that run.
class Overview
{
public:
    Overview(Console& console, std::size_t total) : console_(console), total_(total) {}
    ~Overview() { console_.endStatus(false); }
    Overview(const Overview&) = delete;
    Overview& operator=(const Overview&) = delete;

    void show(std::size_t done, const std::vector<Job*>& running)
    {
        if (!console_.interactive() || console_.quiet()) {
            return;
        }
        std::string names;
        for (const Job* job : running) {
            names += (names.empty() ? ": " : ", ") + job->input.filename().string();
        }
        std::string line = fmt::format("{} of {} files{}", done, total_, names);
        if (const std::size_t columns = console_.columns(); line.size() >= columns) {
            line.resize(columns > 0 ? columns - 1 : 0);
        }
        if (line != shown_) {
            shown_ = line;
            console_.status(line);
        }
    }

private:
    Console& console_;
    std::size_t total_;
    std::string shown_;
};

/// A conversion's own lines, which begin with the program's name.
void repeat(const Job& job, Console& console)
{
    constexpr std::string_view name = "qxhost: ";
    std::string_view rest = job.messages;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        std::string_view line = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        line.remove_prefix(line.starts_with(name) ? name.size() : 0);
        if (!line.empty()) {
            console.error(line);
        }
    }
}

Json describe(const Job& job)
{
    Json described;
    described["input"] = job.input.string();
    described["output"] = job.output.string();
    described["exitCode"] = job.exitCode;
    Json report = Json::parse(job.report, nullptr, false);
    described["report"] = report.is_discarded() ? Json() : std::move(report);
    return described;
}

/// Runs them, as many at a time as are wanted, and returns when none runs any more.
void runAll(const ManyConversions& many, Jobs& jobs, const std::atomic<bool>& stopped, Console& console)
{
    Overview overview(console, jobs.size());
    std::vector<Job*> running;
    std::size_t next = 0;
    std::size_t done = 0;
    bool isStopping = false;
    constexpr std::chrono::milliseconds between{20};
    while (!running.empty() || (next < jobs.size() && !stopped)) {
        while (!stopped && next < jobs.size() && static_cast<std::int64_t>(running.size()) < many.jobs) {
            Job& job = *jobs[next++];
            try {
                job.start(many.arguments);
                running.push_back(&job);
            } catch (const Failure& failure) {
                ++done;
                job.exitCode = static_cast<int>(failure.code());
                console.error(job.input.string() + ": " + failure.what());
            }
        }
        if (stopped && !std::exchange(isStopping, true)) {
            for (const Job* job : running) {
                job->stop();
            }
        }
        std::erase_if(running, [&](Job* job) {
            if (!job->hasEnded()) {
                return false;
            }
            ++done;
            repeat(*job, console);
            return true;
        });
        overview.show(done, running);
        std::this_thread::sleep_for(between);
    }
    for (; next < jobs.size(); ++next) {
        jobs[next]->exitCode = static_cast<int>(ExitCode::interrupted);
    }
}

ExitCode verdict(const Jobs& jobs)
{
    std::optional<int> code;
    for (const auto& job : jobs) {
        if (job->exitCode != 0) {
            code = code.value_or(job->exitCode) == job->exitCode ? job->exitCode
                                                                 : static_cast<int>(ExitCode::failed);
        }
    }
    return static_cast<ExitCode>(code.value_or(0));
}

} // namespace

fs::path outputFor(const fs::path& input, const std::string& to)
{
    std::string name;
    for (std::size_t i = 0; i < to.size(); ++i) {
        const bool isDoubled = i + 1 < to.size() && to[i + 1] == to[i];
        if ((to[i] == '{' || to[i] == '}') && isDoubled) {
            name += to[i++];
            continue;
        }
        if (to[i] != '{') {
            name += to[i];
            continue;
        }
        const std::size_t end = to.find('}', i);
        const std::string field = to.substr(i, end == std::string::npos ? end : end - i + 1);
        if (field == "{name}") {
            name += input.stem().native();
        } else if (field == "{folder}") {
            name += input.parent_path().empty() ? "." : input.parent_path().native();
        } else {
            throw Failure(ExitCode::usage, "--to " + to + ": there is no field " + field + fieldsOfTo);
        }
        i = end;
    }
    return name;
}

ExitCode convertMany(const ManyConversions& many, Console& console)
{
    console.setQuiet(many.quiet);
    Jobs jobs = makeJobs(many);
    std::atomic<bool> stopped{false};
    {
        const Interruption interruption([&] { stopped = true; });
        runAll(many, jobs, stopped, console);
    }
    std::vector<std::string> failed;
    for (const auto& job : jobs) {
        if (job->exitCode != 0) {
            failed.push_back(fmt::format("{} (exit code {})", job->input.string(), job->exitCode));
        }
    }
    const std::size_t done = jobs.size() - failed.size();
    console.note(fmt::format("{} of {} files are converted", done, jobs.size()));
    for (const std::string& each : failed) {
        console.error(fmt::format("failed: {}", each));
    }
    const ExitCode code = stopped ? ExitCode::interrupted : verdict(jobs);
    if (many.json) {
        Json all;
        all["converted"] = done;
        all["failed"] = failed.size();
        all["exitCode"] = static_cast<int>(code);
        all["results"] = Json::array();
        for (const auto& job : jobs) {
            all["results"].push_back(describe(*job));
        }
        console.data(jsonText(all));
    }
    return code;
}

} // namespace Qx::Program
