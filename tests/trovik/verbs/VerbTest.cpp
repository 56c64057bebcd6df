#include "tests/trovik/verbs/VerbTest.h"

#include <cstdlib>
#include <ctime>
#include <string_view>
#include <sys/stat.h>

extern const char* const IMAGE_HELPER;

namespace trovik {
namespace {

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

void hideDates(std::string& text) {
  constexpr std::string_view shape = "dddd-dd-dd dd:dd:dd";
  for (std::size_t at = 0; at + shape.size() <= text.size(); ++at) {
    std::size_t fits = 0;
    while (fits < shape.size() &&
           (shape[fits] == 'd' ? isDigit(text[at + fits]) : shape[fits] == text[at + fits])) {
      ++fits;
    }
    if (fits == shape.size()) {
      text.replace(at, shape.size(), "DATE");
    }
  }
}

/// Writes TIME for a short text between two others that begins with a digit;
/// a unit " s" that stands behind it goes with it.
void hideTime(std::string& text, const std::string& before, const std::string& after) {
  for (std::size_t at = 0; (at = text.find(before, at)) != std::string::npos;) {
    at += before.size();
    const std::size_t end = text.find(after, at);
    if (end != std::string::npos && end - at < 12 && isDigit(text[at])) {
      text.replace(at, end - at + (after == " s" ? after.size() : 0), "TIME");
    }
  }
}

} // namespace

VerbTest::VerbTest() {
  setenv("TZ", "UTC", 1);
  tzset();
  setenv("XDG_CONFIG_HOME", directory.file("config").c_str(), 1);
  setenv("TROVIK_IMAGE_HELPER", IMAGE_HELPER, 1);
}

Printed VerbTest::printedBy(const CommonOptions& options, bool terminal,
                            const std::function<int(Session& session)>& verb) {
  Printed printed;
  Console console([&](std::string_view bytes) { printed.out += bytes; },
                  [&](std::string_view bytes) { printed.error += bytes; }, {terminal, terminal, false, false},
                  [] { return std::size_t{80}; });
  Session session(options, console);
  printed.code = verb(session);
  return printed;
}

Printed VerbTest::steadied(Printed printed) const {
  for (std::string* text : {&printed.out, &printed.error}) {
    for (std::size_t at = 0; (at = text->find(directory.path(), at)) != std::string::npos;) {
      text->replace(at, directory.path().size(), "DIR");
    }
    hideDates(*text);
    hideTime(*text, "(", " ago)");
    hideTime(*text, "work ", " ago");
    hideTime(*text, "for ", " s");
    hideTime(*text, "DATE (TIME ago), took ", " s");
  }
  return printed;
}

FileRecord VerbTest::image(int frame, const std::string& path, const std::string& problem) {
  FileRecord record = file(path, problem);
  record.frame = frame;
  struct stat status {};
  if (stat(path.c_str(), &status) == 0) {
    record.size = status.st_size;
    record.modified = std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec;
  }
  return record;
}

void VerbTest::workOff(const std::function<std::string(int frame)>& failing) {
  while (true) {
    const std::vector<Claim> claims = queue.claim(engine, 1, std::nullopt);
    if (claims.empty()) {
      return;
    }
    const Claim& claim = claims.front();
    Outcome outcome = good(claim.attempt);
    for (int frame = claim.run.First; frame <= claim.run.Last; ++frame) {
      const std::string reason = failing ? failing(frame) : std::string();
      if (!reason.empty()) {
        outcome = failed(claim.attempt, reason);
        outcome.retryable = false;
        outcome.lines = {"reading", reason.substr(reason.find(": ") + 2), "giving up"};
        outcome.log = directory.file("logs/" + std::string(claim.run.Text()) + ".log");
        outcome.exitCode = 3;
        outcome.command = "sketch " + std::string(claim.run.Text());
        break;
      }
      outcome.good.add({frame, frame});
      outcome.files.push_back(
          image(frame, directory.write("out/" + std::to_string(frame) + ".drw", "image")));
    }
    outcome.duration = std::chrono::seconds(2) * claim.run.Count();
    queue.settle(outcome);
  }
}

} // namespace trovik
