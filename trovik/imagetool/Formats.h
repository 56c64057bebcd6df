#pragma once

#include <string>

namespace trovik::image {

// What the name of a file says about images. No image library is needed for it.

/// In lower case, without the point.
std::string extensionOf(const std::string& file);

/// OpenImageIO's name of the format that an extension stands for ("jpeg" of
/// "jpg"); empty for none, and for formats that are not checked.
std::string formatOf(const std::string& extension);

/// Whether files of other kinds have the extension, too: such a file is an
/// image when it begins like one.
bool isSharedExtension(const std::string& extension);

/// Whether a file's extension says that it is an image. Movies, volumes, the
/// library's pseudo formats and the raw formats of cameras are none: what a
/// movie or a volume holds is no single picture, and nothing renders raw files,
/// while programs of all kinds write files called .raw or .cap.
bool isImageName(const std::string& file);

} // namespace trovik::image
