#pragma once

#include "host/foundation/Descriptor.h"

#include <optional>
#include <string>
#include <vector>

namespace trovik {

/// A socket that listens for browsers.
struct PageSocket {
  Descriptor socket;
  unsigned port = 0;
  std::vector<std::string> hosts; ///< by which browsers may call it, the first for an address to be opened
  bool anyAddress = false;        ///< it listens for all addresses of this machine
  bool onlyHere = true;           ///< only this machine reaches it
};

/// Its own name of itself; empty where it has none.
std::string nameOfMachine();

constexpr unsigned usualPagePort = 7780;

/// Listens at an address that is written in numbers (127.0.0.1 where there is
/// none), at the port, or at the first that is free from the usual one on.
/// Throws a UsageError.
PageSocket listenForPages(const std::optional<std::string>& address, const std::optional<unsigned>& port);

} // namespace trovik
