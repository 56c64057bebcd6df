// What a job tells of its lines, and that it never differs from what it does.

#include "tests/module/ModuleTest.h"

#include "host/application/jobs/ExecutableSearch.h"
#include "host/foundation/StringTokenizer.h"

#include <rapidcheck.h>

#include <algorithm>

namespace {

using Fate = LineAccount::Fate;

/// "what list text other image" of a line.
String Told(const LineAccount& account) {
  static constexpr const char* k_Names[] = {"ordinary", "image", "dropped", "success", "error", "ignored"};
  const char* what = k_Names[static_cast<std::size_t>(account.What)];
  return String(what) + " " + (account.List == nullptr ? "-" : account.List) + " <" + account.Text + "> <" +
         account.Other + "> <" + account.Image + ">";
}

class AccountTest : public ModuleTest {
protected:
  static String Tell(const SmartHandle<Job>& job, const char* line) {
    AsRender(job).WorkLine(line);
    return Told(*AsRender(job).Account());
  }

  SmartHandle<Job> MakeTellingJob(const UID& type) {
    SmartHandle<Job> job = MakeJob(type);
    AsRender(job).AccountForLines();
    return job;
  }
};

TEST_F(AccountTest, NobodyPaysForWhatNobodyAsked) {
  const SmartHandle<Job> job = MakeJob(LoadType("ImageStartText=saved:\n"));
  AsRender(job).WorkLine("saved: /a.png");
  EXPECT_EQ(AsRender(job).Account(), nullptr);
}

TEST_F(AccountTest, EachFateIsToldWithTheTextsAsTheyAreWritten) {
  const SmartHandle<Job> job =
      MakeTellingJob(LoadType("ImageStartText=Saved: ;Wrote '\nImageEndText=' ;.\nImageNotEndText=Again\n"
                              "ErrorDetectPosition=Yes\n[SuccessText]\n1=Done\n2=All Done\n"
                              "[ErrorText]\n1=Cannot\n2=ERROR:\n[ErrorIgnore]\n1=Cannot find the time\n"));
  EXPECT_EQ(Tell(job, "frame 1"), "ordinary - <> <> <>");
  EXPECT_EQ(Tell(job, "1 WROTE '/a b.png' in 1 s"), "image ImageStartText <Wrote '> <' > </a b.png>");
  EXPECT_EQ(Tell(job, "saved: /a.b.png"), "image ImageStartText <Saved: > <.> </a.b>");
  EXPECT_EQ(Tell(job, "saved: nothing"), "dropped ImageStartText <Saved: > <> <>");
  EXPECT_EQ(Tell(job, "saved:  ' x"), "dropped ImageStartText <Saved: > <> <>") << "an empty name";
  EXPECT_EQ(Tell(job, "saved: /a.png' again"), "dropped ImageNotEndText <Again> <> <>");
  EXPECT_EQ(Tell(job, "all done."), "success SuccessTexts <All Done> <> <>");
  EXPECT_EQ(Tell(job, "done too"), "success SuccessTexts <Done> <> <>") << "later ones as well";
  EXPECT_EQ(Tell(job, "it CANNOT find the time: error"),
            "ignored ErrorIgnores <Cannot find the time> <Cannot> <>");
  EXPECT_EQ(Tell(job, "[1] error: no"), "error ErrorStarts <ERROR:> <> <>");
  EXPECT_EQ(Tell(job, "done, but cannot say so"), "error ErrorStarts <Cannot> <> <>")
      << "behind the first success line the host looks for errors";
  EXPECT_EQ(AsRender(job).ErrorLine(), "[1] error: no");
}

TEST_F(AccountTest, TheFirstSuccessLineIsNoErrorWhateverItHolds) {
  const SmartHandle<Job> job = MakeTellingJob(LoadType("[SuccessText]\n1=done\n[ErrorText]\n1=done\n"));
  EXPECT_EQ(Tell(job, "done"), "success SuccessTexts <done> <> <>");
  EXPECT_EQ(AsRender(job).ErrorLine(), "");
  EXPECT_EQ(Tell(job, "done"), "error ErrorStarts <done> <> <>");
}

/// Few letters, so that texts and lines often meet.
rc::Gen<std::string> GenText(int most) {
  return rc::gen::mapcat(rc::gen::inRange(0, most + 1), [](int size) {
    return rc::gen::container<std::string>(static_cast<std::size_t>(size),
                                           rc::gen::elementOf(std::string("abABb.")));
  });
}

String Joined(const std::vector<std::string>& texts) {
  String list;
  for (const std::string& text : texts) {
    list += (list.empty() ? "" : ";") + text;
  }
  return list;
}

bool IsIn(const String& text, const String& list) {
  const std::vector<String> texts = StringTokenizer::Split(list, ';');
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

TEST_F(AccountTest, TheAccountNeverDiffersFromWhatTheJobDid) {
  const UID type = LoadType("");
  EXPECT_TRUE(rc::check([&] {
    const std::map<const char*, String> lists = {
        {"ImageStartText", Joined(*rc::gen::container<std::vector<std::string>>(GenText(3)))},
        {"ImageEndText", Joined(*rc::gen::container<std::vector<std::string>>(GenText(2)))},
        {"ImageNotEndText", Joined(*rc::gen::container<std::vector<std::string>>(GenText(3)))},
        {"SuccessTexts", Joined(*rc::gen::container<std::vector<std::string>>(GenText(3)))},
        {p_ErrorStarts, Joined(*rc::gen::container<std::vector<std::string>>(GenText(3)))},
        {p_ErrorIgnores, Joined(*rc::gen::container<std::vector<std::string>>(GenText(3)))},
        {p_ErrorDetectPosition, *rc::gen::element(String("Yes"), String("No"))}};
    const auto make = [&] {
      SmartHandle<Job> job = MakeJob(type);
      for (const auto& [name, list] : lists) {
        job->SetParameter(name, list);
      }
      return job;
    };
    const SmartHandle<Job> silent = make();
    const SmartHandle<Job> telling = make();
    AsRender(telling).AccountForLines();
    bool success = false;
    for (const std::string& line : *rc::gen::container<std::vector<std::string>>(GenText(8))) {
      RenderJob& job = AsRender(silent);
      const std::size_t images = job.Images().size();
      const bool hadError = !job.ErrorLine().empty();
      job.ProcessJob::ProcessLine("?"); // no text of any list
      job.WorkLine(line);
      AsRender(telling).WorkLine(line);
      const LineAccount& account = *AsRender(telling).Account();
      const Fate what = account.What;

      // The one who tells does as the one who does not.
      RC_ASSERT(AsRender(telling).Images() == job.Images());
      RC_ASSERT(AsRender(telling).ErrorLine() == job.ErrorLine());

      RC_ASSERT((job.Images().size() == images || what == Fate::Image));
      RC_ASSERT((job.Images().size() == images || job.Images().back() == MakeAbsolute(Path(account.Image))));
      RC_ASSERT(job.ErrorLine().empty() == (!hadError && what != Fate::Error));
      const bool reached = what == Fate::Ordinary || what == Fate::Error || what == Fate::IgnoredError ||
                           (what == Fate::Success && success);
      RC_ASSERT((line.empty() || (job.LastLine() == line) == reached));
      if (reached) {
        const SmartHandle<Job> fresh = make();
        AsRender(fresh).ProcessJob::ProcessLine(line);
        RC_ASSERT((AsRender(fresh).ErrorLine().empty() == (what != Fate::Error || line.empty())));
      }
      success = success || what == Fate::Success;
      if (!lists.at("SuccessTexts").empty()) {
        RC_ASSERT((job.CheckResult(1) == k_StatusFinished) == success);
      }

      // The text that spoke is of the list that is named, and in the line.
      RC_ASSERT((account.List == nullptr) == (what == Fate::Ordinary));
      if (account.List != nullptr) {
        const auto named = std::find_if(lists.begin(), lists.end(), [&account](const auto& list) {
          return String::EqualNoCase(list.first, account.List);
        });
        RC_ASSERT(named != lists.end());
        RC_ASSERT(IsIn(account.Text, named->second));
        const String lowered = String(line).Lower();
        RC_ASSERT(lowered.find(String(account.Text).Lower()) != String::npos);
        RC_ASSERT((what != Fate::Success || lowered.starts_with(String(account.Text).Lower())));
        RC_ASSERT((account.Other.empty() || lowered.find(String(account.Other).Lower()) != String::npos));
      }
    }
  }));
}

} // namespace
