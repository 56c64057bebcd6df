#include "trovik/newtype/TypeQuestions.h"

#include "trovik/text/Text.h"

namespace trovik {
namespace {

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
  const bool hasScene = !answers.scene.empty() && answers.scene != "none";
  answers.frames = questions.answer("--frames", given.frames, framesQuestion, hasScene ? "files" : "-f FRAME",
                                    [&](const std::string& text) { framingOf(text, answers.scene); });
  const Framing framing = framingOf(answers.frames, answers.scene);
  answers.output =
      questions.answer("--output", given.output, outputQuestion, defaultOutput(framing),
                       [&](const std::string& text) { checkOutputArguments(text, framing, answers.scene); });
  if (namesOutputFile(answers.output)) {
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
