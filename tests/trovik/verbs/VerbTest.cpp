#include "tests/trovik/verbs/VerbTest.h"

#include <cstdlib>
#include <ctime>
#include <regex>

namespace trovik {

VerbTest::VerbTest() {
  setenv("TZ", "UTC", 1);
  tzset();
  setenv("XDG_CONFIG_HOME", directory.file("config").c_str(), 1);
}

Options VerbTest::optionsFor(const std::vector<std::string>& jobs) const {
  Options options;
  options.state = directory.path();
  options.jobs = jobs;
  if (!jobs.empty()) {
    options.job = jobs.front();
  }
  return options;
}

Printed VerbTest::call(Verb verb, const Options& options, bool terminal) {
  Printed printed;
  Console console([&](std::string_view bytes) { printed.out += bytes; },
                  [&](std::string_view bytes) { printed.error += bytes; }, {terminal, terminal, false, false},
                  [] { return std::size_t{80}; });
  Session session(options, console);
  printed.code = verb(session);
  return printed;
}

Printed VerbTest::steady(Verb verb, const Options& options, bool terminal) const {
  Printed printed = call(verb, options, terminal);
  for (std::string* text : {&printed.out, &printed.error}) {
    for (std::size_t at = 0; (at = text->find(directory.path(), at)) != std::string::npos;) {
      text->replace(at, directory.path().size(), "DIR");
    }
    *text = std::regex_replace(*text, std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)"), "DATE");
    *text = std::regex_replace(*text, std::regex(R"(\(\d+ (s|min) ago\))"), "(TIME ago)");
    *text = std::regex_replace(*text, std::regex(R"(work \d+ s ago)"), "work TIME ago");
    *text = std::regex_replace(*text, std::regex(R"(for \d+(\.\d)? s)"), "for TIME");
    *text = std::regex_replace(*text, std::regex(R"(DATE \(TIME ago\), took \d+(\.\d)? s)"),
                               "DATE (TIME ago), took TIME");
  }
  return printed;
}

FileRecord VerbTest::image(int frame, const std::string& path, const std::string& problem) {
  FileRecord record = file(path, problem);
  record.frame = frame;
  return record;
}

void VerbTest::workOff(const std::function<std::string(int frame)>& failing) {
  while (true) {
    const std::vector<Claim> claims = store.claim(engine, 1, std::nullopt);
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
      outcome.files.push_back(image(frame, "/out/" + std::to_string(frame) + ".png"));
    }
    outcome.duration = std::chrono::seconds(2) * claim.run.Count();
    store.settle(outcome);
  }
}

} // namespace trovik
