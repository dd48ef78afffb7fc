#include "tools/qxhost/farm/run/Workers.h"

#include "tools/qxhost/console/ChildProgram.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/console/ProgressDisplay.h"
#include "tools/qxhost/farm/job/Contents.h"
#include "tools/qxhost/farm/pieces/Pieces.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fmt/format.h>
#include <fstream>
#include <map>
#include <memory>
#include <thread>
#include <vector>

namespace Qx::Program::Farm {

namespace {

/// Of the machine, or of the control group that this process runs in; empty if that is not known.
std::optional<std::int64_t> freeMemory()
{
    std::ifstream stream("/proc/meminfo");
    std::string word;
    std::optional<std::int64_t> bytes;
    while (!bytes && stream >> word) {
        std::int64_t kib = 0;
        if (word == "MemAvailable:" && stream >> kib) {
            bytes = kib * 1024;
        }
    }
    std::int64_t limit = 0;
    if (std::ifstream group("/sys/fs/cgroup/memory.max"); bytes && group >> limit && limit > 0) {
        bytes = std::min(*bytes, limit);
    }
    return bytes;
}

/// What a conversion takes at most, roughly: its frames in flight between five stages, and the device's own.
std::int64_t memoryOfWorker(const Job& job)
{
    constexpr std::int64_t base = std::int64_t{512} << 20U;
    constexpr std::int64_t frames = 40;
    return base + frames * job.frameBytes;
}

/// The devices that share the work; one, or none, if there is no choice. They are asked for in a process of
/// their own, since a host is started once in each.
std::vector<std::string> devicesFor(const std::string& wanted)
{
    if (!wanted.empty()) {
        return {wanted};
    }
    ChildProgram lister = ChildProgram::ownProgram({"devices", "--json"}, "the list of devices");
    lister.wait();
    const Json listed = Json::parse(lister.output(), nullptr, false);
    std::vector<std::string> devices;
    for (const Json& device : listed.is_array() ? listed : Json::array()) {
        if (!device.value("software", true) && device.value("usable", false)) {
            devices.push_back(std::to_string(device.value("number", 0)));
        }
    }
    return devices.size() > 1 ? devices : std::vector<std::string>{""};
}

std::int64_t workersFor(const Job& job, const WorkerOptions& options, std::size_t devices, std::size_t pieces,
                        Console& console)
{
    constexpr std::int64_t usual = 2; // one prepares while the other draws
    const auto processors = static_cast<std::int64_t>(std::max(std::thread::hardware_concurrency(), 1U));
    std::int64_t workers =
        options.jobs.value_or(std::min(std::max(usual, static_cast<std::int64_t>(devices)), processors));
    if (const auto memory = freeMemory()) {
        const std::int64_t fitting = std::max<std::int64_t>(*memory / memoryOfWorker(job), 1);
        if (options.jobs && fitting < workers) {
            console.note(
                fmt::format("{} pieces at a time, since memory does not allow {}", fitting, workers));
        }
        workers = std::min(workers, fitting);
    }
    return std::min(workers, static_cast<std::int64_t>(pieces));
}

/// A process that makes pieces, one after the other.
struct Worker
{
    std::optional<std::size_t> piece; ///< that it makes now
    std::size_t place;                ///< among the devices
    ChildProgram process;
    std::size_t answersRead = 0; ///< bytes of its output
    std::size_t errorsRead = 0;  ///< bytes of its messages
};

class Crew
{
public:
    Crew(const Job& job, std::vector<std::size_t> pieces, const WorkerOptions& options, Console& console)
        : job_(job), options_(options), console_(console), waiting_(std::move(pieces))
    {
        std::reverse(waiting_.begin(), waiting_.end());
        for (const PlannedPiece& piece : job.pieces) {
            total_ += piece.frames;
        }
        done_ = total_;
        for (const std::size_t piece : waiting_) {
            done_ -= job.pieces[piece].frames;
        }
        devices_ = devicesFor(options.device);
        mostWorkers_ = workersFor(job, options, devices_.size(), waiting_.size(), console);
    }

    void run(const std::atomic<bool>& stopped)
    {
        constexpr std::chrono::milliseconds between{20};
        ProgressDisplay progress(console_, total_);
        while (!workers_.empty() || (!waiting_.empty() && !stopped)) {
            while (!stopped && !waiting_.empty() &&
                   static_cast<std::int64_t>(workers_.size()) < mostWorkers_) {
                start();
            }
            if (stopped && !std::exchange(isStopping_, true)) {
                for (const auto& worker : workers_) {
                    worker->process.stop();
                }
            }
            std::erase_if(workers_, [&](const auto& worker) { return hasEnded(*worker); });
            progress.update(done_);
            std::this_thread::sleep_for(between);
        }
    }

