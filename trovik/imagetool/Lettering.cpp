#include "trovik/imagetool/Lettering.h"

#include "trovik/text/Text.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <filesystem>
#include <system_error>

namespace trovik::image {
namespace {

constexpr long unit = 64; // FreeType counts in parts of a pixel

std::string firstThatExists(const char* leaf) {
  for (const char* directory : {"/usr/share/fonts/truetype/dejavu/", "/usr/share/fonts/dejavu-sans-fonts/",
                                "/usr/share/fonts/TTF/", "/usr/share/fonts/dejavu/"}) {
    std::string file = std::string(directory) + leaf;
    std::error_code error;
    if (std::filesystem::is_regular_file(file, error)) {
      return file;
    }
  }
  return {};
}

} // namespace

Fonts findFonts() {
  Fonts fonts{firstThatExists("DejaVuSans.ttf"), firstThatExists("DejaVuSans-Bold.ttf")};
  if (fonts.bold.empty()) {
    fonts.bold = fonts.plain;
  }
  return fonts;
}

class Lettering::Impl {
public:
  explicit Impl(const Fonts& fonts) {
    if (FT_Init_FreeType(&library_) != 0) {
      library_ = nullptr;
      return;
    }
    plain_ = open(fonts.plain);
    bold_ = open(fonts.bold);
  }
  ~Impl() {
    if (library_ != nullptr) {
      FT_Done_FreeType(library_); // and its faces
    }
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  bool present() const { return plain_ != nullptr && bold_ != nullptr; }

  /// Walks the text; returns its width.
  int walk(const std::string& text, int size, bool bold, const Dot* dot) {
    FT_FaceRec* const face = bold ? bold_ : plain_;
    if (!present() || FT_Set_Pixel_Sizes(face, 0, static_cast<FT_UInt>(size)) != 0) {
      return 0;
    }
    long pen = 0;
    FT_UInt before = 0;
    for (const char32_t character : charactersOf(text)) {
      const FT_UInt glyph = FT_Get_Char_Index(face, character);
      FT_Vector kerning{};
      if (before != 0 && FT_Get_Kerning(face, before, glyph, FT_KERNING_DEFAULT, &kerning) == 0) {
        pen += kerning.x;
      }
      before = glyph;
      const auto flags =
          static_cast<FT_Int32>((dot == nullptr ? FT_LOAD_DEFAULT : FT_LOAD_RENDER) | FT_LOAD_TARGET_LIGHT);
      if (FT_Load_Glyph(face, glyph, flags) != 0) {
        continue;
      }
      if (dot != nullptr) {
        put(*face->glyph, static_cast<int>(pen / unit), *dot);
      }
      pen += face->glyph->advance.x;
    }
    return static_cast<int>((pen + unit - 1) / unit);
  }

private:
  FT_Face open(const std::string& file) {
    FT_Face face = nullptr;
    return !file.empty() && FT_New_Face(library_, file.c_str(), 0, &face) == 0 ? face : nullptr;
  }

  static void put(const FT_GlyphSlotRec& glyph, int pen, const Dot& dot) {
    const FT_Bitmap& bitmap = glyph.bitmap;
    if (bitmap.pixel_mode != FT_PIXEL_MODE_GRAY) {
      return; // blanks
    }
    for (unsigned line = 0; line < bitmap.rows; ++line) {
      const unsigned char* const row = bitmap.buffer + static_cast<std::ptrdiff_t>(line) * bitmap.pitch;
      for (unsigned column = 0; column < bitmap.width; ++column) {
        if (row[column] != 0) {
          dot(pen + glyph.bitmap_left + static_cast<int>(column), static_cast<int>(line) - glyph.bitmap_top,
              static_cast<float>(row[column]) / 255.0F);
        }
      }
    }
  }

  FT_Library library_ = nullptr;
  FT_Face plain_ = nullptr;
  FT_Face bold_ = nullptr;
};

Lettering::Lettering(const Fonts& fonts) : impl_(std::make_unique<Impl>(fonts)) {}
Lettering::~Lettering() = default;

bool Lettering::present() const {
  return impl_->present();
}

int Lettering::width(const std::string& text, int size, bool bold) {
  return impl_->walk(text, size, bold, nullptr);
}

void Lettering::draw(const std::string& text, int size, bool bold, const Dot& dot) {
  impl_->walk(text, size, bold, &dot);
}

} // namespace trovik::image
