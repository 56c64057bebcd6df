#include "trovik/newtype/TypeAnswers.h"

#include "trovik/newtype/ArgumentWords.h"
#include "trovik/text/Text.h"

#include <algorithm>
#include <cctype>
#include <set>
#include <unistd.h>

namespace trovik {
namespace {

/// One line of what can be shown, so that it is one value of a file.
void checkLine(const std::string& text) {
  if (printable(text, OddBytes::Show) != text) {
    throw UsageError{inQuotes(text) + " holds characters that cannot be shown", "leave them out"};
  }
}

void checkWords(const ArgumentWords& arguments, const std::set<std::string>& allowed,
                const std::string& hint) {
  for (const std::string& word : ArgumentWords::known()) {
    if (arguments.has(word) && !allowed.contains(word)) {
      throw UsageError{word + " means nothing here", hint};
    }
  }
}

bool hasScene(const std::string& scene) {
  return !ArgumentWords(scene).empty();
}

constexpr const char* sceneQuestion =
    "\nHow is it told the scene file? Write SCENE in its place, such as -i SCENE;\n"
    "none if it reads no scene.\n";

constexpr const char* framesQuestion =
    "\nHow is it told the frames?\n"
    "  files               a scene file for each: shot_0001.txt, shot_0002.txt\n"
    "  -s FIRST -e LAST    one scene; the first and the last frame\n"
    "  -f FRAME            one scene; one frame at a time\n"
    "  none                no frames: one start, one result\n";

constexpr const char* outputQuestion =
    "\nHow is it told what to write? OUTPUT is the file, FOLDER the folder for it and\n"
    "NAME the scene's name, such as -o OUTPUT, or --dir=FOLDER; none if it decides.\n";

constexpr const char* extensionQuestion = "\nWhich extension does the file get?\n";

constexpr const char* imageQuestion =
    "\nDoes it print the name of each file that it has written? What stands before it,\n"
    "such as saved: (empty if it does not)\n";

constexpr const char* errorQuestion =
    "\nHow does a line begin that tells an error, such as error: (empty for none)\n";

constexpr const char* successQuestion =
    "\nHow does the line begin that it always prints when all went well (empty for none)\n";

void checkExtension(const std::string& extension) {
  const bool good =
      !extension.empty() && extension.size() <= 32 &&
      std::all_of(extension.begin(), extension.end(),
                  [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '.'; }) &&
      extension.front() != '.' && extension.back() != '.';
  if (!good) {
    throw UsageError{inQuotes(extension) + " is no extension of a file", "such as png, without a point"};
  }
}

/// A text that lines of output are compared with.
void checkOutputText(const std::string& text) {
  checkLine(text);
  if (trimmed(text).empty()) {
    throw UsageError{"an empty text stands in every line", "leave it out"};
  }
}

/// The output arguments that most programs of that kind take.
std::string defaultOutput(Framing framing) {
  return framing == Framing::Range ? "-o FOLDER/NAME_%04d.png" : "-o OUTPUT";
}

class Questions {
public:
  Questions(const AskFunction& ask, const std::function<void(const UsageError&)>& tell)
      : ask_(ask), tell_(tell) {}

  /// The answer that was given, else the user's, else the usual one.
  std::string answer(const char* option, const std::optional<std::string>& given, const std::string& question,
                     const std::string& usual, const std::function<void(const std::string&)>& check) const {
    if (given) {
      std::string text(trimmed(*given));
      try {
        check(text);
      } catch (const UsageError& error) {
        throw UsageError{std::string(option) + ": " + error.message, error.hint};
      }
      return text;
    }
    if (!ask_) {
      check(usual);
      return usual;
    }
    std::string prompt = question;
    if (!usual.empty()) {
      prompt.append("[").append(usual).append("] ");
    }
    prompt += "> ";
    for (;;) {
      const std::optional<std::string> line = ask_(prompt);
      if (!line) {
        throw UsageError{"the answers ended early; nothing was written", {}};
      }
      std::string text = trimmed(*line).empty() ? usual : std::string(trimmed(*line));
      try {
        check(text);
        return text;
      } catch (const UsageError& error) {
        tell_(error);
      }
    }
  }

  std::vector<std::string> texts(const char* option, const std::vector<std::string>& given,
                                 const std::string& question) const {
    std::vector<std::string> result;
    result.reserve(given.size());
    for (const std::string& text : given) {
      result.push_back(answer(option, text, question, "", checkOutputText));
    }
    if (given.empty()) {
      const std::string text = optional(option, std::nullopt, question);
      result.insert(result.end(), text.empty() ? 0 : 1, text);
    }
    return result;
  }

