#include "trovik/imagetool/LightCheck.h"
#include "trovik/imagetool/Formats.h"

#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/imagetool/Images.h"
#include "tests/trovik/imagetool/PngBytes.h"

#include <gtest/gtest.h>

#include <libdeflate.h>

#include <array>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <vector>

// Whatever is judged without the image library, the library judges the same.

namespace trovik {
namespace {

/// By one check for all files of this program, as the helper has it.
std::optional<Inspection> checkLightly(const CheckRequest& request) {
  static image::LightCheck check;
  return check.check(request);
}

std::string sizeText(const Inspection& inspection) {
  return std::to_string(inspection.width) + "x" + std::to_string(inspection.height);
}

/// Of a file: "whole" where no library is needed, else what the library says.
/// Fails where the two differ.
std::string judged(const std::string& file) {
  const Inspection full = inspect(file);
  const std::optional<Inspection> light = checkLightly({file, false});
  if (!light) {
    return full.problem.empty() ? "good" : full.problem;
  }
  EXPECT_EQ(light->problem, full.problem) << file;
  EXPECT_EQ(light->image, full.image) << file;
  EXPECT_EQ(sizeText(*light), sizeText(full)) << file;
  return "whole";
}

TEST(Formats, AreThoseThatTheLibraryReads) {
  const std::set<std::string> noImages = {"null", "term",   "ffmpeg",    "openvdb",
                                          "raw",  "cineon", "softimage", "zfile"};
  std::size_t known = 0;
  for (const auto& [format, extensions] : OIIO::get_extension_map()) {
    for (const std::string& extension : extensions) {
      if (!noImages.contains(format)) {
        EXPECT_EQ(image::formatOf(extension), format) << extension;
        ++known;
      } else if (extension != "z") { // of a format that is an image, too
        EXPECT_EQ(image::formatOf(extension), "") << extension;
      }
    }
  }
  EXPECT_EQ(known, 53U);
}

TEST(Formats, ExtensionIsWhatFollowsTheLastPointOfTheName) {
  EXPECT_EQ(image::extensionOf("/a.b/shot.0007.PnG"), "png");
  EXPECT_EQ(image::extensionOf("/a.b/shot"), "");
  EXPECT_EQ(image::extensionOf("/a/.png"), "");
  EXPECT_TRUE(image::isImageName("a.EXR"));
  EXPECT_TRUE(image::isImageName("a.pic"));
  EXPECT_FALSE(image::isImageName("a.mp4"));
  EXPECT_FALSE(image::isImageName("a.txt"));
}

TEST(LightCheck, FileThatIsNoImageIsGood) {
  const TemporaryDirectory directory;
  EXPECT_EQ(judged(directory.write("a.txt", "no picture")), "whole");
  EXPECT_EQ(judged(directory.file("gone.obj")), "whole");
}

TEST(LightCheck, WholePngsNeedNoLibrary) {
  const TemporaryDirectory directory;
  for (const OIIO::TypeDesc& type :
       {OIIO::TypeDesc(OIIO::TypeDesc::UINT8), OIIO::TypeDesc(OIIO::TypeDesc::UINT16)}) {
    for (int channels = 1; channels <= 4; ++channels) {
      const std::string file =
          writeImage(directory.path(), {.file = "a.PNG", .type = type, .channels = channels});
      EXPECT_EQ(judged(file), "whole") << channels;
      EXPECT_FALSE(checkLightly({file, true})) << "whether it is flat, only pixels tell";
    }
  }
}

/// The bytes of all lines, each with its filter.
std::string lines(std::uint32_t height, std::size_t lineBytes, char filter = 0) {
  std::string raw;
  for (std::uint32_t y = 0; y < height; ++y) {
    raw += filter;
    for (std::size_t x = 0; x < lineBytes; ++x) {
      raw += static_cast<char>(noiseAt(static_cast<int>(x), static_cast<int>(y), 0) * 255.0F);
    }
  }
  return raw;
}

std::string png(const PngHeader& header, const std::string& chunks) {
  return pngSignature + pngHeader(header) + chunks + pngChunk("IEND", "");
}

TEST(LightCheck, EveryDepthOfEveryColourIsKnown) {
  struct Kind {
    unsigned colour;
    unsigned depth;
    std::size_t lineBytes; // of 13 pixels
    std::string before{};
  };
  const std::string palette = pngChunk("PLTE", std::string("\1\2\3\4\5\6", 6));
  const std::vector<Kind> kinds = {
      {0, 1, 2},          {0, 2, 4},          {0, 4, 7},           {0, 8, 13},
      {0, 16, 26},        {2, 8, 39},         {2, 16, 78},         {4, 8, 26},
      {4, 16, 52},        {6, 8, 52},         {6, 16, 104},        {3, 1, 2, palette},
      {3, 2, 4, palette}, {3, 4, 7, palette}, {3, 8, 13, palette}, {2, 8, 39, palette}};
  const TemporaryDirectory directory;
  for (const Kind& kind : kinds) {
    const PngHeader header{.width = 13, .height = 5, .depth = kind.depth, .colour = kind.colour};
    for (const std::size_t missing : {std::size_t{0}, std::size_t{1}}) {
      std::string raw = lines(5, kind.lineBytes);
      raw.resize(raw.size() - missing);
      const std::string file =
          directory.write("a.png", png(header, kind.before + pngChunk("IDAT", zlibStream(raw))));
      EXPECT_EQ(judged(file) == "whole", missing == 0) << kind.colour << ' ' << kind.depth;
    }
  }
}

TEST(LightCheck, WhatIsUnusualIsLeftToTheLibrary) {
  const PngHeader header{.width = 13, .height = 5};
  const std::string raw = lines(5, 39);
  const std::string pixels = pngChunk("IDAT", zlibStream(raw));
  const std::string stream = zlibStream(raw);
  const std::string text = pngChunk("tEXt", std::string("Title\0a title", 13));
  const TemporaryDirectory directory;
  const auto judge = [&directory](const std::string& bytes) {
    return judged(directory.write("a.png", bytes));
  };

  EXPECT_EQ(judge(png(header, pixels)), "whole");
  EXPECT_EQ(judge(png(header, text + pngChunk("gAMA", big(45455, 4)) + pixels + text)), "whole");
  EXPECT_EQ(judge(png(header, pngChunk("IDAT", stream.substr(0, 7)) + pngChunk("IDAT", "") +
                                  pngChunk("IDAT", stream.substr(7)))),
            "whole");
  EXPECT_EQ(judge(png(header, pixels) + "something behind it"), "whole");
  EXPECT_EQ(judge(png(header, pngChunk("IDAT", zlibStream(raw, 0x08)))), "whole")
      << "a window that is enough";

  const std::vector<std::pair<std::string, std::string>> unusual = {
      {"a chunk of a later day", png(header, pngChunk("neWt", "?") + pixels)},
      {"one that is needed", png(header, pngChunk("NEWT", "?") + pixels)},
      {"one between the pixels",
       png(header, pngChunk("IDAT", stream.substr(0, 7)) + text + pngChunk("IDAT", stream.substr(7)))},
      {"one at the wrong place", png(header, pixels + pngChunk("gAMA", big(45455, 4)))},
      {"a window that may be too small",
       png({.width = 13, .height = 7}, pngChunk("IDAT", zlibStream(lines(7, 39), 0x08)))},
      {"bytes behind the stream", png(header, pngChunk("IDAT", stream + "??"))},
      {"a line too many", png(header, pngChunk("IDAT", zlibStream(lines(6, 39))))},
      {"an unknown filter", png(header, pngChunk("IDAT", zlibStream(lines(5, 39, 5))))},
      {"no palette", png({.width = 39, .height = 5, .colour = 3}, pixels)},
      {"a palette with a colour cut",
       png({.width = 39, .height = 5, .colour = 3}, pngChunk("PLTE", "1234") + pixels)},
      {"a palette with too many",
       png({.width = 13 * 24, .height = 5, .depth = 1, .colour = 3}, pngChunk("PLTE", "123456789") + pixels)},
      {"two headers", png(header, pngHeader(header) + pixels)},
      {"an unknown kind", png({.width = 13, .height = 5, .colour = 5}, pixels)},
      {"a depth that this kind has not", png({.width = 13, .height = 5, .depth = 4, .colour = 2}, pixels)},
      {"passes", png({.width = 13, .height = 5, .interlace = 1}, pixels)},
      {"no pixels", png(header, "")},
      {"no width", png({.width = 0, .height = 5}, pixels)},
      {"more than memory holds", png({.width = 1000000, .height = 1000000}, pixels)},
      {"an end with something in it", pngSignature + pngHeader(header) + pixels + pngChunk("IEND", "?")},
      {"another format", "BM and so on"},
      {"nothing but the signature", pngSignature}};
  for (const auto& [what, bytes] : unusual) {
    EXPECT_NE(judge(bytes), "whole") << what;
  }
  std::string many;
  for (int i = 0; i < 101; ++i) {
    many += text;
  }
  EXPECT_EQ(judge(png(header, many + pixels)), "good");
}

TEST(LightCheck, NoChangeOfAByteAndNoCutIsCalledWhole) {
  const TemporaryDirectory directory;
  const std::string whole =
      png({.width = 13, .height = 5},
          pngChunk("tEXt", std::string("Title\0a title", 13)) + pngChunk("IDAT", zlibStream(lines(5, 39))));
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (unsigned bit = 0; bit < 8; ++bit) {
      std::string changed = whole;
      changed[at] = static_cast<char>(static_cast<unsigned char>(changed[at]) ^ 1U << bit);
      EXPECT_FALSE(checkLightly({directory.write("a.png", changed), false})) << at;
    }
    EXPECT_FALSE(checkLightly({directory.write("a.png", whole.substr(0, at)), false})) << at;
  }
}

TEST(LightCheck, PixelsThatAreStillWholeAfterAChangeAreSoForTheLibrary) {
  const TemporaryDirectory directory;
  const std::string stream = zlibStream(lines(5, 39));
  int stillWhole = 0;
  for (std::size_t at = 0; at < stream.size(); ++at) {
    for (unsigned bit = 0; bit < 8; ++bit) {
      std::string changed = stream;
      changed[at] = static_cast<char>(static_cast<unsigned char>(changed[at]) ^ 1U << bit);
      const std::string file =
          directory.write("a.png", png({.width = 13, .height = 5}, pngChunk("IDAT", changed)));
      if (checkLightly({file, false})) {
        EXPECT_EQ(judged(file), "whole") << at;
        ++stillWhole;
      }
    }
  }
  EXPECT_LE(stillWhole, 16) << "bits that nobody reads";
}

/// Files of random size, kind, filters, packing and chunks. Some cannot be: of a
/// depth that their colour has not, or with a stream that is too long.
class RandomPng {
public:
  explicit RandomPng(unsigned seed) : random_(seed) {
    header_.width = 1 + below(70);
    header_.height = 1 + below(40);
    header_.colour = pick<unsigned>({0, 2, 3, 4, 6, below(8)});
    header_.depth = header_.colour == 0   ? pick<unsigned>({1, 2, 4, 8, 16})
                    : header_.colour == 3 ? pick<unsigned>({1, 2, 4, 8})
                                          : pick<unsigned>({8, 16, 8, 16, 8, 16, 8, 16, 1, 4});
    header_.interlace = pick<unsigned>({0, 0, 0, 1, below(4)});
    raw_ = header_.interlace == 0 ? pass(header_.width, header_.height) : passes();
    switch (below(12)) {
    case 0:
      raw_ += pass(header_.width, 1);
      break;
    case 1:
      raw_.resize(raw_.size() - std::min<std::size_t>(raw_.size(), 1 + below(3)));
      break;
    case 2:
      raw_ += zeros(std::size_t{8} << 20U); // a small file with many pixels too many
      break;
    default:
      isRight_ = header_.interlace == 0;
    }
  }

