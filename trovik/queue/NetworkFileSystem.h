#pragma once

#include "host/foundation/Path.h"

#include <string>

namespace trovik {

/// The network file system that a directory lies on, "NFS"; empty for a local
/// one, and for those whose locks work between processes of one machine. The
/// queue cannot live on one of them: locks that are granted twice, or memory
/// that is not shared, would damage it.
std::string networkFileSystem(const Path& directory);

/// The same by what the system tells: statfs's number of the kind, and the
/// kind in the table of mounts ("fuse.sshfs"). A kind of FUSE that is not known
/// for a local disk counts as a network.
std::string networkFileSystem(unsigned long kind, const std::string& mountKind);

} // namespace trovik