  std::string optional(const char* option, const std::optional<std::string>& given,
                       const std::string& question) const {
    return answer(option, given, question, "", [](const std::string& text) {
      if (!text.empty()) {
        checkOutputText(text);
      }
    });
  }

private:
  const AskFunction& ask_;
  const std::function<void(const UsageError&)>& tell_;
};

} // namespace

void checkTypeName(const std::string& name) {
  checkLine(name);
  if (shortName(name).empty()) {
    throw UsageError{"the name of the type is " + (trimmed(name).empty() ? "empty" : inQuotes(name)),
                     "a name has letters or digits, such as Sketch"};
  }
  if (name.size() > 200) {
    throw UsageError{"the name of the type is longer than 200 bytes", "choose a shorter one"};
  }
  if (name.find('/') != std::string::npos) {
    throw UsageError{inQuotes(name) + " is a path, and the name of a type is wanted",
                     "name the file with -o: trovik new Sketch -o " + name};
  }
}

void checkProgram(const std::string& program) {
  checkLine(program);
  if (trimmed(program).empty()) {
    throw UsageError{"the program's name is empty", "a path, or a name that is looked up along PATH"};
  }
  const std::string first = program.substr(0, program.find(' '));
  const auto isThere = [](const std::string& file) { return access(file.c_str(), F_OK) == 0; };
  if (first != program && !isThere(program) && (first.find('/') == std::string::npos || isThere(first))) {
    throw UsageError{inQuotes(program) + " is a program with its arguments",
                     "name the program alone, " + inQuotes(first) +
                         ", and write the rest before SCENE; name a script by its whole path"};
  }
}

void checkSceneArguments(const std::string& scene) {
  checkLine(scene);
  const ArgumentWords words(scene);
  checkWords(words, {"SCENE", "NAME"}, "write SCENE for the scene file, such as -i SCENE");
  if (!words.empty() && !words.has("SCENE")) {
    throw UsageError{inQuotes(scene) + " does not say where the scene file comes",
                     "write SCENE in its place, such as -i SCENE, or none"};
  }
}

Framing framingOf(const std::string& frames, const std::string& scene) {
  checkLine(frames);
  const char* const hint = "files, -s FIRST -e LAST, -f FRAME, or none";
  if (frames == "files") {
    if (!hasScene(scene)) {
      throw UsageError{"there can be no scene file for each frame, since the program takes none", hint};
    }
    return Framing::Files;
  }
  const ArgumentWords words(frames);
  if (words.empty()) {
    return Framing::None;
  }
  checkWords(words, {"FRAME", "FIRST", "LAST"}, hint);
  const bool first = words.has("FIRST");
  const bool last = words.has("LAST");
  if (words.has("FRAME") && !first && !last) {
    return Framing::Single;
  }
  if (!first || !last || words.has("FRAME")) {
    throw UsageError{inQuotes(frames) + " does not say how the program takes its frames", hint};
  }
  return Framing::Range;
}

void checkOutputArguments(const std::string& output, Framing framing, const std::string& scene) {
  checkLine(output);
  const ArgumentWords words(output);
  const std::string hint =
      "write OUTPUT for the file or FOLDER for its folder, such as " + defaultOutput(framing) + ", or none";
  std::set<std::string> allowed = {"OUTPUT", "FOLDER", "NAME"};
  if (hasScene(scene)) {
    allowed.insert("SCENE");
  }
  if (framing == Framing::Files || framing == Framing::Single) {
    allowed.insert("FRAME");
  }
  if (framing == Framing::Range) {
    allowed.insert({"FIRST", "LAST"});
  }
  checkWords(words, allowed, hint);
}

std::string shortName(const std::string& name) {
  std::string result;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) != 0 || byte >= 0x80U || c == '_' || c == '.') {
      result += static_cast<char>(byte < 0x80U ? std::tolower(byte) : byte);
    } else if (!result.empty() && result.back() != '-') {
      result += '-';
    }
  }
  result.erase(0, std::min(result.find_first_not_of(".-"), result.size()));
  result.erase(result.find_last_not_of(".-") + 1);
  return result;
}

TypeAnswers completeAnswers(const std::string& name, const GivenAnswers& given, const AskFunction& ask,
                            const std::function<void(const UsageError&)>& tell) {
  const Questions questions(ask, tell);
  TypeAnswers answers;
  answers.name = trimmed(name);
  checkTypeName(answers.name);
  answers.program = questions.answer("--program", given.program,
                                     "Which program? A path, or a name that is looked up along PATH.\n",
                                     shortName(answers.name), checkProgram);
  answers.scene = questions.answer("--scene", given.scene, sceneQuestion, answers.scene, checkSceneArguments);
  answers.frames = questions.answer("--frames", given.frames, framesQuestion,
                                    hasScene(answers.scene) ? "files" : "-f FRAME",
                                    [&](const std::string& text) { framingOf(text, answers.scene); });
  const Framing framing = framingOf(answers.frames, answers.scene);
  answers.output =
      questions.answer("--output", given.output, outputQuestion, defaultOutput(framing),
                       [&](const std::string& text) { checkOutputArguments(text, framing, answers.scene); });
  if (ArgumentWords(answers.output).has("OUTPUT")) {
    answers.extension = questions.answer("--extension", given.extension, extensionQuestion, answers.extension,
                                         checkExtension);
  } else if (given.extension) {
    throw UsageError{"--extension: the program is not told a file", "write OUTPUT in --output: -o OUTPUT"};
  }
  answers.imageText = questions.optional("--image-text", given.imageText, imageQuestion);
  answers.errors = questions.texts("--error", given.errors, errorQuestion);
  answers.success = questions.texts("--success", given.success, successQuestion);
  return answers;
}

} // namespace trovik
