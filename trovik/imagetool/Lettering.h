#pragma once

#include <functional>
#include <memory>
#include <string>

namespace trovik::image {

/// The font files; empty texts for none.
struct Fonts {
  std::string plain;
  std::string bold;
};

/// The fonts of this machine: DejaVu Sans, where distributions put it.
Fonts findFonts();

/// Draws lines of UTF-8 text with FreeType. (OpenImageIO 2.4 draws text, too,
/// but takes every character beyond ASCII for another one.) Without a font
/// nothing is drawn, and every width is 0.
class Lettering {
public:
  explicit Lettering(const Fonts& fonts);
  ~Lettering();
  Lettering(const Lettering&) = delete;
  Lettering& operator=(const Lettering&) = delete;

  bool present() const;

  /// Of the text in a font of that size, in pixels.
  int width(const std::string& text, int size, bool bold);

  /// Gets the pixels of a text: from its beginning on, down from its base line
  /// (so most are negative), and how much of each is covered, from 0 to 1.
  using Dot = std::function<void(int column, int line, float part)>;
  void draw(const std::string& text, int size, bool bold, const Dot& dot);

private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

} // namespace trovik::image
