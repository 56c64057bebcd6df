#include "trovik/imagetool/Decoder.h"

#include "trovik/imagetool/FileBytes.h"
#include "trovik/imagetool/Limits.h"
#include "trovik/imagetool/TiffStructure.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>

// Decoders are built to show as much of a file as they can, so some of them
// take what is missing as black: OpenImageIO reads a DPX or PNM file that was
// cut in half without a word, and a JPEG whose second half is zeros. Each
// function here walks the skeleton of one format and raises when it does not
// hold. None judges what its decoder judges already, and none demands what
// writers of the format are known to leave out.

namespace trovik::image {
namespace {

/// A sequence of segments and of compressed data, in which a marker byte is
/// followed by zero. Whatever the scans are, the end marker must come.
void checkJpeg(FileBytes& bytes) {
  bytes.skip(2);
  for (;;) {
    while (bytes.next() != 0xff) {
    }
    unsigned marker = 0xff;
    while (marker == 0xff) {
      marker = bytes.next();
    }
    if (marker == 0xd9) {
      return;
    }
    const bool alone = marker <= 0x01 || (marker >= 0xd0 && marker <= 0xd7);
    if (!alone) {
      const std::uint64_t length = bytes.number(2);
      bytes.skip(std::max<std::uint64_t>(length, 2) - 2);
    }
  }
}

/// The decoder stops when it has all pixels, before the last chunk.
void checkPng(FileBytes& bytes) {
  bytes.skip(8);
  std::string type;
  while (type != "IEND") {
    const std::uint64_t length = bytes.number(4);
    type = bytes.text(4);
    bytes.skip(length + 4); // the check sum behind it
  }
}

void skipGifBlocks(FileBytes& bytes) {
  while (const unsigned length = bytes.next()) {
    bytes.skip(length);
  }
}

/// The decoder takes a broken later picture as the end of the animation.
void checkGif(FileBytes& bytes) {
  const auto skipPalette = [&bytes](unsigned flags) {
    if ((flags & 0x80U) != 0) {
      bytes.skip(std::uint64_t{3} << ((flags & 7U) + 1));
    }
  };
  bytes.skip(10);
  const unsigned flags = bytes.next();
  bytes.skip(2);
  skipPalette(flags);
  for (;;) {
    switch (bytes.next()) {
    case 0x3b:
      return;
    case 0x21:
      bytes.skip(1);
      skipGifBlocks(bytes);
      break;
    case 0x2c:
      bytes.skip(8);
      skipPalette(bytes.next());
      bytes.skip(1);
      skipGifBlocks(bytes);
      break;
    default:
      throw Flaw{"a block of an unknown kind"};
    }
  }
}

bool isBlank(unsigned byte) {
  return byte == ' ' || (byte >= '\t' && byte <= '\r');
}

/// The next word of a PNM header, and the one character behind it taken too.
std::string pnmWord(FileBytes& bytes) {
  unsigned byte = bytes.next();
  while (isBlank(byte) || byte == '#') {
    if (byte == '#') {
      while (byte != '\n') {
        byte = bytes.next();
      }
    }
    byte = bytes.next();
  }
  std::string word;
  while (!isBlank(byte) && word.size() < 32) {
    word += static_cast<char>(byte);
    byte = bytes.next();
  }
  return word;
}

std::uint64_t pnmNumber(FileBytes& bytes) {
  const std::string word = pnmWord(bytes);
  std::uint64_t value = 0;
  for (const char character : word) {
    if (character < '0' || character > '9' || value > UINT32_MAX) {
      throw Flaw{"the header is not understood"};
    }
    value = value * 10 + static_cast<std::uint64_t>(character - '0');
  }
  return value;
}

/// So many numbers as text; in bitmaps every digit is a number by itself.
void requirePnmNumbers(FileBytes& bytes, std::uint64_t count, bool digits) {
  bool inside = false;
  while (count > 0) {
    const unsigned byte = bytes.next();
    const bool digit = byte >= '0' && byte <= (digits ? '1' : '9');
    if (!digit && !isBlank(byte)) {
      throw Flaw{"something else than numbers among the pixels"};
    }
    if (digit && (digits || !inside)) {
      --count;
    }
    inside = digit;
  }
}

void checkPnm(FileBytes& bytes) {
  const std::string magic = pnmWord(bytes);
  if (magic.size() != 2 || magic.front() != 'P') {
    throw Flaw{"the header is not understood"};
  }
  const char kind = magic.back();
  const std::uint64_t width = pnmNumber(bytes);
  const std::uint64_t height = pnmNumber(bytes);
  const std::uint64_t channels = kind == '3' || kind == '6' || kind == 'F' ? 3 : 1;
  if (kind == 'F' || kind == 'f') {
    pnmWord(bytes); // the scale
    requireBytes(bytes, bytes.position(), product({width, height, channels, 4}));
    return;
  }
  const bool bitmap = kind == '1' || kind == '4';
  const std::uint64_t maximum = bitmap ? 1 : pnmNumber(bytes);
  if (kind <= '3') {
    requirePnmNumbers(bytes, product({width, height, channels}), bitmap);
    return;
  }
  const std::uint64_t row = bitmap ? (width + 7) / 8 : product({width, channels, maximum > 255 ? 2U : 1U});
  requireBytes(bytes, bytes.position(), product({row, height}));
}

/// The bytes of one line of packed samples: 10 and 12 bits may stand in words
/// with filling bits, or one after the other.
std::uint64_t lineBytes(std::uint64_t samples, std::uint64_t bits, bool filled) {
  if (filled && bits == 10) {
    return (samples + 2) / 3 * 4;
  }
  if (filled && bits == 12) {
    return samples * 2;
  }
  const std::uint64_t bytes = (samples * bits + 7) / 8;
  return bits % 8 == 0 ? bytes : (bytes + 3) / 4 * 4;
}

std::uint64_t dpxSamples(unsigned descriptor) {
  switch (descriptor) {
  case 50:
  case 102:
    return 3;
  case 51:
  case 52:
  case 103:
    return 4;
  case 100:
    return 2;
  case 101:
    return 3;
  default:
    return descriptor >= 150 && descriptor <= 156 ? descriptor - 148 : 1;
  }
}

/// The length in the header is often wrong, so the bytes that the pixels need
/// are reckoned. Run lengths cannot be.
void checkDpx(FileBytes& bytes) {
  bytes.order = bytes.text(4) == "XPDS" ? Order::Little : Order::Big;
  const std::uint64_t imageOffset = bytes.number(4);
  const std::uint64_t elements = std::min<std::uint64_t>(bytes.numberAt(770, 2), 8);
  const std::uint64_t width = bytes.number(4);
  const std::uint64_t height = bytes.number(4);
  for (std::uint64_t i = 0; i < elements; ++i) {
    bytes.seek(780 + i * 72 + 20);
    const unsigned descriptor = bytes.next();
    bytes.skip(2);
    const std::uint64_t bits = bytes.next();
    const bool filled = bytes.number(2) != 0;
    const bool runs = bytes.number(2) == 1;
    const std::uint64_t named = bytes.number(4);
    const std::uint64_t offset = named == 0 || named == UINT32_MAX ? imageOffset : named;
    const std::uint64_t padding = bytes.number(4);
    const std::uint64_t row = lineBytes(width * dpxSamples(descriptor), bits, filled);
    // The last line need not be padded.
    const std::uint64_t between = padding == UINT32_MAX ? 0 : padding;
    const std::uint64_t needed = product({row + between, height});
    requireBytes(bytes, offset, runs || height == 0 ? 0 : needed - std::min(needed, between));
  }
}

/// The decoder reads chunks until there are no more.
void checkIff(FileBytes& bytes) {
  bytes.skip(4);
  const std::uint64_t size = bytes.number(4);
  requireBytes(bytes, bytes.position(), size);
}

void requireCodestreamEnd(FileBytes& bytes, std::uint64_t end) {
  if (end < 2 || bytes.numberAt(end - 2, 2) != 0xffd9) {
    throw Flaw{"the end marker is missing"};
  }
}

/// JP2 and the formats of the HEIF family are a row of boxes.
void checkBoxes(FileBytes& bytes) {
  while (bytes.position() < bytes.size()) {
    const std::uint64_t start = bytes.position();
    std::uint64_t length = bytes.number(4);
    const std::string type = bytes.text(4);
    if (length == 1) {
      length = bytes.number(8);
    } else if (length == 0) {
      length = bytes.size() - start;
    }
    if (length < bytes.position() - start) {
      throw Flaw{"a box of an impossible length"};
    }
    requireBytes(bytes, start, length);
    if (type == "jp2c") {
      requireCodestreamEnd(bytes, start + length);
    }
    bytes.seek(start + length);
  }
}

void checkJpeg2000(FileBytes& bytes) {
  const bool codestream = bytes.number(4) == 0xff4fff51;
  bytes.seek(0);
  if (codestream) {
    requireCodestreamEnd(bytes, bytes.size());
  } else {
    checkBoxes(bytes);
  }
}

} // namespace

std::string structureProblem(std::string_view format, const std::string& file) {
  using Check = std::function<void(FileBytes&)>;
  const std::array<std::pair<std::string_view, Check>, 9> checks = {{
      {"jpeg", checkJpeg},
      {"png", checkPng},
      {"gif", checkGif},
      {"tiff", checkTiff},
      {"pnm", checkPnm},
      {"dpx", checkDpx},
      {"iff", checkIff},
      {"jpeg2000", checkJpeg2000},
      {"heif", checkBoxes},
  }};
  try {
    FileBytes bytes(file);
    for (const auto& [name, check] : checks) {
      if (name == format) {
        check(bytes);
      }
    }
  } catch (const EarlyEnd&) {
    return "the file ends early";
  } catch (const Flaw& flaw) {
    return flaw.text;
  }
  return {};
}

} // namespace trovik::image
