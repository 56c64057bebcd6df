#include "trovik/imagetool/Check.h"

#include "trovik/images/ImageProtocol.h"
#include "trovik/imagetool/Decoder.h"
#include "trovik/imagetool/Picture.h"
#include "trovik/imagetool/SmallPicture.h"

#include <array>
#include <bit>
#include <cstdint>

namespace trovik::image {
namespace {

/// Whether all pixels have the colour of the first.
class FlatSink final : public PixelSink {
public:
  void begin(const OIIO::ImageSpec& layout) override {
    channels_ = layout.nchannels;
    colour_ = channelsOf(layout).colour;
  }

  void take(const Piece& piece) override {
    const auto stride = static_cast<std::size_t>(channels_);
    const std::size_t count = static_cast<std::size_t>(piece.width) * static_cast<std::size_t>(piece.height);
    if (!begun_) {
      first_ = colourOf(piece.pixels);
      begun_ = true;
    }
    for (std::size_t i = 0; flat_ && i < count; ++i) {
      flat_ = colourOf(piece.pixels + i * stride) == first_;
    }
  }

  bool flat() const { return begun_ && flat_; }

private:
  /// As bits, since a picture of nothing but NaN is flat, too.
  using Colour = std::array<std::uint32_t, 3>;
  Colour colourOf(const float* pixel) const {
    return {std::bit_cast<std::uint32_t>(pixel[colour_[0]]), std::bit_cast<std::uint32_t>(pixel[colour_[1]]),
            std::bit_cast<std::uint32_t>(pixel[colour_[2]])};
  }

  int channels_ = 0;
  std::array<int, 3> colour_{};
  Colour first_{};
  bool begun_ = false;
  bool flat_ = true;
};

} // namespace

Inspection check(const CheckRequest& request) {
  if (!request.picture.empty()) {
    return drawSmall(request);
  }
  FlatSink flat;
  Inspection inspection = decode(request.file, request.refuseFlat ? &flat : nullptr);
  if (inspection.problem.empty() && flat.flat()) {
    inspection.problem = "Only one flat colour";
  }
  return inspection;
}

} // namespace trovik::image
