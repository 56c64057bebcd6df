#include "bench/Inputs.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace bench {
namespace {

[[gnu::format(printf, 1, 2)]] std::string print(const char* format, ...) {
  std::array<char, 512> text{};
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  return {text.data(), static_cast<std::size_t>(length)};
}

constexpr std::array<const char*, 6> things = {"tree_oak",       "terrain",   "hero_geo",
                                               "leaf_instancer", "prop_lamp", "tex/diffuse"};

std::string progressLine(Random& random, int frame) {
  // Drawn one by one: the order in which arguments are evaluated is the
  // compiler's.
  std::array<std::size_t, 12> drawn{};
  for (std::size_t& number : drawn) {
    number = random.below(6000);
  }
  const auto [used, peak, hundredths, hours, minutes, rest, hasRest, restHours, kind, which, part, tile] =
      drawn;
  std::string line =
      print("frame %d  mem %zu.%02zuM (peak %zu.%02zuM)  time %02zu:%02zu.%02zu", frame, used % 900,
            hundredths % 100, 900 + peak % 300, hundredths / 100, hours % 60, minutes % 60, minutes / 60);
  if (hasRest % 10 < 6) {
    line += print("  remaining %02zu:%02zu.%02zu", restHours % 60, rest % 60, rest / 60);
  }
  const char* thing = things[which % things.size()];
  switch (kind % 7) {
  case 0:
    return line + print("  scene: synchronising object %s.%03zu", thing, part % 100);
  case 1:
    return line + print("  scene: sample %zu/128", part % 129);
  case 2:
    return line +
           print("  scene: updating geometry bvh %s.%03zu %zu/128, building", thing, part % 100, tile % 129);
  case 3:
    return line + "  scene: updating mesh, computing normals";
  case 4:
    return line + "  scene: loading kernels (may take a few minutes the first time)";
  case 5:
    return line + print("  compositing: tile %zu-%zu", part % 64, tile % 64);
  default:
    return line + print("  scene: updating images, loading %s_%04zu.tx", thing, part);
  }
}

} // namespace

const LogTexts& usualTexts() {
  static const LogTexts texts{
      {"Saved: '", "Writing image '", "Append frame '", "Saving image '"},
      "'",
      {"Error: ", "Cannot open", "Out of memory", "Unable to open", "Segmentation fault", "License error"},
      "Renderer quit"};
  return texts;
}

LogTexts someTexts(int count) {
  LogTexts texts = usualTexts();
  if (count == 1) {
    texts.images.resize(1);
    texts.errors.clear();
  } else if (count == 60) {
    texts.images.clear();
    texts.errors.clear();
    for (const char* verb : {"Saved", "Writing", "Wrote", "Rendered", "Output", "Stored"}) {
      for (const char* what : {" image '", " file '", " frame to '", ": '"}) {
        texts.images.push_back(std::string(verb) + what);
      }
    }
    for (const char* what : {"Error: ", "Fatal: ", "Cannot ", "Could not ", "Failed to ", "Unable to "}) {
      for (const char* verb : {"open", "read", "load", "allocate", "find", "write"}) {
        texts.errors.push_back(std::string(what) + verb);
      }
    }
  }
  return texts;
}

std::string logType(const std::string& id, const std::string& name, const LogTexts& texts) {
  std::string text = "[Module]\nID=" + id + "\nName=" + name + "\nErrorDetectPosition=Yes\nImageStartText=";
  for (const std::string& image : texts.images) {
    text += '"' + image + "\";";
  }
  text.pop_back();
  text += "\nImageEndText=" + texts.imageEnd + "\n\n[SuccessText]\n1=" + texts.success + "\n\n[ErrorText]\n";
  for (std::size_t i = 0; i < texts.errors.size(); ++i) {
    text += std::to_string(i) + '=' + texts.errors[i] + '\n';
  }
  return text;
}

std::string logPatterns(const LogTexts& texts) {
  std::string lines = texts.success + '\n';
  for (const auto* list : {&texts.images, &texts.errors}) {
    for (const std::string& text : *list) {
      lines += text + '\n';
    }
  }
  return lines;
}

std::uint64_t Random::next() {
  state_ += 0x9e3779b97f4a7c15;
  std::uint64_t mixed = state_;
  mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9;
  mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111eb;
  return mixed ^ (mixed >> 31);
}

void writeFile(const std::string& file, const std::string& text) {
  std::ofstream stream(file, std::ios::binary);
  stream << text;
  stream.close();
  if (!stream) {
    throw std::runtime_error("cannot write " + file);
  }
}

