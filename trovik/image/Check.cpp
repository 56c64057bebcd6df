#include "trovik/image/Check.h"

#include "trovik/image/Channels.h"
#include "trovik/image/Decoder.h"

#include <array>
#include <cstring>

namespace trovik::image {
namespace {

/// Whether all pixels have the colour of the first.
class FlatSink final : public PixelSink {
public:
  void begin(const OIIO::ImageSpec& spec, const std::string& /*format*/) override {
    channels_ = spec.nchannels;
    colour_ = channelsOf(spec).colour;
  }

  void take(const Piece& piece) override {
    const auto stride = static_cast<std::size_t>(channels_);
    const std::size_t count = static_cast<std::size_t>(piece.width) * static_cast<std::size_t>(piece.height);
    if (!begun_) {
      first_ = colourOf(piece.pixels);
      begun_ = true;
    }
    for (std::size_t i = 0; flat_ && i < count; ++i) {
      // Bytes, since a picture of nothing but NaN is flat, too.
      const std::array<float, 3> colour = colourOf(piece.pixels + i * stride);
      flat_ = std::memcmp(colour.data(), first_.data(), sizeof colour) == 0;
    }
  }

  bool flat() const { return begun_ && flat_; }

private:
  std::array<float, 3> colourOf(const float* pixel) const {
    return {pixel[colour_[0]], pixel[colour_[1]], pixel[colour_[2]]};
  }

  int channels_ = 0;
  std::array<int, 3> colour_{};
  std::array<float, 3> first_{};
  bool begun_ = false;
  bool flat_ = true;
};

} // namespace

Inspection check(const CheckRequest& request) {
  FlatSink flat;
  Inspection inspection = decode(request.file, request.refuseFlat ? &flat : nullptr);
  if (inspection.problem.empty() && flat.flat()) {
    inspection.problem = "Only one flat colour";
  }
  return inspection;
}

} // namespace trovik::image
