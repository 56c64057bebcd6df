#pragma once

#include "trovik/machine/Locations.h"

#include <chrono>
#include <optional>
#include <string>

namespace trovik {

/// What an installation says of its cluster: the section "Slurm" of the
/// settings, and what the user says instead.
///
///   [Slurm]
///   Default=Yes            jobs go there when neither job nor type says where
///   Folder=/shared/trovik  a folder that this machine and all nodes see
///   Program=/apps/trovik   trovik on the nodes; the same file as here by default
///   Patience=90            seconds without a sign of life after which a process
///                          counts as dead
struct ClusterSettings {
  bool isDefault = false;
  Path folder;
  Path program;
  std::chrono::seconds patience{90};
};

/// The folder is `shared`, which is what --shared says, else that of
/// $TROVIK_SHARED, of the settings, or "$XDG_DATA_HOME/trovik/cluster": homes
/// are shared nearly everywhere. Throws a UsageError for what cannot be.
ClusterSettings clusterSettings(const Locations& locations, const std::optional<std::string>& shared);

} // namespace trovik
