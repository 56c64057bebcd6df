#include "trovik/imagetool/Formats.h"

#include <filesystem>
#include <map>
#include <set>

namespace trovik::image {
namespace {

const std::set<std::string> sharedExtensions = {"z", "int", "inta", "bw", "env", "sm", "vsm", "pic"};

} // namespace

std::string extensionOf(const std::string& file) {
  std::string extension = std::filesystem::path(file).extension().string();
  extension.erase(0, 1);
  for (char& character : extension) {
    if (character >= 'A' && character <= 'Z') {
      character = static_cast<char>(character - 'A' + 'a');
    }
  }
  return extension;
}

std::string formatOf(const std::string& extension) {
  // All that OpenImageIO 2.4 reads (a test compares), but for "null", "term",
  // "ffmpeg", "openvdb" and "raw", which are no images, and for "cineon",
  // "softimage" and "zfile", which nobody renders any more: their readers find
  // nothing wrong with half a file.
  static const std::map<std::string, std::string> formats = {
      {"avif", "heif"}, {"bmp", "bmp"},      {"bw", "sgi"},    {"dcm", "dicom"},   {"dds", "dds"},
      {"dib", "bmp"},   {"dpx", "dpx"},      {"env", "tiff"},  {"exr", "openexr"}, {"fits", "fits"},
      {"gif", "gif"},   {"hdr", "hdr"},      {"heic", "heif"}, {"heics", "heif"},  {"heif", "heif"},
      {"ico", "ico"},   {"iff", "iff"},      {"int", "sgi"},   {"inta", "sgi"},    {"j2c", "jpeg2000"},
      {"jfi", "jpeg"},  {"j2k", "jpeg2000"}, {"jfif", "jpeg"}, {"jif", "jpeg"},    {"jp2", "jpeg2000"},
      {"jpe", "jpeg"},  {"jpeg", "jpeg"},    {"jpg", "jpeg"},  {"mxr", "openexr"}, {"pbm", "pnm"},
      {"pdd", "psd"},   {"pfm", "pnm"},      {"pgm", "pnm"},   {"png", "png"},     {"pnm", "pnm"},
      {"ppm", "pnm"},   {"psb", "psd"},      {"psd", "psd"},   {"rgb", "sgi"},     {"rgba", "sgi"},
      {"rgbe", "hdr"},  {"rla", "rla"},      {"sgi", "sgi"},   {"sm", "tiff"},     {"sxr", "openexr"},
      {"tga", "targa"}, {"tif", "tiff"},     {"tiff", "tiff"}, {"tpic", "targa"},  {"tx", "tiff"},
      {"vsm", "tiff"},  {"webp", "webp"},    {"z", "iff"}};
  const auto found = formats.find(extension);
  return found == formats.end() ? std::string() : found->second;
}

bool isSharedExtension(const std::string& extension) {
  return sharedExtensions.contains(extension);
}

bool isImageName(const std::string& file) {
  const std::string extension = extensionOf(file);
  return isSharedExtension(extension) || !formatOf(extension).empty();
}

} // namespace trovik::image
