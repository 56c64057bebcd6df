#include "trovik/imagetool/Check.h"
#include "trovik/imagetool/ImageLibrary.h"
#include "trovik/imagetool/Limits.h"
#include "trovik/imagetool/Sheet.h"

// The entry of libTrovikImages; all else in it is hidden.

extern "C" [[gnu::visibility("default")]] const trovik::image::ImageLibraryCalls trovikImageLibrary;

const trovik::image::ImageLibraryCalls trovikImageLibrary = {trovik::image::limitLibrary,
                                                             trovik::image::check, trovik::image::drawSheet};
