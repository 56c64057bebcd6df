#include "trovik/newtype/TypeDraft.h"

#include "host/application/Expansion.h"
#include "host/application/ParameterInfo.h"
#include "host/foundation/Quoting.h"
#include "trovik/newtype/ArgumentWords.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>

namespace trovik {
namespace {

/// The parameter for an output file that is one string of a script.
constexpr const char* outputFile = "OutputFile";

/// The meanings of the words, for a command line and for a file's name.
class Meanings {
public:
  explicit Meanings(const TypeAnswers& answers)
      : framing_(framingOf(answers.frames, answers.scene)), extension_(answers.extension),
        name_(shortName(answers.name)), hasScene_(!ArgumentWords(answers.scene).empty()) {}

  Framing framing() const { return framing_; }
  bool scene() const { return hasScene_; }

  std::string inCommand(const std::string& word, const std::string& language = {}) const {
    if (word == "NAME" && !hasScene_ && !language.empty()) {
      return EnquoteWord('"' + name_ + '"'); // it holds no letters to be minded
    }
    if (!language.empty()) {
      return inScript(word) + '.' + language + ".Enquote)";
    }
    if (word == "SCENE") {
      return framing_ == Framing::Files ? "$(ActualScene.Enquote)" : "$(Scene.Enquote)";
    }
    if (word == "NAME") {
      return hasScene_ ? "$(" + sceneName() + ".Enquote)" : std::string(EnquoteWord(name_));
    }
    if (word == "FOLDER") {
      return "$(OutputFolder.Enquote)";
    }
    if (word == "OUTPUT") {
      return inCommand("FOLDER") + '/' + inCommand("NAME") + tail();
    }
    return number(word);
  }

  std::string inFileName(const std::string& word) const {
    if (word == "SCENE") {
      return framing_ == Framing::Files ? "$(ActualScene)" : "$(Scene)";
    }
    if (word == "NAME") {
      return hasScene_ ? "$(" + sceneName() + ')' : name_;
    }
    if (word == "FOLDER") {
      return "$(OutputFolder)";
    }
    if (word == "OUTPUT") {
      return inFileName("FOLDER") + '/' + inFileName("NAME") + tail();
    }
    return number(word);
  }

private:
  /// The reference to one string of a script, without its end.
  std::string inScript(const std::string& word) const {
    const std::string scene = framing_ == Framing::Files ? "ActualScene" : "Scene";
    return word == "SCENE"    ? "$(" + scene
           : word == "NAME"   ? "$(" + sceneName()
           : word == "FOLDER" ? "$(OutputFolder"
                              : "$(" + std::string(outputFile);
  }
  std::string sceneName() const { return framing_ == Framing::Files ? "ActualScene.Base" : "Scene.Base"; }
  std::string tail() const { return (framing_ == Framing::Single ? "_$(Frame.Pad(4))." : ".") + extension_; }
  static std::string number(const std::string& word) {
    return word == "FIRST" ? "$(SubRange.Start)" : word == "LAST" ? "$(SubRange.End)" : "$(Frame)";
  }

