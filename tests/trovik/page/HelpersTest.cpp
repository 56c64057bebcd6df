#include "trovik/page/PageHelpers.h"

#include "trovik/text/Json.h"

#include "tests/trovik/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <map>
#include <poll.h>

namespace trovik {
namespace {

TEST(PageQuestion, ComesAsItWasSent) {
  PageQuestion question;
  question.request = {"POST", "/api/jobs/1/retry", {{"a\n", "b\xff"}, {"", "\""}}, {}, "{\"x\": 1}\n", false};
  question.revisions = {1000, 1005, {{1, 1003}, {7, 1005}}};
  const std::string line = questionLine(question);
  EXPECT_EQ(line.find('\n'), line.size() - 1);
  const auto read = questionFrom(line);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->request.method, "POST");
  EXPECT_EQ(read->request.path, question.request.path);
  EXPECT_EQ(read->request.query, question.request.query);
  EXPECT_EQ(read->request.body, question.request.body);
  EXPECT_EQ(read->revisions.jobs, question.revisions.jobs);
  EXPECT_EQ(read->revisions.of(7), 1005);
  EXPECT_EQ(read->revisions.of(8), 1000);
  for (const char* bad : {"", "{}", "no", "[1]", R"({"method": 1})"}) {
    EXPECT_FALSE(questionFrom(bad)) << bad;
    EXPECT_FALSE(replyHeadFrom(bad)) << bad;
  }
}

TEST(PageQuestion, AReplyIsALineAndItsBody) {
  const HttpResponse response{404, "application/json", "{}\nx", {{"A", "b\xff"}}, nullptr, 0};
  const std::string text = replyText(response, "said\n");
  const std::size_t end = text.find('\n');
  EXPECT_EQ(text.substr(end + 1), response.body);
  const auto head = replyHeadFrom(text.substr(0, end));
  ASSERT_TRUE(head);
  EXPECT_EQ(head->size, 4U);
  EXPECT_EQ(head->said, "said\n");
  EXPECT_EQ(head->response.status, 404);
  EXPECT_EQ(head->response.type, response.type);
  EXPECT_EQ(head->response.headers, response.headers);
}

TEST(Revisions, WhoKnowsSomeIsToldTheRest) {
  Revisions all{10, 15, {{1, 12}, {2, 15}}};
  EXPECT_EQ(all.since(0).jobs, all.jobs);
  EXPECT_EQ(all.since(12).jobs, (std::map<JobId, std::int64_t>{{2, 15}}));
  Revisions kept;
  kept.add(all.since(0));
  all = {10, 16, {{1, 16}, {2, 15}}};
  kept.add(all.since(15));
  EXPECT_EQ(kept.of(1), 16);
  EXPECT_EQ(kept.of(2), 15);
  EXPECT_EQ(kept.last, 16);
}

/// Helpers that are scripts: what a question's path holds says what they do.
class PageHelpersTest : public testing::Test {
protected:
  static constexpr const char* script = R"sh(#!/bin/sh
reply() { printf '{"status":200,"type":"t","headers":[],"size":%s,"said":"%s"}\n%s' "${#1}" "$2" "$1"; }
while IFS= read -r line; do
  case $line in
  *hang*) echo >>"DIR/hanging"; until [ -e "DIR/back" ]; do sleep 0.02; done; reply "late" ;;
  *die*) echo >>"DIR/deaths"; kill -9 $$ ;;
  *stray*) echo "error while loading shared libraries" ;;
  *large*) printf '{"status":200,"type":"t","headers":[],"size":5000000,"said":""}\n'; head -c 5000000 /dev/zero ;;
  *speak*) reply "spoken" "one word" ;;
  *who*) reply "$$" ;;
  *revisions*) reply "$(printf '%s' "$line" | sed 's/.*"jobs":\(\[.*\]\)}/\1/')" ;;
  *) reply "good" ;;
  esac
