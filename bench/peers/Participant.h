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

/// How much was done in how many seconds. A note is for people.
struct Measurement
{
    double amount = 0;
    double seconds = 0;
    std::string note;
};

/// Frames on the device go into so many targets in turn: a driver may leave out a drawing that the next one
/// into the same target covers.
inline constexpr std::size_t targetsInTurn = 3;

/// Work that is set up: what makes it is slow and not measured.
class Job
{
public:
    Job() = default;
    virtual ~Job() = default;
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    /// Does some frames, or starts with them. How many they were; 0 when it cannot.
    virtual int frames() = 0;

    /// Waits until all that frames() started with is done; false when some of it failed.
    virtual bool settle() { return true; }

    /// The frame that the test frame becomes; empty for work without one.
    virtual std::vector<std::byte> result() { return {}; }

    /// Counts frames() for at least that long, until all are done. Work that is not measured in frames a
    /// second has its own.
    virtual Measurement run(double seconds);
};

struct Offer
{
    std::string work; ///< a key of Works.h, or another name that both sides know
    std::string method;
    std::string remark; ///< empty: it is the same work
    std::function<std::unique_ptr<Job>()> prepare;
};

struct Participant
{
    std::string name;        ///< with its version
    std::string device;      ///< the name of the device it runs on; "processor" when it is the computer's own
    std::string description; ///< of the device and its driver, for people
    std::vector<Offer> offers;
};

/// Speaks until standard input ends; 0. What libraries print to standard output goes to standard error.
int serve(const Participant& participant);

/// The name of the device that the comparison is about, from the environment; empty when nobody said.
std::string wantedDevice();
inline constexpr const char* deviceVariable = "QX_COMPARE_DEVICE";
/// The look's file, likewise.
inline constexpr const char* lookVariable = "QX_COMPARE_LOOK";

} // namespace Qx::Bench