  bool isPlain() const {
    const bool known = header_.colour != 1 && header_.colour != 5 && header_.colour != 7;
    return isRight_ && known && (header_.colour == 0 || header_.colour == 3 || header_.depth >= 8);
  }

  std::string bytes() {
    const std::string stream = packed();
    std::string chunks = below(3) == 0 ? pngChunk("tEXt", std::string("Title\0a title", 13)) : "";
    if (header_.colour == 3 || (header_.colour == 2 && below(3) == 0)) {
      const std::size_t entries = std::size_t{1} << std::min(header_.depth, 8U);
      chunks += pngChunk("PLTE", std::string(std::size_t{3} * (1 + below(entries)), 'p'));
    }
    for (std::size_t at = 0; at < stream.size();) {
      const std::size_t size = below(4) == 0 ? below(20) : below(stream.size() + 1);
      chunks += pngChunk("IDAT", stream.substr(at, size));
      at += std::min(size, stream.size() - at);
    }
    return png(header_, chunks);
  }

  /// A file after one of the things that happen to files.
  std::string damaged(std::string whole) {
    const std::size_t at = below(whole.size());
    switch (below(6)) {
    case 0:
      return whole.substr(0, at);
    case 1:
      return whole.replace(at, std::min<std::size_t>(64, whole.size() - at), 64, '\0');
    case 2:
      return whole + std::string(1 + below(50), 'x');
    case 3:
      return whole.insert(at, 1 + below(9), static_cast<char>(below(256)));
    case 4: // beyond every limit, with the right sum
      header_.width = pick<unsigned>({0, 1000000, 1000001, 0x7fffffff, 0xffffffff});
      return bytes();
    default:
      whole[at] = static_cast<char>(static_cast<unsigned char>(whole[at]) ^ 1U << below(8));
      return whole;
    }
  }

private:
  unsigned below(std::size_t limit) { return static_cast<unsigned>(random_() % limit); }
  template <typename Value> Value pick(std::initializer_list<Value> values) {
    return values.begin()[below(values.size())];
  }

