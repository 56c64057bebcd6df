#pragma once

#include "host/foundation/Path.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

/// An empty directory that goes with its test.
class TestDirectory {
public:
  TestDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "trovik-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      std::abort();
    }
    m_Text = name;
  }
  ~TestDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_Text, ignored);
  }
  TestDirectory(const TestDirectory&) = delete;
  TestDirectory& operator=(const TestDirectory&) = delete;

  const std::string& Text() const { return m_Text; }
  std::string File(const std::string& name) const { return m_Text + "/" + name; }
  void Write(const std::string& name, const std::string& bytes = "") const {
    std::ofstream(File(name), std::ios::binary) << bytes;
  }
  void MakeDirectory(const std::string& name) const { std::filesystem::create_directory(File(name)); }
  void Link(const std::string& name, const std::string& target) const {
    std::filesystem::create_symlink(target, File(name));
  }

private:
  std::string m_Text;
};
