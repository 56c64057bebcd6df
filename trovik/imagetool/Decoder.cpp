#include "trovik/imagetool/Decoder.h"

#include "trovik/imagetool/Formats.h"
#include "trovik/imagetool/Limits.h"
#include "trovik/text/Text.h"

#include <OpenImageIO/deepdata.h>
#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <sys/stat.h>
#include <vector>

namespace trovik::image {
namespace {

using OIIO::ImageInput;
using OIIO::ImageSpec;
using OIIO::TypeDesc;

constexpr std::size_t reasonWidth = 200;

/// Ends the decoding with a problem.
struct Problem {
  std::string text;
};

/// Formats that are known by their first bytes, for files with the extension
/// of another one.
constexpr std::array<const char*, 10> knownByContent = {"openexr", "png", "jpeg", "tiff", "gif",
                                                        "webp",    "bmp", "hdr",  "dpx",  "iff"};

/// A reader for the file, opened; null and the reason when there is none.
ImageInput::unique_ptr openAs(const std::string& format, const std::string& file, ImageSpec& layout,
                              std::string& reason) {
  ImageInput::unique_ptr input = ImageInput::create(format);
  if (input == nullptr) {
    reason = OIIO::geterror();
    return nullptr;
  }
  if (!input->open(file, layout)) {
    reason = input->geterror();
    return nullptr;
  }
  return input;
}

bool beginsAs(const std::string& format, const std::string& file) {
  if (format.empty()) {
    return false;
  }
  const ImageInput::unique_ptr input = ImageInput::create(format);
  return input != nullptr && input->valid_file(file);
}

ImageInput::unique_ptr openImage(const std::string& file, ImageSpec& layout, std::string& reason) {
  const std::string named = formatOf(extensionOf(file));
  ImageInput::unique_ptr input = openAs(named, file, layout, reason);
  for (const char* format : knownByContent) {
    if (input == nullptr && named != format && beginsAs(format, file)) {
      input = openAs(format, file, layout, reason);
    }
  }
  return input;
}

/// Readers also complain about what they then gloss over, without failing.
void requireSilence(const ImageInput& input, bool good) {
  // This one takes the end of every file for an error.
  const bool habit = good && std::strcmp(input.format_name(), "iff") == 0;
  const std::string complaint = input.has_error() ? input.geterror() : std::string();
  if (!good || (!complaint.empty() && !habit)) {
    throw Problem{complaint};
  }
}

/// Decodes one part of a file.
class PartDecoder {
public:
  PartDecoder(ImageInput& input, const ImageSpec& layout, int subimage, int level, PixelSink* sink)
      : input_(input), spec_(layout), subimage_(subimage), level_(level), sink_(sink),
        type_(sink == nullptr ? layout.format : TypeDesc(TypeDesc::FLOAT)) {}

  void run() {
    if (spec_.width <= 0 || spec_.height <= 0 || spec_.nchannels <= 0) {
      throw Problem{"it has no pixels"};
    }
    const std::uint64_t pixels =
        product({size(spec_.width), size(spec_.height), size(std::max(spec_.depth, 1))});
    if (spec_.nchannels > channelLimit || product({pixels, pixelBytes()}) > imageBytesLimit) {
      tooLarge();
    }
    const int lines = spec_.tile_width > 0 ? spec_.tile_height : 1;
    const int columns = spec_.tile_width > 0 ? spec_.tile_width : spec_.width;
    const int slices = spec_.tile_width > 0 ? std::max(spec_.tile_depth, 1) : 1;
    const std::uint64_t part = product({size(lines), size(columns), size(slices), pixelBytes()});
    if (part > partBytesLimit || lines <= 0) {
      tooLarge();
    }
    for (int z = 0; z < std::max(spec_.depth, 1); z += slices) {
      const int sliceEnd = std::min(z + slices, std::max(spec_.depth, 1));
      decodeSlices(spec_.z + z, spec_.z + sliceEnd, lines, columns, part);
    }
  }

private:
  static std::uint64_t size(int number) { return static_cast<std::uint64_t>(number); }
  std::uint64_t pixelBytes() const { return size(spec_.nchannels) * type_.size(); }

  [[noreturn]] void tooLarge() const {
    throw Problem{"it says that it has " + std::to_string(spec_.width) + " x " +
                  std::to_string(spec_.height) + " pixels of " + counted(size(spec_.nchannels), "channel")};
  }