  std::string pass(std::uint32_t width, std::uint32_t height) {
    const std::array<unsigned, 7> channels = {1, 1, 3, 1, 2, 1, 4};
    const std::size_t bits = std::size_t{width} * channels[header_.colour % 7] * header_.depth;
    const bool noisy = below(2) == 0;
    std::string raw;
    for (std::uint32_t y = 0; y < height && width > 0; ++y) {
      raw += static_cast<char>(below(5));
      for (std::size_t i = 0; i < (bits + 7) / 8; ++i) {
        raw += static_cast<char>(noisy ? below(256) : y);
      }
    }
    return raw;
  }

  std::string passes() {
    struct Pass {
      unsigned x, y, stepX, stepY;
    };
    constexpr std::array<Pass, 7> all = {
        {{0, 0, 8, 8}, {4, 0, 8, 8}, {0, 4, 4, 8}, {2, 0, 4, 4}, {0, 2, 2, 4}, {1, 0, 2, 2}, {0, 1, 1, 2}}};
    std::string raw;
    for (const Pass& one : all) {
      raw += pass((header_.width - std::min(header_.width, one.x) + one.stepX - 1) / one.stepX,
                  (header_.height - std::min(header_.height, one.y) + one.stepY - 1) / one.stepY);
    }
    return raw;
  }

