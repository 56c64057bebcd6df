#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/imagetool/Images.h"

#include <gtest/gtest.h>

#include <set>

namespace trovik {
namespace {

using OIIO::TypeDesc;

/// What is done to a whole file.
struct Harm {
  std::string name;
  std::function<std::string(std::string)> apply;
};

Harm cutTo(std::size_t percent) {
  return {std::to_string(percent) + " %",
          [percent](const std::string& whole) { return whole.substr(0, whole.size() * percent / 100); }};
}

const std::vector<Harm>& cuts() {
  static const std::vector<Harm> all = {
      cutTo(10),
      cutTo(50),
      cutTo(90),
      cutTo(99),
      {"all but a byte", [](const std::string& whole) { return whole.substr(0, whole.size() - 1); }},
      {"a header", [](const std::string& whole) { return whole.substr(0, 300); }},
      {"20 bytes", [](const std::string& whole) { return whole.substr(0, 20); }}};
  return all;
}

const std::vector<Harm>& changes() {
  static const std::vector<Harm> all = {
      {"a bit turned",
       [](std::string whole) {
         whole[whole.size() / 2] = static_cast<char>(whole[whole.size() / 2] ^ 0x10);
         return whole;
       }},
      {"64 bytes zeroed",
       [](std::string whole) { return whole.replace(whole.size() / 2, 64, std::string(64, '\0')); }},
      {"second half zeroed",
       [](std::string whole) {
         const std::size_t half = whole.size() / 2;
         return whole.replace(half, whole.size() - half, whole.size() - half, '\0');
       }},
  };
  return all;
}

/// Writes noise of a width that is odd in every sense; but of one that fits for
/// the writer of HEIF files, which reads beyond the lines of others.
std::string writeNoise(const TemporaryDirectory& directory, const ImageKind& kind, int& width) {
  const bool heif = kind.file.ends_with("heic") || kind.file.ends_with("avif");
  width = heif ? 144 : imageWidth;
  return writeImage(directory.path(), kind, noiseAt, width);
}

/// The harms that a look into the file does not find.
std::set<std::string> unfound(const TemporaryDirectory& directory, const std::string& whole,
                              const std::string& leaf, const std::vector<Harm>& harms) {
  std::set<std::string> names;
  for (const Harm& harm : harms) {
    const std::string file = directory.write("harmed/" + leaf, harm.apply(whole));
    const Inspection inspection = inspect(file);
    if (inspection.problem.empty()) {
      names.insert(harm.name);
    } else {
      EXPECT_TRUE(inspection.problem.starts_with("Truncated or damaged image (")) << inspection.problem;
      EXPECT_EQ(inspection.problem.find(directory.path()), std::string::npos) << inspection.problem;
      EXPECT_EQ(inspection.problem.find("no reason"), std::string::npos) << leaf << ", " << harm.name;
    }
  }
  return names;
}

struct Case {
  ImageKind kind;
  std::set<std::string> unfoundCuts{}; ///< nothing is lost, or nobody can tell
};

class EveryCut : public testing::TestWithParam<Case> {};

TEST_P(EveryCut, IsFoundAndTheWholeImageIsGood) {
  const TemporaryDirectory directory;
  int width = 0;
  const std::string file = writeNoise(directory, GetParam().kind, width);
  const Inspection whole = inspect(file);
  EXPECT_EQ(whole.problem, "");
  EXPECT_TRUE(whole.image);
  EXPECT_EQ(whole.width, width);
  EXPECT_EQ(whole.height, imageHeight);
  EXPECT_EQ(unfound(directory, readFile(file), GetParam().kind.file, cuts()), GetParam().unfoundCuts);
}

std::string caseName(const testing::TestParamInfo<Case>& info) {
  std::string name =
      info.param.kind.file + '_' + info.param.kind.type.c_str() + '_' + info.param.kind.compression +
      (info.param.kind.tile > 0 ? "_tiles" : "") + (info.param.kind.parts > 1 ? "_parts" : "") +
      (info.param.kind.channels == 3 ? "" : "_" + std::to_string(info.param.kind.channels) + "channels");
  for (const auto& [attribute, value] : info.param.kind.attributes) {
    name += '_' + attribute + std::to_string(value);
  }
  for (char& character : name) {
    if (std::isalnum(static_cast<unsigned char>(character)) == 0) {
      character = '_';
    }
  }
  return name;
}

std::vector<Case> exrCases() {
  std::vector<Case> cases;
  for (const char* compression :
       {"none", "rle", "zip", "zips", "piz", "pxr24", "b44", "b44a", "dwaa", "dwab"}) {
    for (const TypeDesc& type : {TypeDesc(TypeDesc::HALF), TypeDesc(TypeDesc::FLOAT)}) {
      cases.push_back({{.file = "a.exr", .type = type, .compression = compression}});
    }
    cases.push_back({{.file = "a.exr", .type = TypeDesc::HALF, .compression = compression, .tile = 32}});
  }
  cases.push_back({{.file = "a.exr", .type = TypeDesc::HALF, .compression = "zip", .parts = 3}});
  return cases;
}
INSTANTIATE_TEST_SUITE_P(OfExr, EveryCut, testing::ValuesIn(exrCases()), caseName);

INSTANTIATE_TEST_SUITE_P(
    OfTiff, EveryCut,
    testing::Values(Case{{.file = "a.tif", .compression = "none"}},
                    Case{{.file = "a.tif", .compression = "lzw"}},
                    Case{{.file = "a.tif", .compression = "zip"}},
                    Case{{.file = "a.tif", .compression = "packbits"}},
                    Case{{.file = "a.tif", .compression = "jpeg"}},
                    Case{{.file = "a.tif", .type = TypeDesc::UINT16, .compression = "none", .tile = 32}},
                    Case{{.file = "a.tif", .type = TypeDesc::UINT16, .compression = "lzw", .tile = 32}},
                    Case{{.file = "a.tif", .type = TypeDesc::UINT16, .compression = "zip", .tile = 32}},
                    Case{{.file = "a.tif", .type = TypeDesc::FLOAT, .compression = "zip"}},
                    Case{{.file = "a.tif", .compression = "zip", .parts = 3}}),
    caseName);

INSTANTIATE_TEST_SUITE_P(
    OfScreenFormats, EveryCut,
    testing::Values(Case{{.file = "a.png"}}, Case{{.file = "a.png", .type = TypeDesc::UINT16}},
                    Case{{.file = "a.png", .channels = 4}}, Case{{.file = "a.png", .channels = 1}},
                    Case{{.file = "a.jpg"}}, Case{{.file = "a.jpg", .attributes = {{"jpeg:progressive", 1}}}},
                    Case{{.file = "a.webp"}}, Case{{.file = "a.webp", .compression = "lossless"}},
                    Case{{.file = "a.gif"}}, Case{{.file = "a.gif", .parts = 3}}, Case{{.file = "a.bmp"}},
                    Case{{.file = "a.jp2"}}, Case{{.file = "a.j2k"}}, Case{{.file = "a.heic"}},
                    Case{{.file = "a.avif"}}),
    caseName);

// The new kind of Targa file ends with an area that no pixel needs.
INSTANTIATE_TEST_SUITE_P(
    OfStudioFormats, EveryCut,
    testing::Values(
        Case{{.file = "a.tga", .compression = "none"}, {"99 %", "all but a byte"}},
        Case{{.file = "a.tga", .compression = "rle"}, {"99 %", "all but a byte"}},
        Case{{.file = "a.hdr", .type = TypeDesc::FLOAT}}, Case{{.file = "a.dpx"}},
        Case{{.file = "a.dpx", .type = TypeDesc::UINT16}},
        Case{{.file = "a.dpx", .type = TypeDesc::UINT16, .attributes = {{"oiio:BitsPerSample", 10}}}},
        Case{{.file = "a.dpx", .type = TypeDesc::UINT16, .attributes = {{"oiio:BitsPerSample", 12}}}},
        Case{{.file = "a.iff", .compression = "none"}}, Case{{.file = "a.iff", .compression = "rle"}},
        Case{{.file = "a.sgi", .compression = "none"}}, Case{{.file = "a.sgi", .compression = "rle"}},
        Case{{.file = "a.rla"}}, Case{{.file = "a.fits", .type = TypeDesc::FLOAT}}),
    caseName);

// Of text, the line feed at the end is all that the last byte is.
INSTANTIATE_TEST_SUITE_P(
    OfPortableMaps, EveryCut,
    testing::Values(Case{{.file = "a.ppm"}}, Case{{.file = "a.ppm", .type = TypeDesc::UINT16}},
                    Case{{.file = "a.pgm", .channels = 1}},
                    Case{{.file = "a.ppm", .attributes = {{"pnm:binary", 0}}}, {"all but a byte"}}),
    caseName);

/// Which changes in the middle of a file are not found, where nothing is lost
/// in length: formats without check sums cannot know. docs/images.md has the
/// table.
class EveryChange : public testing::TestWithParam<Case> {};

TEST_P(EveryChange, IsFoundWhereTheFormatCanTell) {
  const TemporaryDirectory directory;
  int width = 0;
  const std::string file = writeNoise(directory, GetParam().kind, width);
  EXPECT_EQ(unfound(directory, readFile(file), GetParam().kind.file, changes()), GetParam().unfoundCuts);
}

const std::set<std::string> nothing = {};
const std::set<std::string> small = {"a bit turned", "64 bytes zeroed"};
const std::set<std::string> everything = {"a bit turned", "64 bytes zeroed", "second half zeroed"};

INSTANTIATE_TEST_SUITE_P(
    OfAnyFormat, EveryChange,
    testing::Values(
        Case{{.file = "a.png"}, nothing}, Case{{.file = "a.png", .type = TypeDesc::UINT16}, nothing},
        Case{{.file = "a.exr", .type = TypeDesc::HALF, .compression = "zip"}, nothing},
        Case{{.file = "a.exr", .type = TypeDesc::HALF, .compression = "zips"}, nothing},
        Case{{.file = "a.exr", .type = TypeDesc::HALF, .compression = "pxr24"}, nothing},
        Case{{.file = "a.exr", .type = TypeDesc::HALF, .compression = "zip", .parts = 3}, nothing},
        Case{{.file = "a.exr", .type = TypeDesc::HALF, .compression = "none"}, small},
        Case{{.file = "a.exr", .type = TypeDesc::HALF, .compression = "piz"}, small},
        Case{{.file = "a.tif", .type = TypeDesc::UINT16, .compression = "zip", .tile = 32}, nothing},
        Case{{.file = "a.tif", .compression = "none"}, everything},
        Case{{.file = "a.tif", .compression = "packbits"}, small},
        Case{{.file = "a.hdr", .type = TypeDesc::FLOAT}, {"a bit turned"}}, Case{{.file = "a.jp2"}, small},
        Case{{.file = "a.sgi", .compression = "rle"}, everything}, Case{{.file = "a.heic"}, everything},
        Case{{.file = "a.bmp"}, everything}, Case{{.file = "a.dpx"}, everything},
        Case{{.file = "a.ppm"}, everything}, Case{{.file = "a.jpg"}, small},
        Case{{.file = "a.jpg", .attributes = {{"jpeg:progressive", 1}}}, nothing}),
    caseName);

} // namespace
} // namespace trovik
