#pragma once

#include <string>
#include <string_view>

namespace trovik::image {

/// What is wrong with how a file is built, where the decoder of its format
/// does not notice: a missing end marker, fewer bytes than the header
/// announces. `format` is OpenImageIO's name of the format ("jpeg"). Empty for
/// a sound file, and for formats whose decoders notice all that can be noticed.
std::string structureProblem(std::string_view format, const std::string& file);

} // namespace trovik::image
