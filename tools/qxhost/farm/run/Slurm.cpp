#include "tools/qxhost/farm/run/Slurm.h"

#include "host/files/SystemError.h"
#include "tools/qxhost/console/ChildProgram.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/farm/job/Contents.h"
#include "tools/qxhost/farm/pieces/Pieces.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <fmt/format.h>
#include <fstream>
#include <sstream>
#include <utility>

namespace Qx::Program::Farm {

namespace {

namespace fs = std::filesystem;

fs::path submissionFile(const Job& job)
{
    return job.folder / "slurm.json";
}

std::string trimmed(std::string text)
{
    const auto isBlank = [](unsigned char each) { return std::isspace(each) != 0; };
    text.erase(std::find_if_not(text.rbegin(), text.rend(), isBlank).base(), text.end());
    text.erase(text.begin(), std::find_if_not(text.begin(), text.end(), isBlank));
    return text;
}

/// Runs a program of Slurm and returns what it prints. Throws Failure (failed).
std::string ask(const std::string& program, const std::vector<std::string>& arguments)
{
    ChildProgram child = ChildProgram::named(program, arguments);
    child.wait();
    if (child.exitCode() == ChildProgram::notStarted) {
        throw Failure(ExitCode::failed,
                      program +
                          ": cannot be run; install Slurm's programs (Debian: slurm-client), or run the "
                          "pieces with 'qxhost farm run-piece'");
    }
    if (child.exitCode() != 0) {
        throw Failure(ExitCode::failed, program + " failed (exit code " + std::to_string(child.exitCode()) +
                                            "): " + trimmed(child.errors()));
    }
    return trimmed(child.output());
}

/// A word of the shell.
std::string quotedForShell(const std::string& text)
{
    std::string quoted = "'";
    for (const char each : text) {
        quoted += each == '\'' ? std::string("'\\''") : std::string(1, each);
    }
    return quoted + "'";
}

fs::path ownProgram()
{
    std::error_code error;
    const fs::path path = fs::read_symlink("/proc/self/exe", error);
    if (error) {
        throw Failure(ExitCode::failed, "cannot tell where qxhost is: " + error.message());
    }
    return path;
}

/// Slurm copies a script when it is submitted, so that the folder holds it for people alone. What is killed,
/// for want of memory say, is tried again.
fs::path writeScript(const Job& job, const std::string& name, const std::string& command)
{
    const fs::path file = job.folder / name;
    writeWhole(file, "#!/bin/sh\n"
                     "# Written by 'qxhost farm submit'.\n"
                     "for attempt in 1 2 3; do\n"
                     "    " +
                         quotedForShell(ownProgram().native()) + " farm " + command +
                         "\n"
                         "    code=$?\n"
                         "    [ $code -eq 137 ] || break\n"
                         "    echo \"killed, attempt $attempt of 3\" >&2\n"
                         "done\n"
                         "exit $code\n");
    return file;
}

/// Slurm reads "%" in names of files as a field, and "\" as an end of fields.
std::string logName(const Job& job, const std::string& name)
{
    const std::string folder = job.logFolder().native();
    if (folder.find_first_of("%\\") != std::string::npos) {
        throw Failure(ExitCode::usage, folder +
                                           ": Slurm cannot write logs to a folder with % or \\ in its name; "
                                           "move the job");
    }
    return "--output=" + folder + "/" + name;
}

void addOption(std::vector<std::string>& words, const std::string& option, const std::string& value)
{
    if (!value.empty()) {
        words.push_back("--" + option + "=" + value);
    }
}

std::string numberIn(const std::string& output)
{
    const std::string number = output.substr(0, output.find(';')); // ";CLUSTER" may follow
    if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos) {
        throw Failure(ExitCode::failed, "sbatch: printed \"" + output + "\" instead of a job's number");
    }
    return number;
}

/// The words of a request, by their names in slurm.json.
template <class Request>
auto wordsOf(Request& request)
{
    using Word = decltype(&request.partition);
    return std::array<std::pair<const char*, Word>, 8>{{{"partition", &request.partition},
                                                        {"gres", &request.gres},
                                                        {"cpus", &request.cpus},
                                                        {"memory", &request.memory},
                                                        {"time", &request.time},
                                                        {"account", &request.account},
                                                        {"joinPartition", &request.joinPartition},
                                                        {"joinTime", &request.joinTime}}};
}

Json describe(const SlurmRequest& request)
{
    Json json;
    for (const auto& [name, value] : wordsOf(request)) {
        json[name] = *value;
    }
    return json;
}

/// Throws Failure (input).
Json readSubmission(const Job& job)
{
    std::ifstream stream(submissionFile(job), std::ios::binary);
    Json json = Json::parse(stream, nullptr, false);
    const auto isNumber = [&](const char* key) {
        return json.contains(key) && json[key].is_string() && !json[key].get<std::string>().empty() &&
               json[key].get<std::string>().find_first_not_of("0123456789") == std::string::npos;
    };
    if (!json.is_object() || !isNumber("pieces") || !isNumber("join")) {
        throw Failure(ExitCode::input,
                      submissionFile(job).string() +
                          ": there is no submission to Slurm; 'qxhost farm submit JOB --slurm' "
                          "makes one");
    }
    return json;
}

std::string join(const Job& job, const SlurmRequest& request, const std::string& pieces)
{
    std::vector<std::string> words{"--parsable",
                                   "--requeue",
                                   "--open-mode=append",
                                   "--job-name=qxhost-join",
                                   "--chdir=" + job.folder.native(),
                                   logName(job, "join.log")};
    if (!pieces.empty()) {
        words.insert(words.end(), {"--dependency=afterok:" + pieces, "--kill-on-invalid-dep=yes"});
    }
    addOption(words, "partition", request.joinPartition.empty() ? request.partition : request.joinPartition);
    addOption(words, "account", request.account);
    addOption(words, "time", request.joinTime);
    words.push_back(writeScript(job, "join.sh", "join " + quotedForShell(job.manifest().native())).native());
    return numberIn(ask("sbatch", words));
}

std::string submitPieces(const Job& job, const SlurmRequest& request, const std::vector<std::size_t>& missing)
{
    std::vector<std::string> words{"--parsable",
                                   "--requeue",
                                   "--open-mode=append",
                                   "--job-name=qxhost-piece",
                                   "--array=" + numbersText(missing),
                                   "--chdir=" + job.folder.native(),
                                   logName(job, "piece-%a.log")};
    addOption(words, "partition", request.partition);
    addOption(words, "account", request.account);
    addOption(words, "gres", request.gres);
    addOption(words, "cpus-per-task", request.cpus);
    addOption(words, "mem", request.memory);
    addOption(words, "time", request.time);
    words.push_back(
        writeScript(job, "piece.sh",
                    "run-piece " + quotedForShell(job.manifest().native()) + " \"$SLURM_ARRAY_TASK_ID\"")
            .native());
    return numberIn(ask("sbatch", words));
}

} // namespace

