#include "trovik/imagetool/SheetWriter.h"

#include "host/foundation/WriteFile.h"
#include "trovik/imagetool/Decoder.h"
#include "trovik/text/Text.h"

#include <OpenImageIO/color.h>
#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>
#include <OpenImageIO/strutil.h>

#include <array>
#include <map>
#include <vector>

namespace trovik::image {
namespace {

const std::map<std::string, std::string> formats = {{"png", "png"},     {"jpg", "jpeg"}, {"jpeg", "jpeg"},
                                                    {"exr", "openexr"}, {"tif", "tiff"}, {"tiff", "tiff"}};

std::string cannotWrite(const std::string& file, const std::string& reason) {
  return "cannot write " + inQuotes(file) + ": " + reason;
}

bool writeRows(const SheetPaint& sheet, OIIO::ImageOutput& output, bool light) {
  std::array<float, 256> values{};
  for (std::size_t i = 0; i < values.size(); ++i) {
    values[i] = OIIO::sRGB_to_linear(static_cast<float>(i) / 255.0F);
  }
  const std::size_t count = static_cast<std::size_t>(sheet.width()) * 3;
  std::vector<float> row(light ? count : 0);
  for (int y = 0; y < sheet.height(); ++y) {
    const std::uint8_t* const bytes = sheet.row(y);
    for (std::size_t i = 0; i < row.size(); ++i) {
      row[i] = values[bytes[i]];
    }
    const bool good = light ? output.write_scanline(y, 0, OIIO::TypeDesc::FLOAT, row.data())
                            : output.write_scanline(y, 0, OIIO::TypeDesc::UINT8, bytes);
    if (!good) {
      return false;
    }
  }
  return output.close();
}

} // namespace

std::string whyNotWritable(const std::string& file) {
  return formats.contains(extensionOf(file))
             ? std::string()
             : cannotWrite(file, "its name must end with .png, .jpg, .exr or .tif");
}

std::string writeSheet(const SheetPaint& sheet, const std::string& file) {
  const std::string format = formats.at(extensionOf(file));
  FileDraft draft{Path(file), Existing::Replace};
  if (draft.Error() != 0) {
    return cannotWrite(file, draft.Reason());
  }
  const auto output = OIIO::ImageOutput::create(format);
  if (output == nullptr) {
    return cannotWrite(file, OIIO::geterror());
  }
  const bool light = format == "openexr";
  OIIO::ImageSpec layout(sheet.width(), sheet.height(), 3,
                         light ? OIIO::TypeDesc::HALF : OIIO::TypeDesc::UINT8);
  layout.attribute("oiio:ColorSpace", light ? "Linear" : "sRGB");
  layout.attribute("compression", format == "jpeg" ? "jpeg:92" : "zip");
  if (!output->open(draft.Name().Text(), layout) || !writeRows(sheet, *output, light)) {
    return cannotWrite(file, printable(output->geterror(), OddBytes::Show));
  }
  return draft.Publish() == 0 ? std::string() : cannotWrite(file, draft.Reason());
}

} // namespace trovik::image
