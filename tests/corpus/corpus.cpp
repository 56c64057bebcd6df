// Has the saved logs of real programs judged by the shipped types, and compares
// what comes out with what is written down.
//
//   corpus check HELPER MODULES RUNS PAGE    one program's runs
//   corpus print HELPER MODULES RUNS         the same runs as a file to keep
//   corpus names PAGE RUNS...                whether the page tells of each file
//
// HELPER is trovik-image. The runs are judged as "trovik replay" does it, all in
// this process: starting the program for each took most of the time.
//
// RUNS is PROGRAM.txt: the type, then a block for each run of the program. A
// line is a word, a blank and a text:
//
//   case     its name; the log is logs/PROGRAM-CASE.log
//   command  what was started
//   exit     how it ended, as "trovik replay --exit" takes it
//   truth    good or bad, as somebody judged who looked at the images
//   type     another type than the program's main one
//   left     what a file that it left held (nothing, something, flat: an image
//            of one colour) and its name
//   expect   a file that its user wanted; none where only output and exit
//            code are to decide
//   output   the verdict without files
//   files    the verdict with them
//   note     of the verdict without files; none where it has none
//   image    a name that was cut from the log
//
// The last four are what replay has to say. For the look at the files they are
// made again below a temporary directory: a small image, other bytes, or
// nothing where the program had left nothing.
//
// A bad run that neither output nor exit code tells must have a row on the page:
// "| `PROGRAM CASE` | files | why |", or "nothing" where files do not tell it
// either. The page has a row for each program with its numbers, too: good runs;
// bad runs; of these those that end with an exit code; that only their output
// tells; that only files tell; that nothing tells.

#include "host/foundation/Exception.h"
#include "trovik/images/ImageHelper.h"
#include "trovik/jobs/JobSetup.h"
#include "trovik/jobs/Types.h"
#include "trovik/jobs/WorkMaker.h"
#include "trovik/replay/Replay.h"
#include "trovik/text/Console.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/Session.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace trovik {
namespace {

namespace fs = std::filesystem;

const std::string farm = "/mnt/renderset"; // where the programs ran

struct File {
  std::string name;
  std::string holds; // "nothing", "something" or "flat"
};

/// What replay says of a run.
struct Said {
  std::string output;
  std::string files;
  std::string note;
  std::vector<std::string> images;
  bool operator==(const Said&) const = default;
};

struct Run {
  std::string name;
  std::string type;
  std::string command;
  std::string exit;
  std::string truth;
  std::vector<File> left;
  std::vector<std::string> expected;
  Said said;
};

struct Program {
  std::string name;
  std::string type;
  std::vector<Run> runs;
};

std::string readFile(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream) {
    throw std::runtime_error("cannot read " + file.string());
  }
  return {std::istreambuf_iterator<char>(stream), {}};
}

void writeFile(const fs::path& file, const std::string& bytes) {
  fs::create_directories(file.parent_path());
  std::ofstream stream(file, std::ios::binary);
  stream << bytes;
  if (!stream.flush()) {
    throw std::runtime_error("cannot write " + file.string());
  }
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

void takeLine(Program& program, const std::string& word, const std::string& text) {
  if (word == "type") {
    (program.runs.empty() ? program.type : program.runs.back().type) = text;
    return;
  }
  if (word == "case") {
    program.runs.push_back({});
    program.runs.back().name = text;
    return;
  }
  Run& run = program.runs.at(program.runs.size() - 1);
  if (word == "left") {
    const std::size_t blank = text.find(' ');
    run.left.push_back({text.substr(blank + 1), text.substr(0, blank)});
    return;
  }
  const std::map<std::string, std::string*> texts = {{"command", &run.command},  {"exit", &run.exit},
                                                     {"truth", &run.truth},      {"output", &run.said.output},
                                                     {"files", &run.said.files}, {"note", &run.said.note}};
  if (const auto known = texts.find(word); known != texts.end()) {
    *known->second = text;
  } else if (word == "expect") {
    run.expected.push_back(text);
  } else if (word == "image") {
    run.said.images.push_back(text);
  } else {
    throw std::runtime_error("unknown word \"" + word + "\"");
  }
}

Program readRuns(const fs::path& file) {
  Program program;
  program.name = file.stem().string();
  std::istringstream lines(readFile(file));
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (line.empty() || line.front() == '#') {
      continue;
    }
    const std::size_t blank = line.find(' ');
    try {
      takeLine(program, line.substr(0, blank), blank == std::string::npos ? "" : line.substr(blank + 1));
    } catch (const std::exception& error) {
      throw std::runtime_error(file.string() + ":" + std::to_string(number) + ": " + error.what());
    }
  }
  for (const Run& run : program.runs) {
    if ((run.truth != "good" && run.truth != "bad") || run.exit.empty()) {
      throw std::runtime_error(file.string() + ": the case " + run.name + " lacks its truth or its end");
    }
  }
  if (program.runs.empty()) {
    throw std::runtime_error(file.string() + ": there is no case");
  }
  return program;
}