std::optional<SlurmNumbers> submitted(const Job& job)
{
    try {
        const Json json = readSubmission(job);
        return SlurmNumbers{json["pieces"].get<std::string>(), json["join"].get<std::string>()};
    } catch (const Failure&) {
        return std::nullopt;
    }
}

SlurmNumbers submitToSlurm(const Job& job, const SlurmRequest& request)
{
    if (submitted(job)) {
        if (const auto queued = queueOf(job); !queued.empty()) {
            throw Failure(
                ExitCode::failed,
                fmt::format("{}: {} of it is still queued or running; wait for it, or end it with 'qxhost "
                            "farm cancel'",
                            job.manifest().string(),
                            queued.front().piece ? fmt::format("piece {}", *queued.front().piece)
                                                 : "the join"));
        }
    }
    checkContents(job, Reading::whatChanged);
    const std::vector<std::size_t> missing = piecesToMake(job);
    SlurmNumbers numbers;
    numbers.pieces = missing.empty() ? "" : submitPieces(job, request, missing);
    try {
        numbers.join = join(job, request, numbers.pieces);
    } catch (const Failure&) {
        if (!numbers.pieces.empty()) {
            ChildProgram::named("scancel", {numbers.pieces}).wait();
        }
        throw;
    }
    numbers.pieces = numbers.pieces.empty() ? numbers.join : numbers.pieces;
    writeWhole(
        submissionFile(job),
        jsonText({{"pieces", numbers.pieces}, {"join", numbers.join}, {"request", describe(request)}}));
    return numbers;
}

SlurmNumbers resubmitToSlurm(const Job& job)
{
    const Json json = readSubmission(job);
    const Json last = json.value("request", Json::object());
    SlurmRequest request;
    for (const auto& [name, value] : wordsOf(request)) {
        const auto found = last.find(name);
        if (found != last.end() && found->is_string()) {
            *value = found->get<std::string>();
        }
    }
    return submitToSlurm(job, request);
}

std::vector<Queued> queueOf(const Job& job)
{
    const Json json = readSubmission(job);
    const auto pieces = json["pieces"].get<std::string>();
    const auto joined = json["join"].get<std::string>();
    // Without numbers, since Slurm complains of those that it has forgotten.
    std::istringstream lines(ask("squeue", {"--noheader", "--array", "--me", "--format=%F %K %i %T %r"}));
    std::vector<Queued> queued;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string array;
        std::string task;
        std::string number;
        Queued each;
        words >> array >> task >> number >> each.state;
        std::getline(words >> std::ws, each.reason);
        each.reason = each.state != "PENDING" || each.reason == "None" ? "" : trimmed(each.reason);
        if (number == joined) {
            queued.push_back(each);
        } else if (array == pieces) {
            each.piece = std::strtoul(task.c_str(), nullptr, 10);
            queued.push_back(each);
        }
    }
    return queued;
}

void cancelInSlurm(const Job& job)
{
    const Json json = readSubmission(job);
    ask("scancel", {"--quiet", json["join"].get<std::string>(), json["pieces"].get<std::string>()});
}

} // namespace Qx::Program::Farm
