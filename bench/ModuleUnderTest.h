#pragma once

#include <string>

namespace bench {

/// The built module, opened for its exported symbols. Stays open.
class ModuleUnderTest {
public:
  ModuleUnderTest();

  template <typename Function> Function* symbol(const char* name) const {
    return reinterpret_cast<Function*>(address(name));
  }

  /// The directory that the module lies in.
  static std::string directory();

private:
  void* address(const char* name) const;

  void* library_;
};

} // namespace bench
