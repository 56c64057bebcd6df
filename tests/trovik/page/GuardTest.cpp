#include "trovik/page/PageGuard.h"
#include "trovik/page/PageListening.h"
#include "trovik/page/PageReplies.h"
#include "trovik/page/PageToken.h"
#include "trovik/text/UsageError.h"

#include "tests/trovik/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace trovik {
namespace {

PageGuard guard() {
  PageGuard guard;
  guard.token = "0123456789abcdef";
  guard.cookie = "trovik-7780";
  guard.hosts = {"127.0.0.1:7780", "localhost:7780"};
  guard.port = 7780;
  return guard;
}

HttpRequest request(const std::string& target, const std::string& method = "GET") {
  HttpRequest request;
  request.method = method;
  readTarget(target, request);
  request.headers = {{"host", "127.0.0.1:7780"}, {"cookie", "trovik-7780=0123456789abcdef"}};
  return request;
}

HttpRequest with(HttpRequest request, const std::string& name, const std::string& value) {
  std::erase_if(request.headers, [&](const auto& header) { return header.first == name; });
  request.headers.emplace_back(name, value);
  return request;
}

HttpRequest without(HttpRequest request, const std::string& name) {
  std::erase_if(request.headers, [&](const auto& header) { return header.first == name; });
  return request;
}

int statusOf(const PageGuard& guard, const HttpRequest& request) {
  const auto refusal = refusalOf(guard, request);
  return refusal ? refusal->status : 200;
}

TEST(PageGuard, WhoHasTheCookieAsksByAnyNameOfThePage) {
  EXPECT_EQ(statusOf(guard(), request("/api/jobs")), 200);
  EXPECT_EQ(statusOf(guard(), with(request("/api/jobs"), "host", "localhost:7780")), 200);
  EXPECT_EQ(statusOf(guard(), request("/api/jobs", "HEAD")), 200);
  EXPECT_EQ(statusOf(guard(), with(request("/"), "cookie", "a=b; trovik-7780=0123456789abcdef; c=d")), 200);
}

TEST(PageGuard, WithoutTheCookieNothingIsTold) {
  for (const char* target : {"/", "/api/jobs", "/assets/page.js", "/?token=", "/?token=0123456789abcdeX",
                             "/?token=0123456789abcde", "/?token=0123456789abcdef0",
                             "/api/jobs?token=0123456789abcdef", "/%3ftoken=0123456789abcdef"}) {
    EXPECT_EQ(statusOf(guard(), without(request(target), "cookie")), 403) << target;
  }
  for (const char* cookie : {"", "trovik-7780", "trovik-7780=", "trovik-7780=0123456789abcdee",
                             "trovik=0123456789abcdef", "xtrovik-7780=0123456789abcdef"}) {
    EXPECT_EQ(statusOf(guard(), with(request("/api/jobs"), "cookie", cookie)), 403) << cookie;
  }
  HttpRequest twice = request("/api/jobs");
  twice.headers.emplace_back("cookie", "trovik-7780=0123456789abcdef");
  EXPECT_EQ(statusOf(guard(), twice), 403);
}

TEST(PageGuard, TheAddressWithTheTokenOpensThePage) {
  const HttpRequest opening = without(request("/?token=0123456789abcdef"), "cookie");
  EXPECT_TRUE(opensWithToken(guard(), opening));
  EXPECT_EQ(statusOf(guard(), opening), 200);
  EXPECT_EQ(cookieOf(guard()), "trovik-7780=0123456789abcdef; HttpOnly; SameSite=Strict; Path=/");
  HttpRequest steering = opening;
  steering.method = "POST";
  EXPECT_EQ(statusOf(guard(), with(steering, "content-type", "application/json")), 403);
}

TEST(PageGuard, AnotherNameIsRefusedWhateverItLeadsTo) {
  for (const char* host : {"evil.example:7780", "127.0.0.1", "127.0.0.1:80", "127.0.0.1:7780.evil.example",
                           "127.0.0.2:7780", "", "localhost", "LOCALHOST:7781"}) {
    EXPECT_EQ(statusOf(guard(), with(request("/api/jobs"), "host", host)), 403) << host;
    EXPECT_EQ(statusOf(guard(), with(request("/?token=0123456789abcdef"), "host", host)), 403) << host;
  }
  EXPECT_EQ(statusOf(guard(), without(request("/api/jobs"), "host")), 403);
  HttpRequest twice = request("/api/jobs");
  twice.headers.emplace_back("host", "evil.example");
  EXPECT_EQ(statusOf(guard(), twice), 403);
}

TEST(PageGuard, OneThatListensEverywhereTakesAddressesAndNoNames) {
  PageGuard open = guard();
  open.anyAddress = true;
  EXPECT_EQ(statusOf(open, with(request("/api/jobs"), "host", "192.168.1.20:7780")), 200);
  EXPECT_EQ(statusOf(open, with(request("/api/jobs"), "host", "[fe80::1]:7780")), 200);
  for (const char* host : {"evil.example:7780", "192.168.1.20:7781", "192.168.1.20.evil.example:7780",
                           "[evil]:7780", ":7780", "[]:7780"}) {
    EXPECT_EQ(statusOf(open, with(request("/api/jobs"), "host", host)), 403) << host;
  }
}

TEST(PageGuard, AnotherPageIsRefusedAlsoWhereItIsOfThisMachine) {
  const HttpRequest asked = request("/api/jobs");
  EXPECT_EQ(statusOf(guard(), with(asked, "origin", "http://127.0.0.1:7780")), 200);
  for (const char* origin : {"http://evil.example", "null", "", "https://127.0.0.1:7780",
                             "http://127.0.0.1:8000", "http://localhost:7780"}) {
    EXPECT_EQ(statusOf(guard(), with(asked, "origin", origin)), 403) << origin;
  }
  EXPECT_EQ(statusOf(guard(), with(asked, "sec-fetch-site", "same-origin")), 200);
  EXPECT_EQ(statusOf(guard(), with(asked, "sec-fetch-site", "none")), 200);
  EXPECT_EQ(statusOf(guard(), with(asked, "sec-fetch-site", "same-site")), 403);
  EXPECT_EQ(statusOf(guard(), with(asked, "sec-fetch-site", "cross-site")), 403);
  EXPECT_EQ(statusOf(guard(), with(request("/"), "sec-fetch-site", "cross-site")), 200);
}

TEST(PageGuard, SteeringNeedsJsonAndAPageThatSteers) {
  const HttpRequest retry = request("/api/jobs/1/retry", "POST");
  EXPECT_EQ(statusOf(guard(), with(retry, "content-type", "application/json")), 200);
  EXPECT_EQ(statusOf(guard(), with(retry, "content-type", "application/json; charset=utf-8")), 200);
  EXPECT_EQ(statusOf(guard(), retry), 415);
  EXPECT_EQ(statusOf(guard(), with(retry, "content-type", "text/plain")), 415);
  EXPECT_EQ(statusOf(guard(), with(retry, "content-type", "application/jsonx")), 415);
  PageGuard shows = guard();
  shows.readOnly = true;
  EXPECT_EQ(statusOf(shows, with(retry, "content-type", "application/json")), 403);
  EXPECT_EQ(statusOf(shows, request("/api/jobs")), 200);
  for (const char* method : {"PUT", "DELETE", "OPTIONS", "TRACE", "CONNECT", "get", "X"}) {
    EXPECT_EQ(statusOf(guard(), request("/api/jobs", method)), 405) << method;
  }
}

TEST(PageGuard, SecretsAreComparedToTheirEnd) {
  EXPECT_TRUE(isSameSecret("", ""));
  EXPECT_TRUE(isSameSecret("abc", "abc"));
  EXPECT_FALSE(isSameSecret("abc", "abd"));
  EXPECT_FALSE(isSameSecret("abc", "ab"));
  EXPECT_FALSE(isSameSecret("\xff", "\x7f"));
}

TEST(PageToken, IsKeptForThisUserAlone) {
  const TemporaryDirectory directory;
  const std::string token = pageToken(Path(directory.path()));
  EXPECT_EQ(token.size(), 64U);
  EXPECT_EQ(pageToken(Path(directory.path())), token);
  struct stat facts {};
  ASSERT_EQ(stat(directory.file("page-token").c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 0777U, 0600U);
  const TemporaryDirectory other;
  EXPECT_NE(pageToken(Path(other.path())), token);
}

TEST(PageToken, WhatOthersMayKnowIsReplaced) {
  const TemporaryDirectory directory;
  const std::string known(64, 'a');
  const std::string file = directory.write("page-token", known + '\n');
  ASSERT_EQ(chmod(file.c_str(), 0640), 0);
  EXPECT_NE(pageToken(Path(directory.path())), known);

  const std::string elsewhere = directory.write("elsewhere", known + '\n');
  ASSERT_EQ(chmod(elsewhere.c_str(), 0600), 0);
  std::filesystem::remove(file);
  std::filesystem::create_symlink(elsewhere, file);
  EXPECT_NE(pageToken(Path(directory.path())), known);
  EXPECT_EQ(readFile(elsewhere), known + '\n');

  for (const char* content : {"", "short\n", "A"}) {
    directory.write("page-token", content);
    chmod(file.c_str(), 0600);
    EXPECT_EQ(pageToken(Path(directory.path())).size(), 64U);
  }
}

TEST(PageListening, ListensForThisMachineAloneUnlessItIsToldOtherwise) {
  const PageSocket first = listenForPages(std::nullopt, std::nullopt);
  EXPECT_TRUE(first.onlyHere);
  EXPECT_FALSE(first.anyAddress);
  EXPECT_GE(first.port, usualPagePort);
  const std::string behind = ':' + std::to_string(first.port);
  EXPECT_EQ(first.hosts, (std::vector<std::string>{"127.0.0.1" + behind, "localhost" + behind}));
  const PageSocket second = listenForPages(std::nullopt, std::nullopt);
  EXPECT_GT(second.port, first.port);
  const Refusal refusal = refusalOf([&] { listenForPages(std::nullopt, first.port); });
  EXPECT_EQ(refusal.message, "cannot listen at 127.0.0.1" + behind + ": another program does");
  EXPECT_EQ(refusal.hint, "leave --port out for the next one that is free");
}

TEST(PageListening, AnAddressIsWrittenInNumbers) {
  EXPECT_EQ(refusalOf([] { listenForPages("render.example", 7780); }).message,
            "--listen: \"render.example\" is no address");
  const PageSocket every = listenForPages("0.0.0.0", std::nullopt);
  EXPECT_TRUE(every.anyAddress);
  EXPECT_FALSE(every.onlyHere);
  EXPECT_EQ(every.hosts.front(), "127.0.0.1:" + std::to_string(every.port));
}

TEST(PageReplies, WhatIsSaidInMarkupIsText) {
  EXPECT_EQ(asMarkup("<b>\"a\" & b</b>\n"), "&lt;b&gt;&quot;a&quot; &amp; b&lt;/b&gt;\\n");
  const HttpResponse words = secured(wordsResponse(403, "<script>", "a"));
  EXPECT_EQ(words.body.find("<script>"), std::string::npos);
  for (const char* name : {"Content-Security-Policy", "X-Content-Type-Options", "Referrer-Policy",
                           "Cross-Origin-Resource-Policy", "Cross-Origin-Opener-Policy"}) {
    EXPECT_EQ(std::count_if(words.headers.begin(), words.headers.end(),
                            [&](const auto& header) { return header.first == name; }),
              1)
        << name;
  }
}

} // namespace
} // namespace trovik