/// A directory of its own, gone at the end.
class Scratch {
public:
  Scratch() {
    std::string pattern = (fs::temp_directory_path() / "trovik-corpus-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      throw std::runtime_error("cannot make a temporary directory");
    }
    path_ = fs::canonical(pattern);
  }
  ~Scratch() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  const fs::path& path() const { return path_; }

private:
  fs::path path_;
};

class Judge {
public:
  Judge(const std::string& helper, const std::string& modules, const fs::path& runs)
      : helper_(Path(helper)), directory_(runs.parent_path()) {
    for (const char* name : {"XDG_CONFIG_HOME", "XDG_STATE_HOME", "XDG_DATA_HOME", "HOME"}) {
      setenv(name, scratch_.path().c_str(), 1); // NOLINT(concurrency-mt-unsafe): one thread
    }
    for (const char* name : {"TROVIK_MODULE_PATH", "TROVIK_SETTINGS", "TROVIK_OPTIONS"}) {
      unsetenv(name); // NOLINT(concurrency-mt-unsafe)
    }
    common_.modulePath = modules;
    session_.emplace(common_, console_);
    session_->loadModules();
  }

  Said judge(const Program& program, const Run& run) {
    const std::string log = readFile(directory_ / "logs" / (program.name + "-" + run.name + ".log"));
    const std::string& type = run.type.empty() ? program.type : run.type;
    const ReplayResult plain = replay(type, log, run.exit, nullptr);
    Said said;
    said.output = plain.good ? "good" : "bad";
    said.note = plain.note;
    said.images.assign(plain.images.begin(), plain.images.end());
    if (!run.expected.empty()) {
      const fs::path place = scratch_.path() / run.name;
      for (const File& file : run.left) {
        writeFile(replaced(file.name, farm, place.string()), contentOf(file));
      }
      std::string expected;
      for (const std::string& name : run.expected) {
        expected += (expected.empty() ? "" : ";") + ("\"" + replaced(name, farm, place.string()) + "\"");
      }
      const std::string here = replaced(log, farm, place.string());
      said.files = replay(type, here, run.exit, &expected).good ? "good" : "bad";
    }
    return said;
  }

private:
  /// A run whose log this is; judged with the files that are expected of it,
  /// where there are any.
  ReplayResult replay(const std::string& type, const std::string& log, const std::string& exit,
                      const std::string* expected) {
    JobSetup setup(findType(type), session_->detection());
    if (expected != nullptr) {
      setup.set("ExpectedFiles", *expected, "expect");
    }
    setup.detect();
    WorkInfo work;
    work.hasFrames = false;
    Replay replay(WorkMaker(*setup.job()).make(work), [](const ReplayedLine&) {});
    replay.feed(log);
    return replay.finish(exitFrom(exit), expected == nullptr ? nullptr : &helper_, machine_);
  }

  std::string contentOf(const File& file) const {
    if (file.holds == "nothing") {
      return {};
    }
    const fs::path sample =
        directory_ / "files" /
        ((file.holds == "flat" ? "flat" : "sample") + fs::path(file.name).extension().string());
    return fs::exists(sample) ? readFile(sample) : "no image, but not empty";
  }

  Scratch scratch_;
  LocalMachine machine_;
  ImageHelper helper_;
  fs::path directory_;
  CommonOptions common_;
  Console console_{[](std::string_view) {}, [](std::string_view) {}, {}, [] { return std::size_t{80}; }};
  std::optional<Session> session_;
};

std::string textOf(const Said& said) {
  std::string text = "output " + said.output + '\n';
  text += said.files.empty() ? "" : "files " + said.files + '\n';
  text += said.note.empty() ? "" : "note " + said.note + '\n';
  for (const std::string& image : said.images) {
    text += "image " + image + '\n';
  }
  return text;
}

