#pragma once

#include "trovik/cluster/ClusterClient.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace trovik {

/// Slurm's own programs, found along PATH: sbatch, squeue, scancel, scontrol,
/// sinfo. Linking its library would tie the program to one release of it.
///
/// They are killed after a limit of their own: a query and a question for the
/// site after 15 s, a cancellation after 20 s, a submission after 60 s. What
/// was asked is then not answered; a submission may have been taken all the
/// same. Output beyond 64 MiB is no answer either.
///
/// The batch script is always the same two words on the node, which it takes
/// from its environment: TROVIK_PROGRAM task TROVIK_FOLDER. So no name, folder
/// or parameter is ever read by a shell. The options of a submission come
/// behind its other resources, which they replace, and before what the array
/// job is found by, which they cannot.
///
/// Without an amount of memory (0) none is asked for, nor where the options
/// have one for each CPU or GPU.
///
/// Names of array jobs hold letters, digits, '-', '_' and '.' only.
class SlurmClient final : public ClusterClient {
public:
  /// The machine must outlive the client.
  explicit SlurmClient(Machine& machine);
  ~SlurmClient() override;

  void submit(const ClusterSubmission& submission, Answer answer) override;
  void query(const std::vector<std::string>& names, Answer answer) override;
  void cancel(const std::vector<std::string>& names, Answer answer) override;
  void askSite(const std::string& partition, Answer answer) override;
  bool isBusy() const override;
  void addDescriptors(std::vector<pollfd>& descriptors) const override;
  std::optional<Clock::time_point> deadline() const override;
  void advance(Clock::time_point now) override;

  /// Whether the programs are there. The name of one that is missing, else empty.
  static std::string missingProgram();
  /// What keeps them from finding a cluster: they have no configuration, or none
  /// that they can read. Empty where nothing is known to. Asks no controller
  /// where the configuration is a file, and waits for the answer, for 5 s at most.
  static std::string configurationProblem(Machine& machine);

private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

/// What is taken out of the environment for Slurm's programs, and so for the
/// tasks, which inherit it: what would change their answers or the submission
/// (SBATCH_*, SLURM_*, SQUEUE_*, SCANCEL_*, SCONTROL_*, SINFO_*; but what finds
/// the cluster and proves who asks stays: SLURM_CONF, SLURM_CONF_SERVER,
/// SLURM_CLUSTERS, SLURM_JWT, SLURM_SACK_*), what belongs to the login session
/// or its terminal (DISPLAY, XDG_RUNTIME_DIR, DBUS_*, SSH_*, TERM, PWD, TMPDIR
/// and their like), functions of the shell, and TROVIK_ATTEMPT.
std::vector<std::pair<String, std::optional<String>>> slurmEnvironment();

} // namespace trovik
