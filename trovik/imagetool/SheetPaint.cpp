#include "trovik/imagetool/SheetPaint.h"

#include "host/foundation/WriteFile.h"
#include "trovik/imagetool/Formats.h"
#include "trovik/text/Text.h"

#include <OpenImageIO/color.h>
#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>
#include <OpenImageIO/strutil.h>

#include <algorithm>
#include <array>
#include <cmath>
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

SheetPaint::SheetPaint(int width, int height, Ink ground, Lettering& letters)
    : width_(width), height_(height), letters_(letters),
      bytes_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3) {
  fill({0, 0, width, height}, ground);
}

template <typename Cover> void SheetPaint::blend(const Box& box, Ink ink, Cover cover) {
  const std::array<std::uint8_t, 3> colour = {ink.red, ink.green, ink.blue};
  for (int y = std::max(box.y, 0); y < std::min(box.y + box.height, height_); ++y) {
    for (int x = std::max(box.x, 0); x < std::min(box.x + box.width, width_); ++x) {
      const float part = std::clamp(
          cover(static_cast<float>(x - box.x) + 0.5F, static_cast<float>(y - box.y) + 0.5F), 0.0F, 1.0F);
      std::uint8_t* const pixel = bytes_.data() + offset(x, y);
      for (std::size_t i = 0; i < 3; ++i) {
        const float before = pixel[i];
        pixel[i] =
            static_cast<std::uint8_t>(std::lround(before + (static_cast<float>(colour[i]) - before) * part));
      }
    }
  }
}

void SheetPaint::fill(const Box& box, Ink ink) {
  for (int y = std::max(box.y, 0); y < std::min(box.y + box.height, height_); ++y) {
    for (int x = std::max(box.x, 0); x < std::min(box.x + box.width, width_); ++x) {
      std::uint8_t* const pixel = bytes_.data() + offset(x, y);
      pixel[0] = ink.red;
      pixel[1] = ink.green;
      pixel[2] = ink.blue;
    }
  }
}

void SheetPaint::hatch(const Box& box, Ink ink) {
  const float period = std::max(8.0F, static_cast<float>(box.width) / 16.0F);
  const float thick = period / 5.0F;
  blend(box, ink, [&](float x, float y) {
    const float along = std::fmod(x + y, period);
    // Of lines that slant, a step to the side is longer than the distance.
    return (thick / 2.0F - std::abs(along - period / 2.0F)) * 0.7071F + 0.5F;
  });
}

void SheetPaint::cross(const Box& box, Ink ink) {
  const float width = static_cast<float>(box.width);
  const float height = static_cast<float>(box.height);
  const float length = std::hypot(width, height);
  const float thick = std::max(1.5F, width / 120.0F);
  blend(box, ink, [&](float x, float y) {
    const float falling = std::abs(x * height - y * width) / length;
    const float rising = std::abs(x * height + y * width - width * height) / length;
    return thick / 2.0F - std::min(falling, rising) + 0.5F;
  });
}

void SheetPaint::outline(const Box& box, Ink ink) {
  fill({box.x, box.y, box.width, 1}, ink);
  fill({box.x, box.y + box.height - 1, box.width, 1}, ink);
  fill({box.x, box.y, 1, box.height}, ink);
  fill({box.x + box.width - 1, box.y, 1, box.height}, ink);
}

void SheetPaint::paste(const Pixels& pixels, int x, int y) {
  const int begin = std::max(0, -x);
  const int end = std::min(pixels.width, width_ - x);
  for (int line = std::max(0, -y); line < std::min(pixels.height, height_ - y) && begin < end; ++line) {
    const std::uint8_t* const from =
        pixels.bytes.data() + (static_cast<std::size_t>(line) * static_cast<std::size_t>(pixels.width) +
                               static_cast<std::size_t>(begin)) *
                                  3;
    std::copy(from, from + static_cast<std::ptrdiff_t>(end - begin) * 3,
              bytes_.data() + offset(x + begin, y + line));
  }
}

std::string SheetPaint::fitted(const std::string& text, int width, const Style& style) const {
  std::string cut = text;
  int drawn = textWidth(cut, style);
  while (drawn > width && !cut.empty()) {
    const std::size_t columns = displayWidth(cut);
    const std::size_t wanted =
        columns * static_cast<std::size_t>(std::max(width, 0)) / static_cast<std::size_t>(drawn);
    cut = cutToWidth(text, std::min(wanted, columns - 1));
    drawn = textWidth(cut, style);
  }
  return cut;
}

int SheetPaint::text(const std::string& text, int x, int baseline, int width, const Style& style) {
  const std::string cut = fitted(text, width, style);
  letters_.draw(cut, style.size, style.bold, [&](int column, int line, float part) {
    blend({x + column, baseline + line, 1, 1}, style.ink, [part](float, float) { return part; });
  });
  return textWidth(cut, style);
}

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
