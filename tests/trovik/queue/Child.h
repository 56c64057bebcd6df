#pragma once

#include "trovik/queue/QueueError.h"

#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace trovik {

/// A process that runs a function, and the lines that it writes.
class Child {
public:
  using Tell = std::function<void(const std::string& line)>;

  explicit Child(const std::function<void(const Tell& tell)>& action) {
    int ends[2];
    if (pipe(ends) != 0) {
      throw std::runtime_error("no pipe");
    }
    process_ = fork();
    if (process_ == 0) {
      close(ends[0]);
      int code = 0;
      try {
        action([&](const std::string& line) {
          const std::string text = line + '\n';
          if (write(ends[1], text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
            _exit(3);
          }
        });
      } catch (const QueueError& error) {
        const std::string text = "error " + error.message + '\n';
        code = write(ends[1], text.data(), text.size()) < 0 ? 3 : 2;
      }
      _exit(code);
    }
    close(ends[1]);
    output_ = ends[0];
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// Waits for its end; every line that it wrote.
  std::vector<std::string> finish() {
    std::string text;
    char buffer[65536];
    for (ssize_t size = 0; (size = read(output_, buffer, sizeof buffer)) > 0;) {
      text.append(buffer, static_cast<std::size_t>(size));
    }
    close(output_);
    waitpid(process_, &status, 0);
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
      lines.push_back(line);
    }
    return lines;
  }

  int status = -1;

private:
  pid_t process_ = -1;
  int output_ = -1;
};

} // namespace trovik
