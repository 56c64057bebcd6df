#include "trovik/imagetool/Server.h"

#include <cstdlib>
#include <optional>

namespace trovik::image {

void serve(std::FILE* requests, std::FILE* answers, const Checker& check) {
  char* line = nullptr;
  std::size_t room = 0;
  ssize_t length = 0;
  while ((length = getline(&line, &room, requests)) > 0) {
    const auto request = requestFrom({line, static_cast<std::size_t>(length)});
    const std::string answer =
        answerLine(request ? check(*request) : Inspection{"Is no request", false, 0, 0});
    if (std::fwrite(answer.data(), 1, answer.size(), answers) != answer.size() || std::fflush(answers) != 0) {
      break;
    }
  }
  std::free(line);
}

} // namespace trovik::image