  Framing framing_;
  std::string extension_;
  std::string name_;
  bool hasScene_;
};

/// A plain piece of a file's name as a template: the patterns by which programs
/// number their files, %04d and ####, become the frame.
std::string withFrames(const std::string& text) {
  std::string result;
  for (std::size_t i = 0; i < text.size();) {
    std::size_t end = i;
    std::string digits;
    if (text[i] == '#') {
      end = std::min(text.find_first_not_of('#', i), text.size());
      digits = std::to_string(end - i);
    } else if (text[i] == '%') {
      end = std::min(text.find_first_not_of("0123456789", i + 1), text.size());
      digits = text.substr(i + 1, end - i - 1);
      digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
      end = end < text.size() && text[end] == 'd' && digits.size() < 3 ? end + 1 : i;
    }
    if (end == i) {
      result += text[i++];
    } else {
      result += digits.empty() ? "$(Frame)" : "$(Frame.Pad(" + digits + "))";
      i = end;
    }
  }
  return result;
}

/// Where the name of a file ends: what is behind "," in OUTPUT,quality=90 is an
/// option of the program.
std::size_t endOfName(const std::string& text) {
  const std::size_t end = text.find_first_of(",:;");
  return end != std::string::npos && text.find('=', end) != std::string::npos ? end : std::string::npos;
}

/// Whether a template looks like a file's: its name has an extension or a frame.
bool looksLikeAFile(const std::string& file) {
  const std::string leaf = file.substr(file.rfind('/') + 1);
  const std::size_t point = leaf.rfind('.');
  return leaf.find("$(Frame") != std::string::npos ||
         (point != std::string::npos && point > 0 && point + 1 < leaf.size() &&
          leaf.find(')', point) == std::string::npos);
}

/// The files that the output arguments name, as templates of expected files. A
/// folder for the program's own settings is none.
std::vector<String> expectedFiles(const TypeAnswers& answers, const Meanings& meanings) {
  std::vector<String> files;
  const ArgumentWords output(answers.output);
  for (const std::vector<ArgumentPiece>& pieces : output.arguments()) {
    const auto begin = std::find_if(pieces.begin(), pieces.end(), [](const ArgumentPiece& piece) {
      return piece.isWord && (piece.text == "FOLDER" || piece.text == "OUTPUT");
    });
    if (begin == pieces.end()) {
      continue;
    }
    std::string file;
    const bool isString = !begin->language.empty();
    for (auto piece = begin; piece != pieces.end(); ++piece) {
      const std::size_t end = piece->isWord ? std::string::npos : endOfName(piece->text);
      file += piece->isWord ? meanings.inFileName(piece->text)
                            : withFrames(EscapeReferences(String(piece->text.substr(0, end))));
      if (end != std::string::npos || isString) {
        break;
      }
    }
    if (looksLikeAFile(file)) {
      files.emplace_back(file);
    }
  }
  return files;
}

std::string list(const std::vector<std::string>& texts) {
  std::string lines;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    std::string number = std::to_string(i + 1);
    number.insert(0, texts.size() > 9 && number.size() < 2 ? "0" : "");
    lines += (number + '=').append(trimmed(texts[i])) + '\n';
  }
  return lines;
}

std::string heading(const std::string& name, const UID& id, const std::string& shortcut,
                    const std::string& program, bool scene) {
  const std::string given = shortcut.empty() ? EnquoteWord(name) : shortcut;
  const auto hint = [](std::string command, const char* what) {
    command.resize(std::max<std::size_t>(command.size() + 2, 40), ' ');
    return ";   " + command + what + '\n';
  };
  return "; A job type of trovik: how a program is started, and how its frames are judged.\n"
         "; Lines that begin with \";\" are comments. \"man 5 tvx\" and docs/tvx.md tell all keys.\n"
         ";\n" +
         hint("trovik check FILE", "what is wrong or doubtful in this file") +
         hint("trovik type " + given, "the form that users see") +
         hint("trovik run " + given + (scene ? " SCENE" : "") + " --dry-run", "the commands it would start") +
         "\n"
         "[Module]\n"
         "; By its ID a type is known for ever: keep it, and never copy it to another type.\n"
         "ID=" +
         std::string(id.GenString()) + "\nName=" + name +
         "\n; Further names by which the type can be chosen, with commas between them.\n" +
         (shortcut.empty() ? ";Shortcut=" : "Shortcut=" + shortcut) +
         "\n; One line for \"trovik types\".\n"
         "Help=Runs " +
         program + ".\n";
}

std::string commandPart(const TypeAnswers& answers, const Meanings& meanings) {
  std::string text =
      "\n"
      "; The arguments of the program. $(...) stands for what varies; .Enquote keeps a path one argument,\n"
      "; whatever blanks or quotes it holds. No shell reads the line: ; | > * mean nothing.\n";
  if (meanings.framing() == Framing::Files) {
    text += "; $(ActualScene) is the scene file of the frame, $(Scene) the one that was picked.\n";
  } else if (meanings.framing() == Framing::Range) {
    text += "; $(SubRange) are the frames of one start of the program, $(Scene) is the scene file.\n";
  } else if (meanings.framing() == Framing::Single) {
    text += "; $(Frame) is the frame, $(Scene) the scene file.\n";
  }
  std::vector<std::string> parts;
  for (const std::string& arguments : {answers.scene, answers.frames, answers.output}) {
    if (arguments != "files") {
      const std::string part = ArgumentWords(arguments).command(
          [&](const ArgumentPiece& word) { return meanings.inCommand(word.text, word.language); });
      parts.insert(parts.end(), part.empty() ? 0 : 1, part);
    }
  }
  text += (parts.empty() ? ";Command=" : "Command=" + joined(parts, " ")) + '\n';
  if (meanings.framing() == Framing::Files) {
    text += "\n"
            "; A picked shot_0001.txt belongs to a sequence: shot_0002.txt and so on are its other frames.\n"
            "CheckForMultipleFiles=Yes\n";
  }
  return text;
}

std::string judgingPart(const TypeAnswers& answers) {
  std::string text = "\n"
                     "; What stands before the name of a finished file in the program's output, such as "
                     "\"saved:\".\n";
  text += answers.imageText.empty()
              ? std::string(";ImageStartText=saved:\n")
              : "ImageStartText=" +
                    std::string(ListParameterInfo().Pack({std::string(trimmed(answers.imageText))})) + '\n';
  text += "\n"
          "; An error text counts at the start of a line; with this key anywhere in it.\n"
          ";ErrorDetectPosition=Yes\n"
          "\n"
          "; A line that begins so means that the frame is bad, even where the program then exits with 0.\n";
  text += answers.errors.empty() ? std::string(";[ErrorText]\n;1=error:\n")
                                 : "[ErrorText]\n" + list(answers.errors);
  text += "\n"
          "; A line that begins so means that all went well; a run without one is then bad. Only for\n"
          "; programs that always print it. Without such texts the exit code decides.\n";
  text += answers.success.empty() ? std::string(";[SuccessText]\n;1=finished\n")
                                  : "[SuccessText]\n" + list(answers.success);
  return text;
}

const char* const parameterPart =
    "\n"
    "; A setting of your own: users give it with --set Width=1280. Take the \";\" away, and put\n"
    "; --width $(Width) into Command.\n"
    ";[PrimaryParameters]\n"
    ";1=Width\n"
    ";[Width]\n"
    ";Type=Integer\n"
    ";Label=Width in pixels\n"
    ";Default=640\n"
    ";Minimum=1\n";

/// The output file as one value, where a script names it.
std::string outputFilePart(const TypeAnswers& answers, const Meanings& meanings) {
  return !ArgumentWords(answers.output).isInScript("OUTPUT")
             ? std::string()
             : std::string("\n; The file as one value, for the script that names it.\n"
                           "[SecondaryParameters]\n1=") +
                   outputFile + "\n[" + outputFile +
                   "]\nType=Folder\nLabel=Output file\nDefault=" + meanings.inFileName("OUTPUT") +
                   "\nFlags=OfJob, ReadOnly, Advanced, AffectsCommand\n";
}

std::string flagsPart(const Meanings& meanings, bool usesFolder, bool oneFile) {
  std::string lines;
  const char* packet = "PacketSize=OfJob, ReadOnly, Advanced, Visible\n";
  if (meanings.framing() == Framing::Files) {
    lines += std::string("; The program takes one scene file in one start.\n") + packet;
  } else if (meanings.framing() == Framing::Single) {
    lines += std::string("; The program takes one frame in one start.\n") + packet;
  }
  if (oneFile) {
    lines += std::string("; All frames come into one file, so they are rendered in one start.\n") + packet;
  }
  if (meanings.framing() == Framing::None) {
    lines += "; The program knows no frames.\nRange=OfJob, ReadOnly, Visible\n";
  } else if (meanings.framing() != Framing::Files) {
    lines += "Range=Required, OfJob, Editable, Visible, AffectsCommand\n";
  }
  if (!meanings.scene()) {
    lines += "; The program reads no scene.\nScene=OfJob, ReadOnly, Literal\n";
    lines += usesFolder ? "OutputFolder=Required, OfJob, OfEngine, Editable, Visible, AffectsCommand\n" : "";
  }
  return lines.empty()
             ? lines
             : "\n; What users may set of the parameters that every type has.\n[OverrideFlags]\n" + lines;
}

std::string defaultsPart(const TypeAnswers& answers, const Meanings& meanings, bool usesFolder) {
  std::string text = "\n"
                     "; Defaults of the parameters that every type has.\n"
                     "[OverrideDefaults]\n"
                     "; A path, or a name that is looked up along PATH.\n"
                     "Executable=" +
                     answers.program + '\n';
  if (meanings.scene()) {
    text += "; The folder for the files: made before the program starts, $(OutputFolder) in Command.\n";
    text += usesFolder ? "OutputFolder=$(Scene.Branch)/images\n" : ";OutputFolder=$(Scene.Branch)/images\n";
  }
  const std::vector<String> files = expectedFilesOf(answers);
  text += "; The files that each frame must leave. They must be new, not empty, and images whole.\n";
  if (!sharedFilesOf(answers).empty()) {
    text += "; One of them has the same name for every frame, and no two frames may share a file.\n";
  }
  if (!files.empty()) {
    text += "ExpectedFiles=" + std::string(ListParameterInfo().Pack(files)) + '\n';
  } else {
    text += ";ExpectedFiles=$(OutputFolder)/$(Scene.Base)_$(Frame.Pad(4)).png\n";
  }
  if (answers.imageText.empty() && files.empty()) {
    text += "; Nothing is known of its files, so none is checked. Name them above, and take this away.\n"
            "FileCheck=None\n";
  }
  if (meanings.framing() == Framing::Files) {
    text += "; $(ActualScene) is one plain file here, not a quoted list of them.\n"
            "EnquoteActual=No\n";
  }
  if (meanings.framing() == Framing::Range) {
    if (ArgumentWords(answers.output).has("OUTPUT")) {
      text += "; The file stands for all frames.\n"
              "FileCheck=Work\n"
              "PacketSize=1000000\n";
    } else {
      text += "; Frames that one start of the program renders.\n"
              "PacketSize=10\n";
    }
  }
  return text;
}

} // namespace

