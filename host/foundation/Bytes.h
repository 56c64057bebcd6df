#pragma once

#include "host/foundation/String.h"

#include <cstdint>

/// "812 bytes", "64 kB", "11.8 GB": a thousand of one is one of the next.
String BytesText(std::int64_t bytes);

/// The main memory of this machine in bytes; 0 where the system does not tell.
std::int64_t MachineMemory();