  std::string packed() {
    const unsigned level = below(13);
    const std::unique_ptr<libdeflate_compressor, decltype(&libdeflate_free_compressor)> deflater(
        libdeflate_alloc_compressor(static_cast<int>(level)), &libdeflate_free_compressor);
    std::string out(libdeflate_zlib_compress_bound(deflater.get(), raw_.size()), '\0');
    out.resize(libdeflate_zlib_compress(deflater.get(), raw_.data(), raw_.size(), out.data(), out.size()));
    return out;
  }

  std::mt19937 random_;
  PngHeader header_;
  std::string raw_;
  bool isRight_ = false;
};

TEST(LightCheck, RandomFilesAndDamagesAreJudgedAsByTheLibrary) {
  constexpr unsigned first = 20260;
  constexpr unsigned count = 700;
  std::cout << "seeds " << first << " to " << first + count - 1 << '\n';
  const TemporaryDirectory directory;
  int whole = 0;
  int damaged = 0;
  for (unsigned seed = first; seed < first + count; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomPng random(seed);
    const bool plain = random.isPlain();
    const std::string bytes = random.bytes();
    const std::string verdict = judged(directory.write("a.png", bytes));
    EXPECT_EQ(verdict == "whole", plain) << verdict;
    whole += verdict == "whole" ? 1 : 0;
    const std::string after = judged(directory.write("a.png", random.damaged(bytes)));
    damaged += after != "whole" && after != "good" ? 1 : 0;
  }
  EXPECT_GE(whole, 200);
  EXPECT_GE(damaged, 200);
}

TEST(LightCheck, WhatIsNoRegularFileIsLeftToTheLibrary) {
  const TemporaryDirectory directory;
  EXPECT_EQ(judged(directory.makeDirectory("folder.png")), "Is no regular file");
  EXPECT_EQ(judged(directory.file("gone.png")), "Cannot be read (No such file or directory)");
  EXPECT_EQ(judged(directory.write("empty.png", "")), "Is empty");
}

} // namespace
} // namespace trovik