std::vector<String> expectedFilesOf(const TypeAnswers& answers) {
  return answers.imageText.empty() ? expectedFiles(answers, Meanings(answers)) : std::vector<String>();
}

std::vector<String> sharedFilesOf(const TypeAnswers& answers) {
  std::vector<String> files = expectedFilesOf(answers);
  const Framing framing = framingOf(answers.frames, answers.scene);
  const bool onePerWork = framing == Framing::Range && ArgumentWords(answers.output).has("OUTPUT");
  std::erase_if(files, [&](const String& file) {
    return framing == Framing::None || onePerWork || file.find("$(Frame") != String::npos ||
           file.find("$(SubRange") != String::npos || file.find("$(ActualScene") != String::npos;
  });
  return files;
}

std::string typeFileText(const TypeAnswers& answers, const UID& id, const std::string& shortcut) {
  const Meanings meanings(answers);
  const ArgumentWords output(answers.output);
  const bool usesFolder = output.has("FOLDER") || output.has("OUTPUT");
  return heading(answers.name, id, shortcut, answers.program, meanings.scene()) +
         commandPart(answers, meanings) + judgingPart(answers) + parameterPart +
         outputFilePart(answers, meanings) +
         flagsPart(meanings, usesFolder, meanings.framing() == Framing::Range && output.has("OUTPUT")) +
         defaultsPart(answers, meanings, usesFolder);
}

} // namespace trovik