std::string textOf(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

LogFacts writeLog(const std::string& file, std::size_t size) {
  Random random(7);
  LogFacts facts;
  std::string text = "renderer 4.1 (build 2207)\nreading /show/sh010/scene_v012.blob\n";
  text.reserve(size + 4096);
  facts.lines = 2;
  while (text.size() < size) {
    if (facts.lines % 500 == 0) {
      ++facts.images;
      text += print("Saved: '/out/f_%06zu.png'\n", facts.images);
      text += print("  time 00:%02zu.%02zu (saving 00:00.07)\n", facts.images % 60, facts.images % 97);
      facts.lines += 2;
    }
    text += progressLine(random, static_cast<int>(facts.images) + 1) + '\n';
    ++facts.lines;
  }
  facts.firstError = "Error: cannot read /show/cache/fx_12.vdb";
  text += facts.firstError + "\nRenderer quit\n";
  facts.lines += 2;
  facts.imageLines = facts.images;
  facts.errors = facts.successes = 1;
  facts.bytes = text.size();
  writeFile(file, text);
  return facts;
}

LogFacts writeMatchingLog(const std::string& file, std::size_t size, const LogTexts& texts,
                          std::size_t perMille) {
  constexpr std::size_t differentImages = 1000;
  Random random(11);
  LogFacts facts;
  std::string text = "renderer 4.1 (build 2207)\n";
  text.reserve(size + 4096);
  facts.lines = 1;
  std::size_t matching = 0;
  while (text.size() < size) {
    const std::string line = progressLine(random, static_cast<int>(facts.lines / 500) + 1);
    ++facts.lines;
    if (random.below(1000) >= perMille) {
      text += line + '\n';
      continue;
    }
    const std::string start = line.substr(0, line.size() / 2);
    if (++matching % 2 == 1 || texts.errors.empty()) {
      text += start + texts.images[random.below(texts.images.size())];
      text += print("/out/f_%06zu.png'\n", facts.imageLines++ % differentImages);
    } else {
      const std::string error = start + texts.errors[random.below(texts.errors.size())] + " /show/a.vdb";
      facts.firstError = facts.errors++ == 0 ? error : facts.firstError;
      text += error + '\n';
    }
  }
  text += "Renderer quit\n";
  ++facts.lines;
  facts.successes = 1;
  facts.images = std::min(facts.imageLines, differentImages);
  facts.bytes = text.size();
  writeFile(file, text);
  return facts;
}

std::string frameName(int frame) {
  return print("shot_a.%06d.exr", frame);
}

void writeSequence(const std::string& directory, int frames, int others) {
  std::vector<std::string> names;
  for (int frame = 1; frame <= frames; ++frame) {
    names.push_back(frameName(frame));
  }
  for (int frame = frames + 6; frame <= frames + 15; ++frame) {
    names.push_back(frameName(frame));
  }
  for (int i = 0; i < others; ++i) {
    names.push_back(print("other_%05d.txt", i));
  }
  Random random(3);
  for (std::size_t i = names.size(); i > 1; --i) {
    std::swap(names[i - 1], names[random.below(i)]);
  }
  std::filesystem::create_directories(directory);
  for (const std::string& name : names) {
    std::string path = directory;
    path.append("/").append(name);
    writeFile(path, "");
  }
}

std::string typeText(int number, TypeFacts& facts) {
  static const std::array<const char*, 7> sections = {
      "SuccessText",      "ErrorText",         "ErrorIgnore",         "AutoDetect",
      "OverrideDefaults", "PrimaryParameters", "FindLatestExecutable"};
  static const std::array<const char*, 15> words = {"render",  "frame",   "path",   "start",  "end",
                                                    "text",    "suffix",  "image",  "memory", "thread",
                                                    "verbose", "timeout", "camera", "layer",  "format"};
  Random random(static_cast<std::uint64_t>(number) + 5);
  // Words between the separators, drawn one after the other.
  const auto draw = [&random](std::string& to, std::size_t count, const char* between) {
    for (std::size_t i = 0; i < count; ++i) {
      to += i == 0 ? "" : between;
      to += words[random.below(words.size())];
    }
  };
  std::string text = print("# type %04d\n# made for measuring\n\n[Module]\n", number);
  text += print("ID=5f0c9a5e-6d0b-4c86-9d0f-%012d\nName=Type %d\nShortcut=t%d\n", number, number, number);
  text += "Command=-b $(Scene.Enquote) -s $(SubRange.Start) -e $(SubRange.End) -t "
          "$(CPUs)\nImageStartText=saved:\n\n";
  facts.sections += 1 + sections.size();
  facts.entries += 5;
  for (const char* section : sections) {
    text += print("[%s]\n", section);
    for (int key = 0; key < 5; ++key) {
      draw(text, 2, "_");
      text += std::to_string(key);
      text += random.below(2) == 0 ? "=" : " = ";
      switch (random.below(4)) {
      case 0:
        text += std::to_string(random.below(100000));
        break;
      case 1:
        text += "\"/opt/apps/";
        draw(text, 2, "/bin/");
        text += '"';
        break;
      case 2:
        text += "Yes";
        break;
      default:
        draw(text, 2 + random.below(8), " ");
        break;
      }
      text += '\n';
      ++facts.entries;
    }
    if (random.below(2) == 0) {
      text += "# ";
      draw(text, 3, " ");
      text += '\n';
    }
    text += '\n';
  }
  return text;
}

TypeFacts writeTypes(const std::string& directory, int count) {
  TypeFacts facts;
  std::filesystem::create_directories(directory);
  for (int number = 0; number < count; ++number) {
    writeFile(directory + print("/type_%04d.tvx", number), typeText(number, facts));
  }
  return facts;
}

} // namespace bench
