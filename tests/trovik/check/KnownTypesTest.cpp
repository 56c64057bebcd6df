// Types that get into each other's way.

#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/check/CheckTest.h"

namespace trovik {
namespace {

class KnownTypesTest : public CheckTest {
protected:
  /// Writes a type file and makes it known.
  TypeSource add(const std::string& name, const std::string& text) {
    const std::string path = directory_.write(name, text);
    TypeSource source = TypeSource::read(name, Path(String(path)));
    known_.add(source);
    return source;
  }

  std::string told(const TypeSource& source) {
    Findings findings;
    known_.check(source, findings);
    std::string text;
    for (const Diagnostic& problem : findings.take()) {
      text += source.shown() + ':' + std::to_string(problem.line) + ':' + std::to_string(problem.column) +
              '-' + std::to_string(problem.endColumn) + ' ' + problem.rule + ": " + problem.message + "; " +
              problem.hint.substr(0, problem.hint.find('=') + 1) + '\n';
    }
    return text;
  }

  TemporaryDirectory directory_;
  KnownTypes known_;
};

constexpr const char* first = "[Module]\nID=11111111-2222-3333-4444-555555555555\nName=First\n";
constexpr const char* second = "[Module]\nID=21111111-2222-3333-4444-555555555555\nName=Second\n";

TEST_F(KnownTypesTest, IDOfAnotherFileIsToldInBoth) {
  const TypeSource one = add("one.tvx", first);
  const TypeSource two = add("two.tvx", "[Module]\nName=Copy\nID=11111111-2222-3333-4444-555555555555\n");
  EXPECT_EQ(told(one),
            "one.tvx:2:4-40 doubled-id: the type \"Copy\" of two.tvx:3 has this ID already; write one "
            "of its own, such as ID=\n");
  EXPECT_EQ(told(two),
            "two.tvx:3:4-40 doubled-id: the type \"First\" of one.tvx:2 has this ID already; write "
            "one of its own, such as ID=\n");
}

TEST_F(KnownTypesTest, FileOfTheSameNameElsewhereIsTheSameType) {
  const TypeSource installed = add("installed/one.tvx", first);
  const TypeSource own = add("own/one.tvx", std::string(first) + "Help=Better.\n");
  EXPECT_EQ(told(installed), "");
  EXPECT_EQ(told(own), "");
}

TEST_F(KnownTypesTest, FileThatIsKnownByAnotherPathIsItself) {
  const TypeSource one = add("one.tvx", first);
  known_.add(TypeSource::read("./one.tvx", Path(String(directory_.path() + "/./one.tvx"))));
  EXPECT_EQ(told(one), "");
}

TEST_F(KnownTypesTest, TextFromStandardInputUnderAFilesNameIsThatFile) {
  add("one.tvx", first);
  const TypeSource text("one.tvx", Path(String(directory_.file("one.tvx"))),
                        std::string(first) + "Help=New.\n");
  EXPECT_EQ(told(text), "");
}

TEST_F(KnownTypesTest, NamesThatAnotherTypeAnswersToAreTold) {
  add("one.tvx", std::string(first) + "Shortcut=sk, fst\n");
  const TypeSource two = add("two.tvx", std::string(second) + "Shortcut=x, SK,first\n");
  EXPECT_EQ(told(two),
            "two.tvx:4:13-15 shared-name: the type \"First\" of one.tvx answers to \"SK\" too; \n"
            "two.tvx:4:16-21 shared-name: the type \"First\" of one.tvx answers to \"first\" too; \n");
}

TEST_F(KnownTypesTest, FilesWithoutAnIDAreInNobodysWay) {
  add("one.tvx", "[Module]\nName=Second\n");
  EXPECT_EQ(told(add("two.tvx", second)), "");
}

} // namespace
} // namespace trovik
