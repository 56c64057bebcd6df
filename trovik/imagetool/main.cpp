// trovik-image: everything that knows image formats, as a program of its own.
//
//   trovik-image check          checks files, and makes small pictures of them;
//                               requests and answers are JSON, one a line, see
//                               trovik/images/ImageProtocol.h
//   trovik-image sheet -o FILE  draws the contact sheet that standard input
//                               describes; reports on standard output

#include "trovik/images/ImageProtocol.h"
#include "trovik/imagetool/ImageLibrary.h"
#include "trovik/imagetool/LightCheck.h"
#include "trovik/imagetool/Server.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <optional>
#include <string>
#include <string_view>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool sameFile(int first, int second) {
  struct stat one {};
  struct stat two {};
  return fstat(first, &one) == 0 && fstat(second, &two) == 0 && one.st_dev == two.st_dev &&
         one.st_ino == two.st_ino;
}

/// Standard output, for us alone: what libraries print must not get between
/// the answers. Errors that would go the same way are let go, too.
std::FILE* takeStandardOutput() {
  const int own = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (own < 0 || nothing < 0) {
    return nullptr;
  }
  if (sameFile(STDOUT_FILENO, STDERR_FILENO) && isatty(STDERR_FILENO) == 0) {
    dup2(nothing, STDERR_FILENO);
  }
  dup2(nothing, STDOUT_FILENO);
  close(nothing);
  return fdopen(own, "w");
}

/// The address space of the process. Some formats can only be decoded whole.
constexpr rlim_t memoryLimit = rlim_t{6} << 30U;

/// Sets the limits of this process, and ends it when its parent ends.
void limitProcess() {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const rlimit noCore{0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
#ifndef __SANITIZE_ADDRESS__ // which reserves terabytes of addresses
  const rlimit memory{memoryLimit, memoryLimit};
  setrlimit(RLIMIT_AS, &memory);
#endif
}

int usage() {
  std::fputs("usage: trovik-image check\n"
             "       trovik-image sheet -o FILE\n"
             "A part of trovik, which starts it; see docs/images.md.\n",
             stderr);
  return 2;
}

} // namespace

int main(int count, char** arguments) {
  const std::string_view mode = count > 1 ? arguments[1] : "";
  const bool check = mode == "check" && count == 2;
  const bool sheet = mode == "sheet" && count == 4 && std::string_view(arguments[2]) == "-o";
  if (!check && !sheet) {
    return usage();
  }
  std::FILE* output = takeStandardOutput();
  if (output == nullptr) {
    std::perror("trovik-image: standard output");
    return 1;
  }
  bool good = true;
  try {
    limitProcess();
    trovik::image::ImageLibrary library;
    if (check) {
      trovik::image::LightCheck light;
      trovik::image::serve(stdin, output, [&](const trovik::CheckRequest& request) {
        const std::optional<trovik::Inspection> inspection =
            request.picture.empty() ? light.check(request) : std::nullopt;
        return inspection ? *inspection : library.check(request);
      });
    } else {
      good = library.drawSheet(stdin, output, arguments[3]);
    }
  } catch (const std::exception& exception) {
    const std::string problem = std::string("trovik-image: ") + exception.what();
    std::fprintf(stderr, "%s\n", problem.c_str());
    if (check) { // what it was asked last stays without an answer else
      const std::string answer =
          trovik::answerLine({std::string(trovik::notLookedInto) + problem, false, 0, 0});
      std::fwrite(answer.data(), 1, answer.size(), output);
    }
    good = false;
  }
  return std::fclose(output) == 0 && good ? 0 : 1;
}
