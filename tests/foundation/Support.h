#pragma once

#include "host/foundation/Exception.h"
#include "host/foundation/Path.h"

#include <rapidcheck.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

/// A directory of its own below the system's directory for temporary files;
/// removed with its contents.
class TemporaryDirectory {
public:
  TemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "trovik-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("no temporary directory");
    }
    m_Root = name;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_Root, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  Path operator/(const std::string& name) const { return Path((m_Root / name).string()); }

  /// The sorted names of what the directory holds.
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(m_Root)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

private:
  std::filesystem::path m_Root;
};

inline void WriteFile(const Path& file, std::string_view bytes) {
  std::ofstream stream(file.c_str(), std::ios::binary);
  stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!stream.flush()) {
    throw std::runtime_error("cannot write " + file.Text());
  }
}

inline std::string ReadFile(const Path& file) {
  std::ifstream stream(file.c_str(), std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

/// What the Exception says that an action raises.
template <typename Action> String RaisedText(Action&& action) {
  try {
    action();
  } catch (Exception* exception) {
    String text = exception->Text();
    delete exception;
    return text;
  }
  return "nothing was raised";
}

/// The code of the Exception that an action raises, or 0.
template <typename Action> int RaisedCode(Action&& action) {
  try {
    action();
  } catch (Exception* exception) {
    const int code = exception->Code();
    delete exception;
    return code;
  }
  return 0;
}

/// Random texts of the bytes `first` to 255.
inline rc::Gen<std::string> Texts(int first) {
  return rc::gen::container<std::string>(
      rc::gen::map(rc::gen::inRange(first, 256), [](int byte) { return static_cast<char>(byte); }));
}

/// Random texts that are put together from some pieces.
inline rc::Gen<std::string> TextsOf(const std::vector<std::string>& pieces) {
  return rc::gen::map(rc::gen::container<std::vector<std::string>>(rc::gen::elementOf(pieces)),
                      [](const std::vector<std::string>& parts) {
                        std::string text;
                        for (const std::string& part : parts) {
                          text += part;
                        }
                        return text;
                      });
}
