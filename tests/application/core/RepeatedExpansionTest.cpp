#include "host/application/Expansion.h"
#include "tests/application/core/TestSupport.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

// Every result of a repeated expansion beside that of a plain one: the same
// text, or the same refusal.

namespace {

struct Value {
  String Text;
  String Instead; // of an empty text
  bool Expands = false;
  const ParameterInfo* Info = nullptr;
};

class Values {
public:
  ExpansionSource Source() {
    ExpansionSource source;
    source.Find = [this](const String& name) -> std::optional<ParameterAnswer> {
      const auto found = All.find(name);
      if (found == All.end()) {
        return std::nullopt;
      }
      ++Found;
      const Value& value = found->second;
      const bool own = !value.Text.empty();
      return ParameterAnswer{own ? value.Text : value.Instead, value.Expands, value.Info, own};
    };
    source.Ask = [this](const String& name, String& text) {
      const auto found = All.find(name);
      text = found == All.end() ? String::Null : found->second.Text;
      return found != All.end();
    };
    source.Names = [this] {
      std::vector<String> names;
      for (const auto& entry : All) {
        names.push_back(entry.first);
      }
      return names;
    };
    source.What = "template";
    return source;
  }

  std::map<String, Value> All;
  int Found = 0; // how often the long question was asked
};

String ResultOf(const std::function<String()>& expand) {
  String result;
  const String message = MessageOf([&] { result = expand(); });
  return message == "nothing raised" ? "gives " + result : "raises " + message;
}

void ExpectSame(RepeatedExpansion& repeated, Values& values, const String& text) {
  const ExpansionSource source = values.Source();
  ASSERT_EQ(ResultOf([&] { return repeated.Run(); }),
            ResultOf([&] { return ExpandReferences(text, source); }))
      << text;
}

TEST(RepeatedExpansion, AnswersThatStayAreNotLookedUpAgain) {
  Values values;
  values.All = {{"Folder", {"/out", "", true}}, {"Frame", {"1", ""}}, {"Given", {"", "by default"}}};
  RepeatedExpansion repeated("$(Folder)/$(Given)/a_$(Frame.Pad(4)).png", values.Source());
  EXPECT_EQ(repeated.Run(), "/out/by default/a_0001.png");
  EXPECT_EQ(values.Found, 3);
  for (int frame = 2; frame < 100; ++frame) {
    values.All["Frame"].Text = std::to_string(frame);
    ASSERT_EQ(repeated.Run(),
              "/out/by default/a_00" + String(frame < 10 ? "0" : "") + std::to_string(frame) + ".png");
  }
  EXPECT_EQ(values.Found, 3);
  values.All["Folder"].Text = "$(Given)";
  EXPECT_EQ(repeated.Run(), "by default/by default/a_0099.png");
}

TEST(RepeatedExpansion, ARefusalIsThatOfThePlainExpansionAndEndsWithItsCause) {
  Values values;
  values.All = {{"Frame", {"x", ""}}};
  const String text = "a_$(Frame.Pad(4)).png";
  RepeatedExpansion repeated(text, values.Source());
  ExpectSame(repeated, values, text);
  values.All["Frame"].Text = "12";
  EXPECT_EQ(repeated.Run(), "a_0012.png");
}

TEST(RepeatedExpansion, ANameThatIsNoLongerAnsweredIsRefused) {
  Values values;
  values.All = {{"Frame", {"1", ""}}, {"Other", {"2", ""}}};
  const String text = "$(Other)$(Frame)";
  RepeatedExpansion repeated(text, values.Source());
  EXPECT_EQ(repeated.Run(), "21");
  values.All.erase("Frame");
  ExpectSame(repeated, values, text);
}

TEST(RepeatedExpansion, LongTextsAndManyReferencesGiveTheSame) {
  Values values;
  values.All = {{"Long", {String(200'000, 'x'), "", true}}, {"Frame", {"1", ""}}};
  String many;
  for (int i = 0; i < 200; ++i) {
    many += "$(Frame.Pad(3))";
  }
  for (const String& text : {String("$(Frame)$(Long)"), many, String(100'000, 'y') + "$(Frame)"}) {
    RepeatedExpansion repeated(text, values.Source());
    for (const char* frame : {"1", "2", "3"}) {
      values.All["Frame"].Text = frame;
      ExpectSame(repeated, values, text);
    }
  }
}

TEST(RepeatedExpansion, RandomTextsGiveWhatThePlainExpansionGives) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto pick = [&random](const std::vector<String>& from) { return from[random() % from.size()]; };
  const std::vector<String> names = {"A", "B", "C", "Frame", "SubRange", "List"};
  std::vector<String> commands;
  for (const ParameterCommand& command : ParameterCommands()) {
    const String name(command.Name);
    if (name == "PlainPath") {
      commands.push_back(name + "(%)"); // no value has one: a link would stay behind
    } else if (*command.Arguments != '\0') {
      for (const char* argument : {"3", "a,b", "$(A)", "\\(", "x(y)z", ""}) {
        commands.push_back(name + "(" + argument + ")");
      }
    } else {
      commands.push_back(name);
    }
  }
  const auto reference = [&] {
    String text = "$(" + pick(names);
    while (random() % 2 == 0) {
      text += "." + pick(commands);
    }
    return text + ")";
  };
  const std::vector<String> plain = {"/",    "a b", "$",  "$$(", "(",  ")",      "\\", "\"", "'",
                                     "\xff", ";",   "\n", "_",   ".1", "\u00e4", "",   "$(", String(1, '\0')};
  const std::vector<String> texts = {
      "",    "/o ut/x.y/z\"",  "12", "-7", "3-9", "a;b c;\"d;e\"", "$(A)", "$$(",
      "yes", "\xc3\xa4\xff;'", "5",  "0",  "x",   ".hidden",       "/"};
  ListParameterInfo list;
  int equal = 0;
  for (int round = 0; round < 400; ++round) {
    Values values;
    const auto change = [&](const String& name) {
      Value& value = values.All[name];
      value.Text = random() % 3 == 0 ? String(std::to_string(random() % 2000)) : pick(texts);
      if (random() % 16 == 0 && name < "D") {
        value.Text += reference();
      }
    };
    for (const String& name : names) {
      if (random() % 12 == 0) {
        continue; // nobody answers it
      }
      values.All[name] = {"", pick(texts), name < "D" && random() % 2 == 0, name == "List" ? &list : nullptr};
      change(name);
    }
    String text;
    for (std::size_t piece = 1 + random() % 5; piece > 0; --piece) {
      text += random() % 2 == 0 ? reference() : pick(plain);
    }
    RepeatedExpansion repeated(text, values.Source());
    for (int turn = 0; turn < 12; ++turn) {
      ASSERT_NO_FATAL_FAILURE(ExpectSame(repeated, values, text));
      const ExpansionSource source = values.Source();
      equal += ResultOf([&] { return ExpandReferences(text, source); }).starts_with("gives") ? 1 : 0;
      if (turn % 4 != 3 && !values.All.empty()) {
        change(std::next(values.All.begin(), static_cast<long>(random() % values.All.size()))->first);
      }
    }
  }
  EXPECT_GT(equal, 400);
}

} // namespace
