#include "host/application/ParameterCommands.h"
#include "tests/application/core/TestSupport.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

// A text in which references stand again and again beside each of them expanded
// by itself, by an expansion that remembers nothing of the others.

namespace {

struct Known {
  String Text;
  bool Expands = false;
  std::size_t Room = 0; // memory behind the text
};

ExpansionSource SourceOf(const std::map<String, Known>& values) {
  ExpansionSource source;
  source.Find = [&values](const String& name) -> std::optional<ParameterAnswer> {
    const auto found = values.find(name);
    if (found == values.end()) {
      return std::nullopt;
    }
    ParameterAnswer answer;
    answer.Value.reserve(found->second.Text.size() + found->second.Room);
    answer.Value.append(found->second.Text);
    answer.Expands = found->second.Expands;
    return answer;
  };
  source.Names = [] { return std::vector<String>(); };
  return source;
}

// The text, or the first line of what was raised: the next one shows the text
// that was expanded, here only a part.
String Outcome(const std::function<String()>& expand) {
  String result;
  const String message = MessageOf([&] { result = expand(); });
  return message == "nothing raised" ? "gives " + result : "raises " + message.substr(0, message.find('\n'));
}

// Each reference is expanded behind as many blanks as its place is bytes, so that
// a refusal has its column.
String ExpandOneByOne(const String& text, const ExpansionSource& source) {
  String result;
  std::size_t position = 0;
  for (;;) {
    bool literal = false;
    const std::size_t start = FindReference(text, position, literal);
    const std::size_t plainEnd = start == String::npos ? text.size() : start - (literal ? 1 : 0);
    result.append(text, position, plainEnd - position);
    if (start == String::npos) {
      return result;
    }
    if (literal) {
      result += source.ForLater ? "$$(" : "$(";
      position = start + 2;
      continue;
    }
    Reference reference;
    ReferenceProblem problem;
    const bool whole = ReadReference(text, start, reference, problem);
    position = whole ? reference.End : text.size();
    const String alone = String(start, ' ') + text.substr(start, position - start);
    result += ExpandReferences(alone, source).substr(start);
  }
}

class RandomTexts {
public:
  explicit RandomTexts(unsigned seed) : m_Random(seed) {
    for (const ParameterCommand& command : ParameterCommands()) {
      const String name(command.Name);
      if (name == "PlainPath") {
        continue; // it leaves links behind
      }
      for (const char* argument : {"(3)", "(a,b)", "($(A))", "(\\))", "(x(y)z)", "()", ""}) {
        if ((*command.Arguments != '\0') == (*argument != '\0')) {
          m_Commands.push_back(name + argument);
        }
      }
    }
  }

  std::size_t Below(std::size_t count) { return m_Random() % count; }
  template <typename T> const T& Pick(const std::vector<T>& from) { return from[Below(from.size())]; }

  String Reference() {
    static const std::vector<String> s_Names = {"A", "B", "C", "Long", "Number", "Range", "a", "A("};
    String text = "$(" + Pick(s_Names);
    for (std::size_t i = Below(3); i > 0; --i) {
      text += "." + Pick(m_Commands);
    }
    return text + ")";
  }