  /// Compressed lines come in blocks of up to 256, which are best decoded once.
  void decodeSlices(int zBegin, int zEnd, int lines, int columns, std::uint64_t part) {
    const int rows =
        spec_.tile_width > 0
            ? lines
            : static_cast<int>(std::clamp<std::uint64_t>(pieceBytesLimit / part, 1, spec_.deep ? 16 : 256));
    const int parts = spec_.tile_width > 0
                          ? static_cast<int>(std::clamp<std::uint64_t>(pieceBytesLimit / part, 1, 4096))
                          : 1;
    const std::int64_t step = std::int64_t{columns} * parts;
    for (int y = 0; y < spec_.height; y += std::min(rows, spec_.height - y)) {
      const int yEnd = y + std::min(rows, spec_.height - y);
      for (std::int64_t x = 0; x < spec_.width; x += step) {
        const int xEnd = static_cast<int>(std::min<std::int64_t>(x + step, spec_.width));
        decodePiece(spec_.x + static_cast<int>(x), spec_.x + xEnd, spec_.y + y, spec_.y + yEnd, zBegin, zEnd);
      }
    }
  }

  void decodePiece(int xBegin, int xEnd, int yBegin, int yEnd, int zBegin, int zEnd) {
    const std::uint64_t count = product({size(xEnd - xBegin), size(yEnd - yBegin), size(zEnd - zBegin)});
    bool good = false;
    if (spec_.deep) {
      OIIO::DeepData deep;
      good = spec_.tile_width > 0
                 ? input_.read_native_deep_tiles(subimage_, level_, xBegin, xEnd, yBegin, yEnd, zBegin, zEnd,
                                                 0, spec_.nchannels, deep)
                 : input_.read_native_deep_scanlines(subimage_, level_, yBegin, yEnd, zBegin, 0,
                                                     spec_.nchannels, deep);
      if (good && sink_ != nullptr) {
        flatten(deep, xBegin, xEnd, yBegin, yEnd);
      }
    } else {
      // The call that converts takes a room of 64 MB for lines and copies each,
      // even where there is nothing to convert; so it is for floats alone. Tiles
      // at the edge of an image are larger than what is asked for, and only that
      // call has the room for them.
      buffer_.resize(count * std::max(pixelBytes(), std::uint64_t{spec_.pixel_bytes(true)}));
      good = spec_.tile_width > 0 ? input_.read_tiles(subimage_, level_, xBegin, xEnd, yBegin, yEnd, zBegin,
                                                      zEnd, 0, spec_.nchannels, type_, buffer_.data())
             : sink_ == nullptr   ? input_.read_native_scanlines(subimage_, level_, yBegin, yEnd, zBegin, 0,
                                                                 spec_.nchannels, buffer_.data())
                                  : input_.read_scanlines(subimage_, level_, yBegin, yEnd, zBegin, 0,
                                                          spec_.nchannels, type_, buffer_.data());
    }
    requireSilence(input_, good);
    if (sink_ != nullptr && zBegin == spec_.z) {
      sink_->take(
          {xBegin, yBegin, xEnd - xBegin, yEnd - yBegin, reinterpret_cast<const float*>(buffer_.data())});
    }
  }

  /// The samples of deep pixels put over one another, into the buffer.
  void flatten(const OIIO::DeepData& samples, int xBegin, int xEnd, int yBegin, int yEnd) {
    ImageSpec layout = spec_;
    layout.x = layout.full_x = xBegin;
    layout.y = layout.full_y = yBegin;
    layout.width = layout.full_width = xEnd - xBegin;
    layout.height = layout.full_height = yEnd - yBegin;
    layout.tile_width = layout.tile_height = layout.tile_depth = 0;
    OIIO::ImageBuf deep(layout);
    *deep.deepdata() = samples;
    const OIIO::ImageBuf flat = OIIO::ImageBufAlgo::flatten(deep);
    if (flat.has_error() || flat.nchannels() != layout.nchannels) {
      throw Problem{flat.geterror()};
    }
    buffer_.resize(product({size(layout.width), size(layout.height), pixelBytes()}));
    flat.get_pixels(flat.roi(), TypeDesc::FLOAT, buffer_.data());
  }