done
)sh";

  PageHelpersTest() {
    std::string text = script;
    for (std::size_t at = 0; (at = text.find("DIR", at)) != std::string::npos;) {
      text.replace(at, 3, directory.path());
    }
    program = directory.write("helper", text);
  }
  PageHelpers helpersWith(const PageHelperLimits& limits) {
    return PageHelpers({"/bin/sh", program}, limits, [this] { return now; });
  }
  static HttpRequest request(const std::string& path, const char* method = "GET") {
    return {method, path, {}, {}, {}, false};
  }
  void ask(PageHelpers& helpers, const std::string& about, const std::string& path,
           const char* method = "GET") {
    helpers.ask(about, request(path, method), revisions,
                [this, path](const HttpResponse& response) { answers[path] = response; });
  }
  template <typename Condition> void until(PageHelpers& helpers, Condition isSo) {
    const Clock::time_point end = Clock::now() + std::chrono::seconds(20);
    while (!isSo()) {
      ASSERT_LT(Clock::now(), end) << "it did not come";
      std::vector<pollfd> descriptors;
      helpers.addTo(descriptors);
      poll(descriptors.data(), descriptors.size(), 20);
      helpers.advance(revisions);
    }
  }
  std::string answered(PageHelpers& helpers, const std::string& about, const std::string& path) {
    answers.erase(path);
    ask(helpers, about, path);
    until(helpers, [&] { return answers.contains(path); });
    return answers[path].body;
  }
  void hang(PageHelpers& helpers, const std::string& about, const std::string& path) {
    ++hanging;
    ask(helpers, about, path);
    until(helpers, [&] { return readFile(directory.file("hanging")).size() == hanging; });
  }
  static std::string messageOf(const HttpResponse& response) {
    return Json::parse(response.body).value("message", "");
  }

  TemporaryDirectory directory;
  std::size_t hanging = 0; ///< helpers
  std::string program;
  Clock::time_point now = Clock::now();
  Revisions revisions{1, 1, {}};
  std::map<std::string, HttpResponse> answers;
};

TEST_F(PageHelpersTest, AQuestionIsAnswered) {
  PageHelpers helpers = helpersWith({});
  EXPECT_FALSE(helpers.deadline());
  EXPECT_EQ(answered(helpers, "job 1", "/a"), "good");
  EXPECT_EQ(answers["/a"].status, 200);
  EXPECT_EQ(answered(helpers, "job 1", "/large").size(), 5'000'000U);
  EXPECT_EQ(answered(helpers, "job 1", "/speak"), "spoken");
  EXPECT_EQ(helpers.takeSaid(), "one word");
  EXPECT_EQ(helpers.takeSaid(), "");
}

TEST_F(PageHelpersTest, AHelperHearsOnlyOfNewRevisions) {
  PageHelpers helpers = helpersWith({});
  revisions = {1, 3, {{5, 2}, {6, 3}}};
  EXPECT_EQ(answered(helpers, "job 5", "/revisions"), "[[5,2],[6,3]]");
  revisions = {1, 4, {{5, 4}, {6, 3}}};
  EXPECT_EQ(answered(helpers, "job 5", "/revisions"), "[[5,4]]");
  EXPECT_EQ(answered(helpers, "job 5", "/revisions"), "[]");
}

