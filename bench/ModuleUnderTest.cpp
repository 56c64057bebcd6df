#include "bench/ModuleUnderTest.h"

#include "bench/Race.h"

#include <dlfcn.h>

#include <filesystem>

namespace bench {

ModuleUnderTest::ModuleUnderTest() : library_(dlopen(BENCH_MODULE, RTLD_NOW | RTLD_LOCAL)) {
  require(library_ != nullptr, "cannot load " BENCH_MODULE);
}

void* ModuleUnderTest::address(const char* name) const {
  void* symbol = dlsym(library_, name);
  require(symbol != nullptr, std::string("the module exports no ") + name);
  return symbol;
}

std::string ModuleUnderTest::directory() {
  return std::filesystem::path(BENCH_MODULE).parent_path().string();
}

} // namespace bench
