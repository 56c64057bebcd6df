#include "bench/ImageInputs.h"

#include "bench/Inputs.h"
#include "bench/Race.h"

#include <OpenEXR/ImfArray.h>
#include <OpenEXR/ImfRgbaFile.h>
#include <OpenEXR/ImfThreading.h>
#include <libdeflate.h>

#include <algorithm>
#include <filesystem>
#include <string_view>

namespace bench {
namespace {

struct ImageSize {
  int width = 1920;
  int height = 1080;
};
constexpr int kinds = 20; // the others are copies, since packing takes its time

/// A value from 0 to 1 at a place of a channel.
class Picture {
public:
  Picture(int number, ImageSize size)
      : number_(number), size_(size), random_(static_cast<std::uint64_t>(number) + 1) {}

  float at(int x, int y, int channel) {
    const auto [width, height] = size_;
    const int noisy = number_ % kinds * width / (kinds - 1); // so many columns
    if (x < noisy) {
      return static_cast<float>(random_.below(4096)) / 4095.0F;
    }
    switch (number_ % 3) {
    case 0:
      return 0.25F * static_cast<float>(channel + 1); // flat
    case 1:
      return static_cast<float>(x + 2 * y + 300 * channel) /
             static_cast<float>(width + 2 * height + 900); // slow
    default:
      return (x / 37 + y / 23 + channel) % 5 == 0
                 ? 0.9F
                 : static_cast<float>(y) / static_cast<float>(height); // edges
    }
  }

private:
  int number_;
  ImageSize size_;
  Random random_;
};

std::string big(std::size_t number) {
  return {static_cast<char>(number >> 24U), static_cast<char>(number >> 16U), static_cast<char>(number >> 8U),
          static_cast<char>(number)};
}

std::string chunk(const std::string& type, std::string_view data) {
  std::string body = type;
  body += data;
  return big(data.size()) + body + big(libdeflate_crc32(0, body.data(), body.size()));
}

/// The lines of a picture, each the difference to its neighbours (the filter "Sub").
std::string filteredLines(int number, int bytes, ImageSize size) {
  Picture picture(number, size);
  const auto [width, height] = size;
  const int pixel = 3 * bytes;
  std::string raw;
  std::string line(static_cast<std::size_t>(width * pixel), '\0');
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      for (int channel = 0; channel < 3; ++channel) {
        const auto value = static_cast<unsigned>(picture.at(x, y, channel) * 65535.0F);
        const std::size_t place = static_cast<std::size_t>(x) * static_cast<std::size_t>(pixel) +
                                  static_cast<std::size_t>(channel) * static_cast<std::size_t>(bytes);
        line[place] = static_cast<char>(value >> 8U);
        if (bytes == 2) {
          line[place + 1] = static_cast<char>(value);
        }
      }
    }
    raw += '\1';
    for (std::size_t i = 0; i < line.size(); ++i) {
      const auto before = static_cast<std::size_t>(pixel);
      raw += static_cast<char>(line[i] - (i < before ? 0 : line[i - before]));
    }
  }
  return raw;
}

ImageFile writePng(const std::string& name, int number, ImageSize size) {
  constexpr std::size_t chunkBytes = 8192;
  const int bytes = number % 5 == 4 ? 2 : 1;
  const std::string raw = filteredLines(number, bytes, size);
  libdeflate_compressor* const deflater = libdeflate_alloc_compressor(6);
  std::string packed(libdeflate_zlib_compress_bound(deflater, raw.size()), '\0');
  packed.resize(libdeflate_zlib_compress(deflater, raw.data(), raw.size(), packed.data(), packed.size()));
  libdeflate_free_compressor(deflater);
  std::string text = "\x89PNG\r\n\x1a\n";
  text +=
      chunk("IHDR", big(static_cast<std::size_t>(size.width)) + big(static_cast<std::size_t>(size.height)) +
                        static_cast<char>(8 * bytes) + '\2' + std::string(3, '\0'));
  for (std::size_t at = 0; at < packed.size(); at += chunkBytes) {
    text += chunk("IDAT", std::string_view(packed).substr(at, chunkBytes));
  }
  writeFile(name, text + chunk("IEND", {}));
  return {name, raw.size()};
}

ImageFile writeExr(const std::string& name, int number) {
  Imf::setGlobalThreadCount(0);
  const auto [width, height] = ImageSize();
  Picture picture(number, {});
  Imf::Array2D<Imf::Rgba> pixels(height, width);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      pixels[y][x] = Imf::Rgba(picture.at(x, y, 0), picture.at(x, y, 1), picture.at(x, y, 2), 1.0F);
    }
  }
  Imf::Header header(width, height);
  header.compression() = Imf::ZIP_COMPRESSION;
  Imf::RgbaOutputFile file(name.c_str(), header, Imf::WRITE_RGBA);
  file.setFrameBuffer(&pixels[0][0], 1, static_cast<std::size_t>(width));
  file.writePixels(height);
  return {name, 0};
}

template <typename Write>
std::vector<ImageFile> writeAll(const std::string& directory, const std::string& extension, int count,
                                Write write) {
  std::vector<ImageFile> files;
  for (int i = 0; i < count; ++i) {
    std::string name = directory;
    name.append("/frame.").append(std::to_string(i + 1000)).append(extension);
    if (i < kinds) {
      files.push_back(write(name, i));
    } else {
      ImageFile same = files[static_cast<std::size_t>(i % kinds)];
      std::filesystem::copy_file(same.name, name);
      same.name = name;
      files.push_back(same);
    }
  }
  return files;
}

} // namespace

std::vector<ImageFile> writePngs(const std::string& directory, int count) {
  return writeAll(directory, ".png", count,
                  [](const std::string& name, int number) { return writePng(name, number, {}); });
}

std::vector<ImageFile> writeSmallPngs(const std::string& directory, int count) {
  return writeAll(directory, ".png", count, [](const std::string& name, int number) {
    return writePng(name, number, {16, 9});
  });
}

std::vector<ImageFile> writeExrs(const std::string& directory, int count) {
  return writeAll(directory, ".exr", count, writeExr);
}

} // namespace bench