    const std::map<std::size_t, int>& failed() const { return failed_; }

private:
    void start()
    {
        std::size_t place = 0;
        const auto load = [&](std::size_t which) {
            return std::count_if(workers_.begin(), workers_.end(),
                                 [&](const auto& worker) { return worker->place == which; });
        };
        for (std::size_t i = 1; i < devices_.size(); ++i) {
            place = load(i) < load(place) ? i : place;
        }
        std::vector<std::string> words{"farm", "run-piece", "--quiet"};
        if (!devices_[place].empty()) {
            words.push_back("--device=" + devices_[place]);
        }
        words.insert(words.end(), {"--", job_.manifest().native(), "-"});
        workers_.push_back(std::make_unique<Worker>(
            Worker{{}, place, ChildProgram::ownProgramThatListens(words, "a worker")}));
        giveNext(*workers_.back());
    }

    void giveNext(Worker& worker)
    {
        if (waiting_.empty()) {
            worker.process.endInput();
            return;
        }
        worker.piece = waiting_.back();
        waiting_.pop_back();
        worker.process.tell(std::to_string(*worker.piece));
    }

    bool hasEnded(Worker& worker)
    {
        const bool ended = worker.process.hasEnded();
        const bool answered = takeAnswer(worker);
        if (ended && worker.piece) {
            takeEnd(*worker.piece, worker.process);
        } else if (answered && !ended && !isStopping_) {
            giveNext(worker);
        }
        return ended;
    }

    /// Returns whether the worker has made its piece, or failed to.
    bool takeAnswer(Worker& worker)
    {
        const std::string output = worker.process.outputSoFar();
        const std::size_t end = output.find('\n', worker.answersRead);
        const bool answered = worker.piece && end != std::string::npos;
        if (answered || !worker.process.isRunning()) {
            const std::string errors = worker.process.errorsSoFar();
            repeatLines(errors.substr(worker.errorsRead), console_);
            worker.errorsRead = errors.size();
        }
        if (answered) {
            const std::string answer = output.substr(worker.answersRead, end - worker.answersRead);
            worker.answersRead = end + 1;
            keepResult(*worker.piece, std::atoi(answer.substr(answer.find(' ') + 1).c_str()));
            worker.piece.reset();
        }
        return answered;
    }

    /// A worker has ended while it made a piece.
    void takeEnd(std::size_t piece, const ChildProgram& process)
    {
        // Out of memory, say: it may have been the fault of others.
        constexpr int attempts = 3;
        const int signal = process.signal();
        if (isStopping_) {
            return;
        }
        if (signal == SIGKILL && ++killed_[piece] < attempts) {
            console_.note(fmt::format("piece {} was killed; it is made again", piece));
            waiting_.insert(waiting_.begin(), piece);
        } else if (signal != 0) {
            console_.error(fmt::format("piece {} was ended by signal {}", piece, signal));
            keepResult(piece, static_cast<int>(ExitCode::failed));
        } else {
            keepResult(piece,
                       process.exitCode() != 0 ? process.exitCode() : static_cast<int>(ExitCode::failed));
        }
    }

    void keepResult(std::size_t piece, int exitCode)
    {
        if (exitCode == 0) {
            done_ += job_.pieces[piece].frames;
        } else {
            failed_[piece] = exitCode;
        }
    }

    const Job& job_;
    const WorkerOptions& options_;
    Console& console_;
    std::vector<std::size_t> waiting_; ///< the next one last
    std::vector<std::unique_ptr<Worker>> workers_;
    std::vector<std::string> devices_;
    std::map<std::size_t, int> failed_; ///< with their exit codes
    std::map<std::size_t, int> killed_;
    std::int64_t mostWorkers_ = 1;
    bool isStopping_ = false;
    std::int64_t total_ = 0; ///< frames
    std::int64_t done_ = 0;
};

ExitCode verdict(const std::map<std::size_t, int>& failed)
{
    const int first = failed.begin()->second;
    const bool isSame =
        std::all_of(failed.begin(), failed.end(), [&](const auto& each) { return each.second == first; });
    return isSame ? static_cast<ExitCode>(first) : ExitCode::failed;
}

} // namespace

ExitCode makePieces(const Job& job, const WorkerOptions& options, const std::atomic<bool>& stopped,
                    Console& console)
{
    console.setQuiet(options.quiet);
    checkContents(job, Reading::whatChanged, &stopped);
    std::vector<std::size_t> pieces = piecesToMake(job);
    if (pieces.empty()) {
        return ExitCode::ok;
    }
    Crew crew(job, std::move(pieces), options, console);
    crew.run(stopped);
    if (stopped) {
        throw Failure(
            ExitCode::interrupted,
            fmt::format("interrupted; {} of {} pieces are done, 'qxhost farm resume' makes the others",
                        job.pieces.size() - missingPieces(job).size(), job.pieces.size()));
    }
    std::vector<std::size_t> numbers;
    for (const auto& [piece, code] : crew.failed()) {
        numbers.push_back(piece);
        console.error(fmt::format("failed: piece {} (exit code {})", piece, code));
    }
    return numbers.empty() ? ExitCode::ok : verdict(crew.failed());
}

} // namespace Qx::Program::Farm
