#include "trovik/imagetool/SmallPicture.h"

#include "trovik/imagetool/Decoder.h"
#include "trovik/imagetool/Picture.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>

namespace trovik::image {
namespace {

constexpr int widest = 4096;
constexpr int quality = 88;

/// A picture whose room is known when the image is.
class SmallSink final : public PixelSink {
public:
  explicit SmallSink(int room) : room_(std::clamp(room, 16, widest)) {}

  void begin(const OIIO::ImageSpec& layout) override {
    const int height = layout.full_height > 0 ? layout.full_height : layout.height;
    const int width = static_cast<int>(std::lround(std::min(aspectOf(layout) * height, double{widest})));
    picture_.emplace(std::clamp(width, 1, room_), std::clamp(height, 1, room_));
    picture_->begin(layout);
  }
  void take(const Piece& piece) override { picture_->take(piece); }
  Pixels finish() { return picture_ ? picture_->finish() : Pixels(); }

private:
  int room_;
  std::optional<Picture> picture_;
};

/// Why it could not be written; empty where it was.
std::string write(const Pixels& pixels, const std::string& file) {
  const auto output = OIIO::ImageOutput::create("jpeg");
  if (output == nullptr) {
    return OIIO::geterror();
  }
  OIIO::ImageSpec layout(pixels.width, pixels.height, 3, OIIO::TypeDesc::UINT8);
  layout.attribute("Compression", "jpeg:" + std::to_string(quality));
  const bool good = output->open(file, layout) &&
                    output->write_image(OIIO::TypeDesc::UINT8, pixels.bytes.data()) && output->close();
  return good ? std::string() : output->geterror();
}

} // namespace

Inspection drawSmall(const CheckRequest& request) {
  SmallSink sink(request.room);
  Inspection inspection = decode(request.file, &sink);
  if (!inspection.image || !inspection.problem.empty()) {
    return inspection;
  }
  const Pixels pixels = sink.finish();
  const std::string reason = pixels.bytes.empty() ? "it shows nothing" : write(pixels, request.picture);
  if (!reason.empty()) {
    inspection.problem = std::string(notDrawn) + reason;
  }
  return inspection;
}

} // namespace trovik::image
