// A program for the command line tests: what scripts cannot do exactly.
//
//   cli_helper args FILE ARGUMENT...   appends the arguments to a file, one a
//                                      line, each in "<" and ">"
//   cli_helper json POINTER...         reads JSON, one document or one a line,
//                                      and prints the values at the pointers
//   cli_helper signals COMMAND...      runs a command in its place with the
//                                      default action for SIGINT, which shells
//                                      ignore for what runs in the background
//   cli_helper width COLUMNS           fails when a line of the input, without
//                                      its colours, is wider

#include <nlohmann/json.hpp>

#include <csignal>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
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

int readJson(const std::vector<std::string>& pointers) {
  const std::string text{std::istreambuf_iterator<char>(std::cin), {}};
  try {
    if (Json::accept(text)) {
      printValues(Json::parse(text), pointers);
      return 0;
    }
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
      printValues(Json::parse(line), pointers);
    }
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
  return 0;
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
  if (words.size() == 2 && words[0] == "width") {
    return checkWidth(std::stoul(words[1]));
  }
  std::cerr << "cli_helper: wrong usage\n";
  return 2;
}
