#include "trovik/page/Http.h"
#include "trovik/page/PageRoute.h"
#include "trovik/page/PageSite.h"
#include "trovik/page/Steering.h"

#include "tests/trovik/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace trovik {
namespace {

using Kind = PageRoute::Kind;

TEST(PageRoute, NumbersLeadToJobsFilesAndAttempts) {
  EXPECT_EQ(routeOf("/api/about").kind, Kind::About);
  EXPECT_EQ(routeOf("/api/jobs").kind, Kind::Jobs);
  EXPECT_EQ(routeOf("/api/machine").kind, Kind::Machine);
  EXPECT_EQ(routeOf("/api/events").kind, Kind::Events);
  EXPECT_EQ(routeOf("/api/jobs/12").kind, Kind::Job);
  EXPECT_EQ(routeOf("/api/jobs/12").number, 12);
  EXPECT_EQ(routeOf("/api/jobs/12/cells").kind, Kind::Cells);
  EXPECT_EQ(routeOf("/api/jobs/12/frames/-7").kind, Kind::Frame);
  EXPECT_EQ(routeOf("/api/jobs/12/frames/-7").frame, -7);
  EXPECT_EQ(routeOf("/api/jobs/12/frames/work").kind, Kind::Frame);
  EXPECT_EQ(routeOf("/api/jobs/12/frames/work").frame, std::nullopt);
  EXPECT_EQ(routeOf("/api/files/3/picture").kind, Kind::Picture);
  EXPECT_EQ(routeOf("/api/files/3/original").kind, Kind::Original);
  EXPECT_EQ(routeOf("/api/attempts/4/log").kind, Kind::Log);
  for (const char* action : {"retry", "missing", "cancel", "hold", "release", "set", "delete"}) {
    const PageRoute route = routeOf(std::string("/api/jobs/5/") + action);
    EXPECT_EQ(route.kind, Kind::Steer) << action;
    EXPECT_EQ(route.action, action);
  }
}

TEST(PageRoute, WhatIsNoNumberLeadsNowhere) {
  for (const char* path : {"/api",
                           "/api/",
                           "/api/jobs/",
                           "/api/jobs/0",
                           "/api/jobs/-1",
                           "/api/jobs/1x",
                           "/api/jobs/+1",
                           "/api/jobs/ 1",
                           "/api/jobs/9223372036854775808",
                           "/api/jobs/1/",
                           "/api/jobs/1/cells/",
                           "/api/jobs/1/frames",
                           "/api/jobs/1/frames/",
                           "/api/jobs/1/frames/x",
                           "/api/jobs/1/frames/2147483648",
                           "/api/files/1",
                           "/api/files/../picture",
                           "/api/files/%2e%2e/picture",
                           "/api/files/1/picture/..",
                           "/api/attempts/1/logs",
                           "/api/nothing",
                           "/api/about/x",
                           "/api//jobs",
                           "/api/jobs/1/frames/1/x"}) {
    EXPECT_EQ(routeOf(path).kind, Kind::Unknown) << path;
  }
  for (const char* path : {"", "/", "api/jobs", "/apis", "//api/jobs", "/assets/../api/jobs", "*",
                           "http://127.0.0.1/api/jobs"}) {
    EXPECT_EQ(routeOf(path).kind, Kind::Site) << path;
  }
}

TEST(HttpRequestTarget, IsSplitAndNotDecoded) {
  HttpRequest request;
  readTarget("/a%20b?x=1&y&z=a=b&x=2&=3", request);
  EXPECT_EQ(request.path, "/a%20b");
  EXPECT_EQ(request.query,
            (std::map<std::string, std::string>{{"", "3"}, {"x", "2"}, {"y", ""}, {"z", "a=b"}}));
  readTarget("/?", request);
  EXPECT_EQ(request.path, "/");
  EXPECT_TRUE(request.query.empty());
}

HttpRequest get(const std::string& path) {
  HttpRequest request;
  request.method = "GET";
  request.path = path;
  return request;
}

TEST(PageSite, ServesWhatLayThereAndNothingElse) {
  const TemporaryDirectory directory;
  directory.write("site/index.html", "<!doctype html>");
  directory.write("site/page.js", "let a;");
  directory.write("site/views/job.js", "let b;");
  directory.write("site/notes.md", "mine");
  directory.write("secret.js", "mine");
  const PageSite site(Path(directory.file("site")));
  directory.write("site/later.js", "too late");
  ASSERT_TRUE(site.answer(get("/")));
  EXPECT_EQ(site.answer(get("/"))->type, "text/html; charset=utf-8");
  EXPECT_EQ(site.answer(get("/"))->fileSize, 15U);
  EXPECT_EQ(site.answer(get("/assets/page.js"))->type, "text/javascript; charset=utf-8");
  EXPECT_TRUE(site.answer(get("/assets/views/job.js")));
  for (const char* path : {"/index.html", "/page.js", "/assets/", "/assets/notes.md", "/assets/later.js",
                           "/assets/../secret.js", "/assets/views/../page.js", "/assets//page.js",
                           "/assets/views", "/assets/page.js/", "", "/../secret.js"}) {
    EXPECT_FALSE(site.answer(get(path))) << path;
  }
  std::filesystem::remove(directory.file("site/page.js"));
  EXPECT_FALSE(site.answer(get("/assets/page.js")));
}

TEST(PageSite, WhatIsUnchangedIsNotSentAgain) {
  const TemporaryDirectory directory;
  directory.write("index.html", "one");
  const PageSite site(Path(directory.path()));
  HttpRequest request = get("/");
  const std::string tag = site.answer(request)->headers.at(1).second;
  request.headers = {{"if-none-match", tag}};
  EXPECT_EQ(site.answer(request)->status, 304);
  directory.write("index.html", "longer");
  EXPECT_EQ(site.answer(request)->status, 200);
}

TEST(PageSite, WithoutItsFilesThereIsNoPage) {
  const TemporaryDirectory directory;
  EXPECT_EQ(refusalOf([&] { const PageSite site(Path(directory.path())); }).message,
            "the files of the page are not there: no index.html in \"" + directory.path() + '"');
}

TEST(SteeringWishText, TellsWhatIsToBeDone) {
  using Action = SteeringWish::Action;
  const SteeringWish retry = steeringWish(Action::Retry, 3, R"({"dryRun": true, "frames": "1-5"})");
  EXPECT_TRUE(retry.dryRun);
  EXPECT_EQ(retry.frames, "1-5");
  EXPECT_EQ(retry.job, 3);
  EXPECT_FALSE(steeringWish(Action::Retry, 3, R"({"frames": null})").frames);
  EXPECT_TRUE(steeringWish(Action::Cancel, 3, R"({"withFollowers": true})").withFollowers);
  const SteeringWish set = steeringWish(Action::Set, 3, R"({"changes": {"Priority": 80, "Limits": "a=2"}})");
  EXPECT_EQ(set.changes,
            (std::vector<std::pair<std::string, std::string>>{{"Priority", "80"}, {"Limits", "a=2"}}));
}

TEST(SteeringWishText, WhatIsNoWishIsRefused) {
  using Action = SteeringWish::Action;
  const auto message = [](Action action, const std::string& body) {
    return refusalOf([&] { steeringWish(action, 1, body); }).message;
  };
  EXPECT_EQ(message(Action::Retry, ""), "the body is no JSON");
  EXPECT_EQ(message(Action::Retry, "[]"), "the body is no object");
  EXPECT_EQ(message(Action::Retry, "{\"a\": \"\xff\"}"), "the body is no JSON");
  EXPECT_EQ(message(Action::Retry, std::string(60000, '[')), "the body is no JSON");
  EXPECT_EQ(message(Action::Retry, R"({"dryRun": "yes"})"), "dryRun is not true or false");
  EXPECT_EQ(message(Action::Retry, R"({"frames": 7})"), "frames is not a text");
  EXPECT_EQ(message(Action::Hold, R"({"frames": "7"})"), "\"frames\" is nothing that \"hold\" takes");
  EXPECT_EQ(message(Action::Set, R"({})"), "nothing is to change");
  EXPECT_EQ(message(Action::Set, R"({"changes": {"Priority": [1]}})"),
            "Priority is not a text or a whole number");
  EXPECT_EQ(message(Action::Set, R"({"changes": {"A=1 B": 2}})"), "\"A=1 B\" is no name");
}

} // namespace
} // namespace trovik