std::string textOf(const Run& run, const Said& said) {
  std::string text = "case " + run.name + (run.type.empty() ? "" : "\ntype " + run.type) + "\ncommand " +
                     run.command + "\nexit " + run.exit + "\ntruth " + run.truth + '\n';
  for (const File& file : run.left) {
    text += "left " + file.holds + " " + file.name + '\n';
  }
  for (const std::string& name : run.expected) {
    text += "expect " + name + '\n';
  }
  return text + textOf(said);
}

const std::string& verdictOf(const Said& said) {
  return said.files.empty() ? said.output : said.files;
}

/// The rows of the page's tables that begin with a text in backquotes, by that
/// text.
std::map<std::string, std::string> rowsOf(const fs::path& page) {
  std::map<std::string, std::string> rows;
  std::istringstream lines(readFile(page));
  for (std::string line; std::getline(lines, line);) {
    const std::size_t end = line.find("` |");
    if (line.starts_with("| `") && end != std::string::npos) {
      rows[line.substr(3, end - 3)] = line.substr(end + 2);
    }
  }
  return rows;
}

int check(Judge& judge, const Program& program, const fs::path& page) {
  const std::map<std::string, std::string> rows = rowsOf(page);
  int failures = 0;
  const auto complain = [&failures](const std::string& text) {
    std::cout << text << '\n';
    ++failures;
  };
  int good = 0;
  int byCode = 0;
  int byOutput = 0;
  int byFiles = 0;
  int untold = 0;
  for (const Run& run : program.runs) {
    const Said said = judge.judge(program, run);
    if (!(said == run.said)) {
      complain(run.name + ": replay says\n" + textOf(said) + "but is to say\n" + textOf(run.said));
    }
    const bool right = verdictOf(said) == run.truth;
    std::string teller; // as the page has it
    if (run.truth == "good") {
      ++good;
      if (!right || said.output != "good") {
        complain(run.name + ": a good run is called bad");
      }
    } else if (said.output == "bad") {
      ++(run.exit == "0" ? byOutput : byCode);
      if (!right) {
        complain(run.name + ": its files make a bad run good");
      }
    } else {
      ++(right ? byFiles : untold);
      teller = right ? "files" : "nothing";
    }
    const auto row = rows.find(program.name + " " + run.name);
    if (teller.empty() && row != rows.end()) {
      complain(run.name + ": output or exit code tell it, but the page says otherwise");
    }
    if (!teller.empty() && (row == rows.end() || !row->second.starts_with("| " + teller + " | "))) {
      complain(run.name + ": the page is to say that " + teller + " tells it, and why");
    }
  }
  const auto numbers = rows.find(program.name);
  std::string told = "|";
  for (const int number : {good, byCode + byOutput + byFiles + untold, byCode, byOutput, byFiles, untold}) {
    told += " " + std::to_string(number) + " |";
  }
  if (numbers == rows.end() || numbers->second != told) {
    complain("the page's row is to be\n| `" + program.name + "` " + told);
  }
  return failures == 0 ? 0 : 1;
}

/// Every row of the page is of a program or run that there is.
int checkNames(const fs::path& page, const std::vector<std::string>& files) {
  std::set<std::string> known;
  for (const std::string& file : files) {
    const Program program = readRuns(file);
    known.insert(program.name);
    for (const Run& run : program.runs) {
      known.insert(program.name + " " + run.name);
    }
  }
  int result = 0;
  for (const auto& [name, row] : rowsOf(page)) {
    if (!known.contains(name)) {
      std::cout << "there is no run \"" << name << "\"\n";
      result = 1;
    }
  }
  return result;
}

int run(const std::vector<std::string>& words) {
  if (words.at(0) == "names") {
    return checkNames(words.at(1), {words.begin() + 2, words.end()});
  }
  const Program program = readRuns(words.at(3));
  Judge judge(words.at(1), words.at(2), words.at(3));
  if (words.at(0) == "check") {
    return check(judge, program, words.at(4));
  }
  std::cout << "type " << program.type << '\n';
  for (const Run& each : program.runs) {
    std::cout << '\n' << textOf(each, judge.judge(program, each));
  }
  return 0;
}

} // namespace
} // namespace trovik

int main(int count, char** arguments) {
  try {
    return trovik::run({arguments + 1, arguments + count});
  } catch (const trovik::UsageError& error) {
    std::cerr << "corpus: " << error.message << '\n';
  } catch (...) { // also what a module throws
    std::cerr << "corpus: " << TakeCaughtText() << '\n';
  }
  return 2;
}
