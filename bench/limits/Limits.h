#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

struct libdeflate_decompressor;

namespace bench {

// What cannot be done without. None of it is a product: no error is reported,
// nothing is kept that is not asked for, and only the benchmark's own inputs are understood.

/// Runs `count` times a program on `slots` slots, each with its output in a
/// pipe that is read to its end. Its words end with a null pointer. 0, or 1 when
/// one failed.
int dispatchLimit(int count, int slots, char* const* words);

/// Judges lines in one vector pass over whole blocks of them.
class LineLimit {
public:
  struct Counts {
    std::size_t lines = 0;
    std::size_t imageLines = 0;
    std::size_t images = 0; // different ones
    std::size_t errors = 0;
    std::size_t successes = 0;
  };

  LineLimit(std::vector<std::string> images, std::string imageEnd, std::vector<std::string> errors,
            std::string success);

  /// Reads a descriptor to its end; the last line must be ended.
  Counts run(int descriptor);

private:
  struct Hash : std::hash<std::string_view> {
    using is_transparent = void;
  };
  struct Table {
    alignas(16) unsigned char low[16] = {};
    alignas(16) unsigned char high[16] = {};
  };

  void scan(const char* begin, const char* end);
  void judge(std::string_view line);

  std::vector<std::string> images_; // all in lower case
  std::string imageEnd_;
  std::vector<std::string> errors_;
  std::string success_;
  Table tables_[3]; // by place in a text
  std::string lowered_;
  std::unordered_set<std::string, Hash, std::equal_to<>> names_; // of images
  Counts counts_;
};

/// The frames around one, by reading the directory into a bitmap.
std::pair<int, int> sequenceLimit(const std::string& directory, std::string_view head, std::string_view tail,
                                  std::size_t digits, int frame);

/// The same by asking for each neighbour.
std::pair<int, int> probingLimit(const std::string& directory, std::string_view head, std::string_view tail,
                                 std::size_t digits, int frame);

/// The names of a sequence's frames, with blanks between.
std::string namesLimit(std::string_view head, std::string_view tail, std::size_t digits, int first, int last);

/// A command line with the references that the benchmark has in it put in:
/// $(Width), and of the scene $(Scene.Enquote) and $(Scene.Base).
std::string lineLimit(std::string_view line, std::string_view width, std::string_view scene);

/// How many of the frames from 1 on have no file, by listing the directory and
/// looking each name up among its names.
int missingLimit(const std::string& directory, std::string_view head, std::string_view tail,
                 std::size_t digits, int frames);

/// Every file of a directory with its sections and entries as views of its
/// bytes.
class LoadingLimit {
public:
  explicit LoadingLimit(const std::string& directory);
  std::size_t sections() const;
  std::size_t entries() const;

private:
  struct File {
    std::unique_ptr<char[]> bytes;
    std::vector<std::pair<std::string_view, std::size_t>> sections; // name, first entry
    std::vector<std::pair<std::string_view, std::string_view>> entries;
  };
  static File read(int directory, const char* name);

  std::vector<File> files_;
};

/// Reads PNG files one after the other, each whole, sums their chunks and
/// inflates their pixels, into memory that stays.
class PngLimit {
public:
  PngLimit();
  ~PngLimit();
  PngLimit(const PngLimit&) = delete;
  PngLimit& operator=(const PngLimit&) = delete;

  /// Whether the sums are right and the pixels so many bytes.
  bool isWhole(const std::string& file, std::size_t pixelBytes);

private:
  libdeflate_decompressor* inflater_;
  std::vector<unsigned char> content_;
  std::vector<unsigned char> pixels_;
};

/// Decodes all channels of an EXR file by its library on one core, as they are
/// stored. Throws what the library throws.
void exrLimit(const std::string& file);

} // namespace bench
