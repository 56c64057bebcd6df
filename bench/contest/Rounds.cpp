#include "bench/contest/Rounds.h"

#include "bench/Inputs.h"
#include "bench/Race.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace bench {
namespace {

constexpr std::array columns = {"wall", "cpu", "own", "memory"};
constexpr std::array ratios = {"wall", "cpu"};

std::vector<std::string> wordsOf(const std::string& line) {
  std::vector<std::string> words;
  for (std::size_t start = 0;;) {
    const std::size_t end = line.find('\t', start);
    words.push_back(line.substr(start, end - start));
    if (end == std::string::npos) {
      return words;
    }
    start = end + 1;
  }
}

double medianOf(const std::vector<double>& sorted) {
  const std::size_t middle = sorted.size() / 2;
  return sorted.size() % 2 == 1 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}

std::string numberText(double number) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.6g", number);
  return text.data();
}

/// What a file ends with.
std::string endOf(const std::string& file) {
  constexpr std::size_t most = 1000;
  const std::string text = textOf(file);
  return text.substr(text.size() - std::min(text.size(), most));
}

std::string cells(std::vector<double> values) {
  if (values.empty()) {
    return "\t-\t-\t-";
  }
  std::sort(values.begin(), values.end());
  return '\t' + numberText(medianOf(values)) + '\t' + numberText(values.front()) + '\t' +
         numberText(values.back());
}

} // namespace

Rounds::Rounds(const std::string& file, std::string directory) : directory_(std::move(directory)) {
  std::ifstream stream(file);
  require(stream.is_open(), "cannot read " + file);
  int number = 0;
  for (std::string line; std::getline(stream, line);) {
    programs_.push_back(parse(line, file + ':' + std::to_string(++number) + ": "));
  }
}

Rounds::Program Rounds::parse(const std::string& line, const std::string& place) {
  Program program;
  const std::vector<std::string> words = wordsOf(line);
  program.measured = words.front() == "time";
  require(program.measured || words.front() == "also",
          place + "a line begins with \"time\" or \"also\", not with \"" + words.front() + '"');
  const std::size_t head = program.measured ? 4 : 1;
  require(words.size() > head, place + "there is no program to run");
  if (program.measured) {
    program.group = words[1];
    program.name = words[2];
    int units = 0;
    const char* const end = words[3].data() + words[3].size();
    const auto read = std::from_chars(words[3].data(), end, units);
    require(read.ec == std::errc() && read.ptr == end && units > 0,
            place + "the units are a positive number, not \"" + words[3] + '"');
    program.units = units;
  }
  program.words.assign(words.begin() + static_cast<std::ptrdiff_t>(head), words.end());
  return program;
}

void Rounds::run(int rounds) {
  for (int round = rounds > 1 ? -1 : 0; round < rounds; ++round) {
    for (Program& program : programs_) {
      runOnce(program, round >= 0);
    }
  }
}

void Rounds::runOnce(Program& program, bool counts) const {
  std::string output;
  if (program.measured) {
    output = directory_;
    output.append("/").append(program.group).append(".").append(program.name);
  }
  Cost cost;
  try {
    cost = runProgram(program.words, {}, output);
  } catch (const std::runtime_error& failure) {
    throw std::runtime_error(failure.what() + (", and printed:\n" + endOf(output)));
  }
  if (program.measured && counts) {
    program.costs["wall"].push_back(cost.wall / program.units);
    program.costs["cpu"].push_back(cost.cpu / program.units);
    program.costs["own"].push_back(cost.own / program.units);
    program.costs["memory"].push_back(cost.memory);
  }
}

const Rounds::Program* Rounds::limitOf(const Program& program) const {
  for (const Program& other : programs_) {
    if (other.name == "limit" && other.group == program.group) {
      return &other;
    }
  }
  return nullptr;
}

std::string Rounds::table() const {
  std::string text = "group\tprogram\tunits\trounds";
  const auto addNames = [&text](const std::string& column) {
    text += '\t' + column + '\t' + column + "_min\t" + column + "_max";
  };
  for (const char* column : columns) {
    addNames(column);
  }
  for (const char* column : ratios) {
    addNames(std::string(column) + "_ratio");
  }
  text += '\n';
  for (const Program& program : programs_) {
    if (!program.measured) {
      continue;
    }
    text += program.group + '\t' + program.name + '\t' + numberText(program.units) + '\t' +
            std::to_string(program.costs.at("wall").size());
    for (const char* column : columns) {
      text += cells(program.costs.at(column));
    }
    const Program* const limit = limitOf(program);
    for (const char* column : ratios) {
      std::vector<double> values;
      for (std::size_t round = 0; limit != nullptr && round < program.costs.at(column).size(); ++round) {
        // The kernel may tell less of a short program's time than it took.
        if (const double least = limit->costs.at(column)[round]; least > 0) {
          values.push_back(program.costs.at(column)[round] / least);
        }
      }
      text += cells(values);
    }
    text += '\n';
  }
  return text;
}

} // namespace bench
