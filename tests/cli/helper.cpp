// A program for the command line tests: what scripts cannot do exactly.
//
//   cli_helper args FILE ARGUMENT...   appends the arguments to a file, one a
//                                      line, each in "<" and ">"
//   cli_helper json POINTER...         reads JSON, one document or one a line,
//                                      and prints the values at the pointers
//   cli_helper signals COMMAND...      runs a command in its place with the
//                                      default action for SIGINT, which shells
//                                      ignore for what runs in the background
//   cli_helper documented PAGE         fails when the input, JSON as above, has a
//                                      key that the row of its kind in the page's
//                                      table does not tell
//   cli_helper width COLUMNS           fails when a line of the input, without
//                                      its colours, is wider

#include <nlohmann/json.hpp>

#include <csignal>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using Json = nlohmann::ordered_json;

int writeArguments(const std::vector<std::string>& arguments) {
  std::ofstream file(arguments.at(0), std::ios::app | std::ios::binary);
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    file << '<' << arguments[i] << ">\n";
  }
  return file.good() ? 0 : 1;
}

void printValues(const Json& document, const std::vector<std::string>& pointers) {
  for (std::size_t i = 0; i < pointers.size(); ++i) {
    const Json::json_pointer pointer(pointers[i]);
    std::cout << (i == 0 ? "" : " ") << (document.contains(pointer) ? document.at(pointer).dump() : "-");
  }
  std::cout << '\n';
}

/// Calls the action for the document of the input, or for that of each line.
int forEachDocument(const std::function<void(const Json& document)>& action) {
  const std::string text{std::istreambuf_iterator<char>(std::cin), {}};
  try {
    if (Json::accept(text)) {
      action(Json::parse(text));
      return 0;
    }
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
      action(Json::parse(line));
    }
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
  return 0;
}

int readJson(const std::vector<std::string>& pointers) {
  return forEachDocument([&pointers](const Json& document) { printValues(document, pointers); });
}

using Words = std::set<std::string>;

/// The words of a text between backticks.
Words codeWords(const std::string& text) {
  Words words;
  for (std::size_t open = text.find('`'); open != std::string::npos; open = text.find('`', open)) {
    const std::size_t close = text.find('`', open + 1);
    if (close == std::string::npos) {
      break;
    }
    words.insert(text.substr(open + 1, close - open - 1));
    open = close + 1;
  }
  return words;
}

/// The fields of each kind, from the table of a page whose rows are
/// "| `kind` | from | fields |". A row may go on where the one before it ended
/// ("the same and"), or that of another kind ("what `jobs` tells").
std::map<std::string, Words> documentedFields(const std::string& page) {
  std::map<std::string, Words> fields;
  std::ifstream file(page);
  Words before;
  for (std::string line; std::getline(file, line);) {
    const std::size_t from = line.find(" | ");
    const std::size_t third = from == std::string::npos ? from : line.find(" | ", from + 3);
    if (!line.starts_with("| `") || third == std::string::npos) {
      continue;
    }
    const std::string text = line.substr(third + 3);
    Words words = codeWords(text);
    if (text.starts_with("the same")) {
      words.insert(before.begin(), before.end());
    }
    if (text.starts_with("what `jobs` tells")) {
      words.insert(fields["jobs"].begin(), fields["jobs"].end());
    }
    for (const std::string& kind : codeWords(line.substr(0, from))) {
      fields[kind] = words;
    }
    before = words;
  }
  return fields;
}

void checkKeys(const Json& value, const std::string& kind, const Words& told) {
  for (const auto& [key, inner] : value.items()) {
    if (value.is_object() && !told.contains(key)) {
      std::string message = "the page does not tell the key \"";
      throw std::runtime_error(message.append(key).append("\" of the kind \"").append(kind).append("\""));
    }
    const bool isText =
        inner.is_object() && inner.size() == 1 && inner.contains("hex"); // one that is not UTF-8
    if (inner.is_structured() && !isText && key != "filled" &&
        key != "set") { // those have names of the user's as keys
      checkKeys(inner, kind, told);
    }
  }
}

int checkDocumented(const std::string& page) {
  const std::map<std::string, Words> fields = documentedFields(page);
  return forEachDocument([&fields](const Json& document) {
    const std::string kind = document.at("kind");
    Words told = fields.contains(kind) ? fields.at(kind) : Words();
    told.insert({"version", "kind"});
    checkKeys(document, kind, told);
  });
}

int runWithSignals(std::vector<std::string> command) {
  std::signal(SIGINT, SIG_DFL);
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (std::string& word : command) {
    words.push_back(word.data());
  }
  words.push_back(nullptr);
  execv(words[0], words.data());
  std::cerr << "cli_helper: cannot run " << command[0] << '\n';
  return 2;
}

int checkWidth(std::size_t columns) {
  int result = 0;
  for (std::string line; std::getline(std::cin, line);) {
    std::size_t width = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
      const auto byte = static_cast<unsigned char>(line[i]);
      if (byte == 0x1b) {
        i = line.find_first_of("mK", i);
      } else if (byte == '\r') {
        width = 0;
      } else if ((byte & 0xc0U) != 0x80U && ++width > columns) {
        std::cerr << "wider than " << columns << ": " << line << '\n';
        result = 1;
        break;
      }
    }
  }
  return result;
}

} // namespace

int main(int count, char** arguments) {
  const std::vector<std::string> words(arguments + 1, arguments + count);
  if (words.size() >= 2 && words[0] == "args") {
    return writeArguments({words.begin() + 1, words.end()});
  }
  if (!words.empty() && words[0] == "json") {
    return readJson({words.begin() + 1, words.end()});
  }
  if (words.size() >= 2 && words[0] == "signals") {
    return runWithSignals({words.begin() + 1, words.end()});
  }
  if (words.size() == 2 && words[0] == "documented") {
    return checkDocumented(words[1]);
  }
  if (words.size() == 2 && words[0] == "width") {
    return checkWidth(std::stoul(words[1]));
  }
  std::cerr << "cli_helper: wrong usage\n";
  return 2;
}
