#include "trovik/imagetool/ImageLibrary.h"

#include <chrono>
#include <dlfcn.h>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace trovik::image {
namespace {

/// The library starts threads. A machine that has none now may soon have some.
void start(const ImageLibraryCalls& calls) {
  for (int left = 40;; --left) {
    try {
      calls.limit();
      return;
    } catch (const std::system_error&) {
      if (left == 0) {
        throw std::runtime_error("the system has no threads for it");
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
  }
}

const ImageLibraryCalls& load() {
  // Not by its mere name: nobody else's library is to be found.
  const std::filesystem::path file =
      (std::filesystem::read_symlink("/proc/self/exe").parent_path() / TROVIK_IMAGE_LIBRARY)
          .lexically_normal();
  void* const library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  const void* const calls = library == nullptr ? nullptr : dlsym(library, imageLibraryName);
  if (calls == nullptr) {
    const char* const reason = dlerror(); // NOLINT(concurrency-mt-unsafe): one thread
    throw std::runtime_error(reason == nullptr ? "cannot load " + file.string() : reason);
  }
  return *static_cast<const ImageLibraryCalls*>(calls);
}

} // namespace

const ImageLibraryCalls& ImageLibrary::calls() {
  if (calls_ == nullptr) {
    const ImageLibraryCalls& loaded = load();
    start(loaded);
    calls_ = &loaded;
  }
  return *calls_;
}

} // namespace trovik::image