  // Of references out of a few, some plain text, and rarely something broken.
  String Text(const std::vector<String>& references, std::size_t pieces) {
    static const std::vector<String> s_Plain = {"", " -x ", "$$(", "$", ")", "(", "."};
    String text;
    for (std::size_t i = Below(pieces + 1); i > 0; --i) {
      text += Pick(s_Plain) + Pick(references);
    }
    if (Below(20) == 0) {
      text.insert(Below(text.size() + 1), "$(");
    }
    return text;
  }

private:
  std::mt19937 m_Random;
  std::vector<String> m_Commands;
};

TEST(RepeatedReferences, GiveWhatEachOfThemGives) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  RandomTexts random(seed);
  std::size_t given = 0;
  for (int round = 0; round < 3000; ++round) {
    std::vector<String> references;
    for (std::size_t i = 1 + random.Below(6); i > 0; --i) {
      references.push_back(random.Reference());
    }
    const bool longOne = random.Below(10) == 0;
    std::map<String, Known> values = {
        {"A", {random.Text(references, 2), random.Below(2) == 0}},
        {"B", {random.Text(references, 1), random.Below(2) == 0}},
        {"C", {"$(A)/c.png", false}},
        {"a", {"", false}},
        {"A(", {"odd", false}},
        {"Number", {"17", false}},
        {"Range", {"3-8", false}},
        {"Long", {longOne ? String(70'000, 'l') : String("l"), false, random.Below(2) * 400'000}}};
    ExpansionSource source = SourceOf(values);
    const String text = random.Text(references, longOne ? 8 : 40);
    const String whole = Outcome([&] { return ExpandReferences(text, source); });
    ASSERT_EQ(whole, Outcome([&] { return ExpandOneByOne(text, source); })) << text;
    given += whole.starts_with("gives ") ? 1U : 0U;
  }
  EXPECT_GT(given, 300U);
}

TEST(RepeatedReferences, OfATextForLaterGiveWhatEachOfThemGives) {
  const std::map<String, Known> values = {{"A", {"$(B)x$$(", true}},
                                          {"B", {"b$(", false}},
                                          {"Part", {"$(Unknown)", true}},
                                          {"OfPart", {"$(Part)", true}}};
  ExpansionSource source = SourceOf(values);
  source.ForLater = true;
  EXPECT_EQ(ExpandReferences("$(A) $(A) $(A.Upper) $(A.Upper)", source),
            "b$$(x$$( b$$(x$$( B$$(X$$( B$$(X$$(");
  EXPECT_EQ(ExpandReferences("$(Unknown.Upper) $(Unknown.Upper) $(Unknown) $(Unknown)", source),
            "$(Unknown.Upper) $(Unknown.Upper) $(Unknown) $(Unknown)");
  EXPECT_EQ(ExpandReferences("$(Part) $(Part) $(OfPart.Upper)", source),
            "$(Unknown) $(Unknown) $(OfPart.Upper)");
}

// A long value may become the result itself; whoever refers to it again still
// gets it, and so does the result of a longer one.
TEST(RepeatedReferences, OfLongValuesGiveThemEachTime) {
  const String first(100'000, 'f');
  const String second(300'000, 's');
  const std::map<String, Known> values = {{"First", {first, false, 1'000'000}},
                                          {"Second", {second, false, 1'000'000}},
                                          {"Both", {"<$(First)|$(Second)>", true}}};
  const ExpansionSource source = SourceOf(values);
  const auto expand = [&source](const String& text) { return ExpandReferences(text, source); };
  EXPECT_TRUE(expand("-i $(First) -o x") == "-i " + first + " -o x");
  EXPECT_TRUE(expand("-i $(First)$(First) $(First)") == "-i " + first + first + " " + first);
  EXPECT_TRUE(expand("a $(First) b $(Second) c $(Both)$(First.Upper)$(Second)") ==
              "a " + first + " b " + second + " c <" + first + "|" + second + ">" + first.Upper() + second);
}

TEST(RepeatedReferences, AreRefusedAtTheirOwnPlace) {
  const std::map<String, Known> values = {{"A", {"a", false}}};
  const ExpansionSource source = SourceOf(values);
  EXPECT_EQ(MessageOf([&] { ExpandReferences("$(A) $(A) $(A.Pad(2))", source); }),
            "text:15: Pad needs a whole number, not \"a\"\n"
            "    1 | $(A) $(A) $(A.Pad(2))\n"
            "      |               ^");
}

TEST(RepeatedReferences, SpendWhatTheirCommandsRead) {
  const std::map<String, Known> values = {{"Long", {String(std::size_t{1} << 20, 'x'), false}}};
  const ExpansionSource source = SourceOf(values);
  const auto refusal = [&source](int count) {
    String text;
    for (int i = 0; i < count; ++i) {
      text += "$(Long.If(yes,no))";
    }
    return MessageOf([&] { ExpandReferences(text, source); });
  };
  EXPECT_EQ(refusal(254), "nothing raised");
  EXPECT_EQ(refusal(255), "text: its references make more than 64 MiB of text");
}

TEST(RepeatedReferences, HaveCommandsOfOthersAppliedEachTime) {
  const std::map<String, Known> values = {{"A", {"a", false}}};
  ExpansionSource source = SourceOf(values);
  int applied = 0;
  source.Apply = [&applied](const String& value, const String&, const ParameterInfo*) -> String {
    return value + std::to_string(++applied);
  };
  EXPECT_EQ(ExpandReferences("$(A.Upper) $(A.Upper) $(A)", source), "a1 a2 a");
}

// Many more than an expansion remembers.
TEST(RepeatedReferences, OfManyKindsAllHaveTheirOwnText) {
  const std::map<String, Known> values = {{"A", {"a", false}}};
  const ExpansionSource source = SourceOf(values);
  String text;
  String expected;
  for (int i = 0; i < 9000; ++i) {
    const String number(std::to_string(i % 3000));
    text += "$(A.Suffix(" + number + "))$(A.Suffix(" + number + ").Upper) ";
    expected += "a" + number + "A" + number + " ";
  }
  EXPECT_EQ(ExpandReferences(text, source), expected);
}

} // namespace
