#pragma once

#include "trovik/cluster/ClusterClient.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace trovik {

// The answers of Slurm's programs as values. Each function takes all that one
// of them printed, its output and its errors mixed.

/// The tasks that squeue named. Nothing when a line is none that squeue
/// writes, with the line in `problem`: a task must not seem to have vanished.
std::optional<std::vector<ClusterTask>> readTasks(std::string_view output, std::string& problem);

/// What became of a submission, by how sbatch ended.
void readSubmission(std::string_view output, const ProcessExit& exit, ClusterAnswer& answer);

/// Takes the limits from what "scontrol show config" printed.
void readConfiguration(std::string_view output, ClusterSite& site);

/// The smallest share of a CPU in the memory of a node, in mebibytes, of lines
/// "CPUS MEMORY"; 0 when no line tells.
std::int64_t readMemoryPerCpu(std::string_view output);

/// What a program complained of, on one line of bounded length.
std::string slurmProblem(std::string_view output);

} // namespace trovik