  ImageInput& input_;
  const ImageSpec& spec_;
  int subimage_;
  int level_;
  PixelSink* sink_;
  TypeDesc type_;
  std::vector<std::byte> buffer_;
};

/// Whether there is such a part. Readers say by an error, or by nothing, that
/// there are no more.
bool goTo(ImageInput& input, int subimage, int level) {
  const bool there = input.seek_subimage(subimage, level) && input.current_subimage() == subimage &&
                     input.current_miplevel() == level;
  input.geterror();
  return there;
}

void decodeParts(ImageInput& input, PixelSink* sink) {
  constexpr int partLimit = 100000;
  int parts = 0;
  for (int subimage = 0; goTo(input, subimage, 0); ++subimage) {
    for (int level = 0; goTo(input, subimage, level); ++level) {
      const ImageSpec layout = input.spec();
      const bool first = subimage == 0 && level == 0;
      if (first && sink != nullptr) {
        sink->begin(layout);
      }
      PartDecoder(input, layout, subimage, level, first ? sink : nullptr).run();
      if (++parts > partLimit) {
        throw Problem{"it has more than " + counted(partLimit, "part")};
      }
    }
  }
  if (parts == 0) {
    throw Problem{"it holds no image"};
  }
}

/// Why a file cannot be decoded at all; empty when it can be tried.
std::string whyUnreadable(const std::string& file) {
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) {
    return std::string("Cannot be read (") + std::strerror(errno) + ')';
  }
  if (!S_ISREG(status.st_mode)) {
    return "Is no regular file";
  }
  return status.st_size == 0 ? "Is empty" : "";
}

void decodeInto(Inspection& inspection, const std::string& file, PixelSink* sink) {
  ImageSpec layout;
  std::string reason;
  const ImageInput::unique_ptr input = openImage(file, layout, reason);
  if (input == nullptr) {
    throw Problem{reason.empty() ? "it cannot be opened" : reason};
  }
  inspection.width = layout.width;
  inspection.height = layout.height;
  requireSilence(*input, true); // some read all at once when they open a file
  const auto requireSoundness = [&] {
    const std::string flaw = structureProblem(input->format_name(), file);
    if (!flaw.empty()) {
      throw Problem{flaw};
    }
  };
  try {
    decodeParts(*input, sink);
  } catch (const Problem& problem) {
    if (!problem.text.empty()) {
      throw;
    }
    requireSoundness(); // tells more
    // This reader knows bitmaps as text only with blanks between the digits.
    if (std::strcmp(input->format_name(), "pnm") != 0) {
      throw;
    }
  }
  requireSoundness();
}

} // namespace

Inspection decode(const std::string& file, PixelSink* sink) {
  Inspection inspection;
  if (!isImageName(file)) {
    return inspection;
  }
  inspection.problem = whyUnreadable(file);
  if (!inspection.problem.empty()) {
    return inspection;
  }
  const std::string extension = extensionOf(file);
  if (isSharedExtension(extension) && !beginsAs(formatOf(extension), file) &&
      std::none_of(knownByContent.begin(), knownByContent.end(),
                   [&](const char* format) { return beginsAs(format, file); })) {
    return inspection;
  }
  inspection.image = true;
  try {
    decodeInto(inspection, file, sink);
  } catch (const Problem& problem) {
    // The file may be whole: nobody here can tell.
    if (problem.text.find("Subsampled channels are not supported") != std::string::npos) {
      inspection.image = false;
    } else {
      inspection.problem = damageText(problem.text, file);
    }
  } catch (const std::bad_alloc&) {
    inspection.problem = damageText(std::string(tooMuchMemory), file);
  } catch (const std::exception& exception) {
    inspection.problem = damageText(exception.what(), file);
  }
  return inspection;
}

ImageSpec describe(const std::string& file) {
  ImageSpec layout;
  std::string reason;
  try {
    if (!isImageName(file) || !whyUnreadable(file).empty() || openImage(file, layout, reason) == nullptr) {
      return {};
    }
  } catch (const std::exception&) {
    return {};
  }
  return layout;
}

std::string damageText(const std::string& reason, const std::string& file) {
  std::string text = reason;
  for (const std::string& name :
       {" (\"" + file + "\")", " \"" + file + '"', '"' + file + "\": ", '"' + file + "\" ", file + ' '}) {
    for (std::size_t at = text.find(name); at != std::string::npos; at = text.find(name, at)) {
      text.erase(at, name.size());
    }
  }
  // Libraries say much on several lines; the first says what happened.
  text.erase(std::min(text.find('\n'), text.size()));
  text.erase(std::min(text.find_last_not_of(" .") + 1, text.size()));
  return "Truncated or damaged image (" +
         cutToWidth(printable(text.empty() ? "no reason is given" : text, OddBytes::Show), reasonWidth) + ')';
}

} // namespace trovik::image
