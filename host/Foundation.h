#pragma once

// The foundation library: texts, paths, files, streams and processes. It knows
// nothing of jobs.

#include "host/foundation/Bytes.h"
#include "host/foundation/Exception.h"
#include "host/foundation/FileFinder.h"
#include "host/foundation/Format.h"
#include "host/foundation/IniFile.h"
#include "host/foundation/LineSplitter.h"
#include "host/foundation/Log.h"
#include "host/foundation/Path.h"
#include "host/foundation/Process.h"
#include "host/foundation/Quoting.h"
#include "host/foundation/Stream.h"
#include "host/foundation/String.h"
#include "host/foundation/StringTokenizer.h"
#include "host/foundation/Suggest.h"
#include "host/foundation/TextFilter.h"
#include "host/foundation/UID.h"
