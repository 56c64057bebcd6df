#pragma once

#include "host/application/FrameRange.h"
#include "host/foundation/String.h"

#include <vector>

/// Adds a frame behind all that are there, to the last run where that goes on.
void AppendFrame(std::vector<FrameRun>& runs, int frame);

/// "frame 7", "frames 7-9,12"; of many runs only the first, and how many frames
/// more.
String FramesText(const std::vector<FrameRun>& runs);
