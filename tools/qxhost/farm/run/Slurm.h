#pragma once

#include "tools/qxhost/console/Console.h"
#include "tools/qxhost/farm/job/Job.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Program::Farm {

/// What Slurm is asked for, in its own words; empty: its defaults.
struct SlurmRequest
{
    std::string partition;
    std::string gres;   ///< for each piece: "gpu:1"
    std::string cpus;   ///< for each piece
    std::string memory; ///< for each piece: "8G"
    std::string time;   ///< for each piece: "02:00:00"
    std::string account;
    std::string joinPartition; ///< empty: that of the pieces
    std::string joinTime;
};

/// What Slurm has of a job.
struct Queued
{
    std::optional<std::size_t> piece; ///< empty: the join
    std::string state;                ///< in Slurm's word: "PENDING"
    std::string reason;               ///< why it waits, in Slurm's words; empty if it does not
};

/// The numbers under which Slurm knows a job.
struct SlurmNumbers
{
    std::string pieces;
    std::string join;
};

/// The last submission; empty if there was none.
std::optional<SlurmNumbers> submitted(const Job& job);

/// Submits the missing pieces as an array job that Slurm starts again after a preemption or a lost node, and
/// a job that joins them once all are done. Throws Failure, also if an earlier submission is still queued.
SlurmNumbers submitToSlurm(const Job& job, const SlurmRequest& request);

/// The same with the request of the last submission.
SlurmNumbers resubmitToSlurm(const Job& job);

/// What is queued or running of the last submission. Throws Failure if Slurm does not answer.
std::vector<Queued> queueOf(const Job& job);

/// Ends what is queued or running. Throws Failure if there was no submission, or Slurm does not answer.
void cancelInSlurm(const Job& job);

} // namespace Qx::Program::Farm
