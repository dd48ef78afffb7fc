#include "tools/qxhost/farm/run/Status.h"

#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/farm/pieces/Joining.h"
#include "tools/qxhost/farm/pieces/Pieces.h"
#include "tools/qxhost/farm/run/Slurm.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <fstream>
#include <map>
#include <set>
#include <vector>

namespace Qx::Program::Farm {

namespace {

namespace fs = std::filesystem;

constexpr const char* done = "done";
constexpr const char* failed = "failed";
constexpr const char* missing = "missing";

/// The line of a piece's log that says why it ended: what Slurm wrote of it last, or else the last one. Empty
/// if there is none.
std::string endOfLog(const fs::path& log)
{
    constexpr std::streamoff longest = 4096;
    std::ifstream stream(log, std::ios::binary | std::ios::ate);
    const std::streamoff size = stream ? static_cast<std::streamoff>(stream.tellg()) : 0;
    stream.seekg(std::max<std::streamoff>(size - longest, 0));
    std::string end;
    bool isSlurms = false; // "slurmstepd: error: ...", or "slurmstepd-NODE: ..."
    for (std::string line; std::getline(stream, line);) {
        const bool isOfSlurm = line.starts_with("slurmstepd");
        if (!line.empty() && (isOfSlurm || !isSlurms)) {
            end = line;
            isSlurms = isOfSlurm;
        }
    }
    return end;
}

fs::path logOf(std::size_t piece)
{
    return fs::path("logs") / fmt::format("piece-{}.log", piece);
}

Json describePiece(const Job& job, std::size_t piece)
{
    Json json{{"piece", piece}, {"first", job.pieces[piece].first}, {"frames", job.pieces[piece].frames}};
    const auto failure = readFailure(job, piece);
    if (seemsDone(job, piece)) {
        json["state"] = done;
    } else if (failure) {
        json["state"] = failed;
        json["exitCode"] = failure->exitCode;
        json["machine"] = failure->machine;
        json["message"] = failure->message;
    } else {
        json["state"] = missing;
        if (const std::string end = endOfLog(job.folder / logOf(piece)); !end.empty()) {
            json["log"] = end;
        }
    }
    return json;
}

/// What the scheduler has of it.
void addQueue(const Job& job, Json& status)
{
    const auto numbers = submitted(job);
    if (!numbers) {
        return;
    }
    status["slurm"] = {{"pieces", numbers->pieces}, {"join", numbers->join}};
    try {
        status["slurm"]["queue"] = Json::array();
        for (const Queued& each : queueOf(job)) {
            status["slurm"]["queue"].push_back({{"what", each.piece ? std::to_string(*each.piece) : "join"},
                                                {"state", each.state},
                                                {"reason", each.reason}});
        }
    } catch (const Failure& failure) {
        status["slurm"]["problem"] = failure.what();
    }
}

/// What is queued or running: numbers of pieces, and "join".
std::set<std::string> queuedIn(const Json& status)
{
    std::set<std::string> queued;
    for (const Json& each : status.value("slurm", Json::object()).value("queue", Json::array())) {
        queued.insert(each["what"].get<std::string>());
    }
    return queued;
}

std::string queueText(const Json& status)
{
    const auto slurm = status.find("slurm");
    if (slurm == status.end()) {
        return {};
    }
    if (slurm->contains("problem")) {
        return "Slurm: " + (*slurm)["problem"].get<std::string>() + "\n";
    }
    std::map<std::string, std::vector<std::string>> byState;
    for (const Json& each : (*slurm)["queue"]) {
        const auto reason = each["reason"].get<std::string>();
        byState[each["state"].get<std::string>() + (reason.empty() ? "" : " (" + reason + ")")].push_back(
            each["what"].get<std::string>());
    }
    std::string text;
    for (const auto& [state, what] : byState) {
        text += fmt::format("Slurm: {}: {}\n", state, fmt::join(what, " "));
    }
    return text.empty() ? "Slurm: nothing is queued\n" : text;
}

} // namespace

Json describeStatus(const Job& job)
{
    Json status{{"job", job.manifest().string()}, {"output", job.output.string()}, {"frames", job.frames}};
    status["joined"] = isJoined(job);
    status["pieces"] = Json::array();
    std::size_t count = 0;
    for (std::size_t i = 0; i < job.pieces.size(); ++i) {
        status["pieces"].push_back(describePiece(job, i));
        count += status["pieces"].back()["state"] == done ? 1U : 0U;
    }
    status["done"] = count;
    addQueue(job, status);
    return status;
}

std::string statusText(const Job& job)
{
    const Json status = describeStatus(job);
    std::string text = fmt::format(
        "{}: {} of {} pieces are done, {}\n", job.manifest().string(), status["done"].get<std::size_t>(),
        job.pieces.size(), status["joined"].get<bool>() ? job.output.string() + " is joined" : "not joined");
    std::vector<std::size_t> absent;
    const std::set<std::string> queued = queuedIn(status);
    for (const Json& piece : status["pieces"]) {
        const auto number = piece["piece"].get<std::size_t>();
        if (piece["state"] == failed) {
            text += fmt::format("failed: piece {} on {} (exit code {}): {}\n", number,
                                piece["machine"].get<std::string>(), piece["exitCode"].get<int>(),
                                piece["message"].get<std::string>());
        } else if (piece["state"] == missing) {
            absent.push_back(number);
            if (piece.contains("log") && !queued.contains(std::to_string(number))) {
                text += fmt::format("not done: piece {}; {} says: {}\n", number, logOf(number).string(),
                                    piece["log"].get<std::string>());
            }
        }
    }
    return text + (absent.empty() ? "" : "not done: " + numbersText(absent) + "\n") + queueText(status);
}

} // namespace Qx::Program::Farm
