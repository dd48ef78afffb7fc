#include "tools/qxhost/commands/convert/ManyConversions.h"

#include "tools/qxhost/console/ChildProgram.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Interruption.h"
#include "tools/qxhost/console/Json.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

namespace Qx::Program {

namespace {

namespace fs = std::filesystem;

constexpr const char* fieldsOfTo = "; the fields are {name} and {folder}, and {{ stands for a brace";

/// One conversion, as a process.
class Job
{
public:
    Job(fs::path in, fs::path out) : input(std::move(in)), output(std::move(out)) {}

    void start(const std::vector<std::string>& arguments)
    {
        std::vector<std::string> words{"convert", "--json", "--no-progress"};
        words.insert(words.end(), arguments.begin(), arguments.end());
        words.insert(words.end(), {"--", input.string(), output.string()});
        process_ = ChildProgram::ownProgram(words, "a conversion");
    }
    /// Returns true once it has ended.
    bool hasEnded()
    {
        if (!process_.hasEnded()) {
            return false;
        }
        exitCode = process_.exitCode();
        messages = process_.errors();
        if (process_.signal() != 0) {
            messages += fmt::format("qxhost: {}: its conversion was ended by signal {}\n", input.string(),
                                    process_.signal());
        }
        report = process_.output();
        return true;
    }
    void stop() const { process_.stop(); }

    const fs::path input;
    const fs::path output;
    int exitCode = 0;
    std::string report;   ///< JSON
    std::string messages; ///< a line each

private:
    ChildProgram process_;
};

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
            repeatLines(job->messages, console);
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
