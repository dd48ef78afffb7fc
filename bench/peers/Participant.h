#pragma once

#include "bench/peers/Works.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// What a program that takes part in the comparison says and answers, so that bench/compare can have several
/// do the same work in turn. Each is a process of its own: one that is missing or dies costs its own rows.
///
/// It speaks lines whose fields a tab separates. First it says
///
///     identity  NAME  DEVICE  DESCRIPTION
///     offer     WORK  METHOD  REMARK      any number of times; a remark says why it is not the same work
///     open
///
/// and then it answers until its input ends
///
///     prepare  WORK  METHOD       ready | refused  WHY
///     run      SECONDS            ran  AMOUNT  SECONDS  NOTE | refused  WHY
///     result   FILE               written | refused  WHY
namespace Qx::Bench {

/// An amount of work and its time in seconds. The note is for people.
struct Measurement
{
    double amount = 0;
    double seconds = 0;
    std::string note;
};

/// The number of targets that frames on the device are drawn into in turn: a driver may omit a draw that the
/// next one into the same target covers.
inline constexpr std::size_t targetsInTurn = 3;

/// Work that is set up. The set-up may be slow and is not measured.
class Job
{
public:
    Job() = default;
    virtual ~Job() = default;
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    /// Processes some frames, or starts to. Returns their number, 0 on failure.
    virtual int frames() = 0;

    /// Blocks until everything that frames() started has finished. Returns false if some of it failed.
    virtual bool settle() { return true; }

    /// Runs until nothing that is made meanwhile, as pipelines, tables and pages are, is still to come.
    /// Returns false on failure.
    virtual bool warmUp() { return frames() > 0 && settle(); }

    /// Returns the result for the test frame; empty for work without one.
    virtual std::vector<std::byte> result() { return {}; }

    /// Counts frames() for at least that long, until all have finished. Overridden by work that is not
    /// measured in frames per second.
    virtual Measurement run(double seconds);
};

struct Offer
{
    std::string work; ///< a key of Works.h, or another name that both sides know
    std::string method;
    std::string remark; ///< empty if it is the same work
    std::function<std::unique_ptr<Job>()> prepare;
};

struct Participant
{
    std::string name;        ///< with its version
    std::string device;      ///< name of its device; "processor" for the CPU
    std::string description; ///< of the device and its driver, for people
    std::vector<Offer> offers;
};

/// Serves requests until standard input ends. Returns 0. Text that libraries print to standard output goes to
/// standard error.
int serve(const Participant& participant);

/// Returns the name of the device to compare on, from the environment, or an empty string.
std::string wantedDevice();
inline constexpr const char* deviceVariable = "QX_COMPARE_DEVICE";
/// Returns the file of the LUT, from the environment, or an empty string.
inline constexpr const char* lookVariable = "QX_COMPARE_LOOK";

} // namespace Qx::Bench
