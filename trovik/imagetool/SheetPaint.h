#pragma once

#include "trovik/imagetool/Lettering.h"
#include "trovik/imagetool/Picture.h"
#include "trovik/imagetool/SheetLayout.h"

#include <cstdint>
#include <string>
#include <vector>

namespace trovik::image {

struct Ink {
  std::uint8_t red = 0;
  std::uint8_t green = 0;
  std::uint8_t blue = 0;
};

/// A canvas of screen colours. What lies outside is not drawn.
class SheetPaint {
public:
  /// The lettering (for one canvas at a time) stays the caller's.
  SheetPaint(int width, int height, Ink ground, Lettering& letters);

  int width() const { return width_; }
  int height() const { return height_; }
  bool hasWords() const { return letters_.present(); }

  void fill(const Box& box, Ink ink);
  /// Slanting lines all over a box.
  void hatch(const Box& box, Ink ink);
  /// One line from corner to corner, and the other.
  void cross(const Box& box, Ink ink);
  void outline(const Box& box, Ink ink);
  void paste(const Pixels& pixels, int x, int y);

  struct Style {
    int size = 12; ///< of the font, in pixels
    bool bold = false;
    Ink ink;
  };
  /// One line of text from x on, standing on the base line; cut to the width.
  /// Returns the width drawn. Nothing is drawn without a font.
  int text(const std::string& text, int x, int baseline, int width, const Style& style);
  int textWidth(const std::string& text, const Style& style) const {
    return letters_.width(text, style.size, style.bold);
  }
  /// The text cut to a width, with "…" at its end if it was.
  std::string fitted(const std::string& text, int width, const Style& style) const;

  const std::uint8_t* row(int y) const { return bytes_.data() + offset(0, y); }

private:
  std::size_t offset(int x, int y) const {
    return (static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(x)) * 3;
  }
  /// Colours each pixel of the box as far as `cover` says, of its middle.
  template <typename Cover> void blend(const Box& box, Ink ink, Cover cover);

  int width_;
  int height_;
  Lettering& letters_;
  std::vector<std::uint8_t> bytes_;
};

/// Why no sheet can be written under that name; empty when its extension is
/// one of .png, .jpg, .jpeg, .exr, .tif and .tiff.
std::string whyNotWritable(const std::string& file);

/// Writes the sheet beside the file and renames it when it is whole; in the
/// colours of a screen, but for .exr in light. Returns what went wrong.
std::string writeSheet(const SheetPaint& sheet, const std::string& file);

} // namespace trovik::image
