#include "trovik/verbs/ShotFile.h"

#include "host/foundation/Exception.h"
#include "host/foundation/IniFile.h"
#include "trovik/images/ImageHelper.h"
#include "trovik/machine/Locations.h"
#include "trovik/reports/DryRun.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/EngineRun.h"
#include "trovik/verbs/Limits.h"
#include "trovik/verbs/Submission.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <system_error>
#include <unistd.h>

namespace trovik {
namespace {

/// Where in the file, for messages: "shot.ini:12".
std::string placeText(const std::string& file, const TextPlace& place) {
  return file + ':' + std::to_string(place.Line);
}

[[noreturn]] void refuse(const std::string& file, const TextPlace& place, const std::string& message,
                         const std::string& hint) {
  throw UsageError{placeText(file, place) + ": " + message, hint};
}

/// A path of the file, which counts from its folder. Of a folder that is no
/// link, "../" before a path is its parent.
std::string besides(const std::string& file, std::string path) {
  if (path.empty() || path.front() == '/') {
    return path;
  }
  std::error_code error;
  std::filesystem::path folder =
      std::filesystem::canonical(std::filesystem::path(absolutePath(file).c_str()).parent_path(), error);
  if (error) {
    return path; // the file cannot be read either
  }
  while (path.starts_with("../") || path.starts_with("./")) {
    folder = path.starts_with("../") ? folder.parent_path() : folder;
    path.erase(0, path.find('/') + 1);
  }
  return (folder / path).string();
}

std::vector<std::string> namesIn(const std::string& text) {
  std::vector<std::string> names;
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t end = std::min(text.find_first_of(",;", at), text.size());
    const std::string name(trimmed(std::string_view(text).substr(at, end - at)));
    if (!name.empty()) {
      names.push_back(name);
    }
    at = end + 1;
  }
  return names;
}

ShotJob jobOf(const std::string& file, const IniFile& ini, const String& section,
              const MakingOptions& common) {
  ShotJob job;
  job.name = section;
  job.options = common;
  job.options.type.reset();
  for (const IniFile::EntryView& entry : ini.Entries(section)) {
    const String key(entry.Key);
    const std::string value(entry.Value);
    const auto is = [&](const char* name) { return String::EqualNoCase(key, name); };
    const auto once = [&](std::optional<std::string>& target, const std::string& text) {
      if (target) {
        refuse(file, entry.KeyPlace, inQuotes(std::string(key)) + " is given twice", "leave one of them out");
      }
      target = text;
    };
    if (is("Type")) {
      once(job.options.type, value.ends_with(".tvx") ? besides(file, value) : value);
    } else if (is("Scene")) {
      once(job.options.scene, besides(file, value));
    } else if (is("Range")) {
      once(job.options.range, value);
    } else if (is("Out")) {
      once(job.options.out, besides(file, value));
    } else if (is("LogDir")) {
      once(job.options.logDirectory, besides(file, value));
    } else if (is("OnEnd")) {
      once(job.options.endCommand, value);
    } else if (is("After")) {
      job.after = namesIn(value);
    } else if (is("AfterFrames")) {
      job.afterFrames = namesIn(value);
    } else if (is("Engine") && !common.engine) {
      once(job.options.engine, value);
    } else if (!is("Engine")) { // what the command line says for all counts more
      job.options.sets.push_back(std::string(key) + '=' + value);
    }
  }
  if (!job.options.type) {
    refuse(file, ini.SectionPlace(section), "the job [" + job.name + "] has no type", "add Type=NAME");
  }
  return job;
}

/// The names of sections that a job waits for, without what stands behind them.
std::vector<std::string> forerunnersOf(const ShotJob& job) {
  std::vector<std::string> names = job.after;
  for (const std::string& text : job.afterFrames) {
    names.push_back(text.substr(0, text.find(':')));
  }
  return names;
}

bool isNumber(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

/// Those that others wait for first, else in their order.
std::vector<ShotJob> inOrder(const std::string& file, const IniFile& ini, std::vector<ShotJob> jobs) {
  std::vector<ShotJob> ordered;
  const auto isPlaced = [&](const std::string& name) {
    return isNumber(name) || std::any_of(ordered.begin(), ordered.end(), [&](const ShotJob& job) {
             return String::EqualNoCase(job.name, name);
           });
  };
  while (!jobs.empty()) {
    const auto next = std::find_if(jobs.begin(), jobs.end(), [&](const ShotJob& job) {
      const std::vector<std::string> names = forerunnersOf(job);
      return std::all_of(names.begin(), names.end(), isPlaced);
    });
    if (next == jobs.end()) {
      const ShotJob& job = jobs.front();
      std::string circle = job.name;
      for (const std::string& name : forerunnersOf(job)) {
        circle += isPlaced(name) ? "" : ", " + name;
      }
      refuse(file, ini.SectionPlace(job.name), "jobs wait for each other in a circle: " + circle,
             "take one After= out");
    }
    ordered.push_back(std::move(*next));
    jobs.erase(next);
  }
  return ordered;
}

} // namespace

bool isShotFile(const std::string& word) {
  const bool isShot = word.ends_with(".ini");
  if (isShot && access(word.c_str(), F_OK) != 0) {
    throw UsageError{"there is no shot " + inQuotes(word), "check the name and the directory"};
  }
  return isShot;
}

std::vector<ShotJob> readShot(const std::string& file, const MakingOptions& common) {
  IniFile ini(true);
  ini.SetFilename(Path(file));
  orRefuse("", "", [&] { ini.Load(true, true); });
  if (!ini.Oddities().empty()) {
    refuse(file, ini.Oddities().front().Place,
           "this line is no section, no entry and no comment: " +
               inQuotes(printable(ini.Oddities().front().Text, OddBytes::Show)),
           "write KEY=VALUE below a [SECTION], or a semicolon before a comment");
  }
  std::vector<ShotJob> jobs;
  for (const String& section : ini.SectionNames()) {
    jobs.push_back(jobOf(file, ini, section, common));
  }
  if (jobs.empty()) {
    throw UsageError{"the shot " + inQuotes(file) + " has no jobs",
                     "write a [SECTION] for each, with Type=NAME"};
  }
  for (const ShotJob& job : jobs) {
    for (const std::string& name : forerunnersOf(job)) {
      const bool known = isNumber(name) || std::any_of(jobs.begin(), jobs.end(), [&](const ShotJob& other) {
                           return String::EqualNoCase(other.name, name);
                         });
      if (!known) {
        refuse(file, ini.SectionPlace(job.name),
               "the job [" + job.name + "] waits for " + inQuotes(name) + ", which is no section",
               "write the name of a section, or the number of a job");
      }
    }
  }
  return inOrder(file, ini, std::move(jobs));
}

namespace {

/// What a shot file says, or each of its jobs for itself.
void refuseForOneJob(const MakingOptions& options) {
  for (const auto& [given, name] :
       {std::pair(options.scene.has_value(), "SCENE"), std::pair(!options.sets.empty(), "--set"),
        std::pair(options.range.has_value(), "--range"), std::pair(options.packet.has_value(), "--packet"),
        std::pair(options.out.has_value(), "--out"), std::pair(!options.after.empty(), "--after"),
        std::pair(!options.afterFrames.empty(), "--after-frames"),
        std::pair(options.endCommand.has_value(), "--on-end"),
        std::pair(options.logDirectory.has_value(), "--log-dir")}) {
    if (given) {
      throw UsageError{std::string(name) + " is for one job, and a shot has several",
                       "write it into the file, in the section of the job"};
    }
  }
}

/// A job of the shot, as it was entered.
struct Entered {
  std::string name;
  std::unique_ptr<Submission> submission;
  EnteredJob job;
};

/// Names of sections, with what stands behind them, as numbers of jobs.
std::vector<std::string> numbered(const std::vector<std::string>& texts,
                                  const std::vector<Entered>& entered) {
  std::vector<std::string> result;
  for (const std::string& text : texts) {
    const std::size_t colon = text.find(':');
    const auto found = std::find_if(entered.begin(), entered.end(), [&](const Entered& one) {
      return String::EqualNoCase(one.name, text.substr(0, colon));
    });
    result.push_back(found == entered.end() ? text
                                            : std::to_string(found->job.id) +
                                                  (colon == std::string::npos ? "" : text.substr(colon)));
  }
  return result;
}

} // namespace

int submitShot(Session& session, const MakingOptions& options) {
  Console& console = session.console();
  refuseForOneJob(options);
  std::vector<ShotJob> jobs = readShot(*options.type, options);
  Queue queue(session.state());
  tellLimits(queue);
  LocalMachine machine;
  ImageHelper images(options.missing ? imageHelper(session) : session.locations().imageHelper());
  struct Undo {};
  std::vector<Entered> entered;
  try {
    // Whoever is killed in between leaves all of the jobs or none.
    queue.inTransaction([&] {
      entered.clear();
      for (ShotJob& job : jobs) {
        try {
          job.options.after = numbered(job.after, entered);
          job.options.afterFrames = numbered(job.afterFrames, entered);
          auto submission = std::make_unique<Submission>(session, job.options, queue);
          submission->tryFirstWork();
          submission->checkFiles(queue, images, machine);
          const EnteredJob one = submission->enter(queue);
          entered.push_back({job.name, std::move(submission), one});
        } catch (const UsageError& error) {
          throw UsageError{*options.type + ": [" + job.name + "]: " + error.message, error.hint};
        }
      }
      if (options.dryRun) {
        throw Undo{};
      }
    });
  } catch (const Undo&) {
    for (const Entered& one : entered) {
      if (!options.json) {
        console.print("# [" + console.shown(one.name) + "]\n");
      }
      printDryRun(console, one.submission->newJob(), options.json);
    }
    return exitGood;
  }
  bool local = false;
  for (const Entered& one : entered) {
    if (one.submission->newJob().runOn == RunOn::Cluster) {
      submitToCluster(session, queue, one.job.id, options.json);
    } else {
      local = true;
    }
    tellSubmitted(console, queue, one.submission->newJob(), one.job, options.json, one.name);
  }
  if (local && !options.json && !queue.hasOtherEngine(0)) {
    console.print("No engine is at work; start one with \"trovik engine\"\n");
  }
  return exitGood;
}

} // namespace trovik