TEST_F(PageHelpersTest, AFolderThatHangsHoldsUpNothingElse) {
  PageHelpers helpers = helpersWith({});
  hang(helpers, "job 1", "/hang");
  EXPECT_EQ(answered(helpers, "job 2", "/b"), "good");
  ask(helpers, "job 1", "/c");
  now += std::chrono::seconds(29);
  EXPECT_EQ(answered(helpers, "job 2", "/b"), "good");
  EXPECT_FALSE(answers.contains("/hang"));
  EXPECT_FALSE(answers.contains("/c")); // questions about one thing go one after the other
  now += std::chrono::seconds(1);
  until(helpers, [&] { return answers.contains("/hang") && answers.contains("/c"); });
  EXPECT_EQ(answers["/hang"].status, 503);
  EXPECT_EQ(messageOf(answers["/hang"]), "no answer came within 30 s");
  // While it still hangs, nobody waits for it again.
  const std::string again = answered(helpers, "job 1", "/d");
  EXPECT_EQ(messageOf(answers["/d"]), "there is still no answer");
  EXPECT_EQ(answered(helpers, "job 2", "/b"), "good");
  directory.write("back", "");
  until(helpers, [&] { return answered(helpers, "job 1", "/e") == "good"; });
}

TEST_F(PageHelpersTest, EachThingThatHangsTakesOneHelperAndThereIsOneMoreUntilThereAreTooMany) {
  PageHelperLimits limits;
  limits.quick = 1;
  limits.all = 3;
  PageHelpers helpers = helpersWith(limits);
  for (const char* about : {"1", "2"}) {
    hang(helpers, about, std::string("/hang") + about);
    now += limits.slow;
  }
  EXPECT_EQ(answered(helpers, "3", "/a"), "good");
  hang(helpers, "3", "/hang3");
  now += limits.slow;
  ask(helpers, "4", "/b");
  helpers.advance(revisions);
  EXPECT_FALSE(answers.contains("/b"));
  now += limits.patience;
  until(helpers, [&] { return answers.contains("/b"); });
  EXPECT_EQ(answers["/b"].status, 503);
}

TEST_F(PageHelpersTest, AHelperThatDiesIsReplacedAndTheQuestionAskedOnceMore) {
  PageHelpers helpers = helpersWith({});
  const std::string death = answered(helpers, "1", "/die");
  EXPECT_EQ(answers["/die"].status, 503);
  EXPECT_EQ(messageOf(answers["/die"]), "the program that answers was killed by signal 9 (Killed)");
  EXPECT_EQ(readFile(directory.file("deaths")), "\n\n");
  EXPECT_EQ(answered(helpers, "1", "/a"), "good");
}

TEST_F(PageHelpersTest, WhatChangesSomethingIsNotAskedTwice) {
  PageHelpers helpers = helpersWith({});
  ask(helpers, "1", "/die", "POST");
  EXPECT_TRUE(helpers.steers());
  until(helpers, [&] { return answers.contains("/die"); });
  EXPECT_FALSE(helpers.steers());
  EXPECT_EQ(readFile(directory.file("deaths")), "\n");
}

TEST_F(PageHelpersTest, WhatIsNoReplyIsTold) {
  PageHelpers helpers = helpersWith({});
  const std::string stray = answered(helpers, "1", "/stray");
  EXPECT_EQ(answers["/stray"].status, 503);
  EXPECT_EQ(messageOf(answers["/stray"]),
            "the program that answers said \"error while loading shared libraries\"");
  EXPECT_EQ(answered(helpers, "1", "/a"), "good");
}

TEST_F(PageHelpersTest, AHelperThatNobodyAsksEnds) {
  PageHelpers helpers = helpersWith({});
  const std::string first = answered(helpers, "1", "/who");
  EXPECT_EQ(answered(helpers, "2", "/who"), first);
  ASSERT_TRUE(helpers.deadline());
  now = *helpers.deadline();
  helpers.advance(revisions);
  EXPECT_FALSE(helpers.deadline());
  EXPECT_NE(answered(helpers, "1", "/who"), first);
}

TEST_F(PageHelpersTest, WithoutItsProgramTheReasonIsTold) {
  PageHelpers helpers({directory.file("none")});
  const std::string none = answered(helpers, "1", "/a");
  EXPECT_EQ(answers["/a"].status, 503);
  EXPECT_EQ(messageOf(answers["/a"]),
            "cannot start \"" + directory.file("none") + "\": No such file or directory");
}

} // namespace
} // namespace trovik
