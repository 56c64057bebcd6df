#include "trovik/page/PagePictures.h"
#include "trovik/page/PictureCache.h"
#include "trovik/text/Json.h"

#include "tests/trovik/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sys/stat.h>

extern const char* const FAKE_IMAGE_HELPER;

namespace trovik {
namespace {

FileIdentity fileOf(std::int64_t size) {
  return {1, 2, size, 4};
}

void keep(PictureCache& cache, const FileIdentity& file, int width, std::size_t bytes) {
  const Path draft = cache.draft();
  std::ofstream(draft.c_str()) << std::string(bytes, 'p');
  cache.keep(draft, file, width);
}

TEST(PictureCache, KeepsAPictureOfTheFileAsItWas) {
  const TemporaryDirectory directory;
  PictureCache cache(Path(directory.file("a/pictures")));
  EXPECT_FALSE(cache.find(fileOf(1), 160));
  keep(cache, fileOf(1), 160, 100);
  ASSERT_TRUE(cache.find(fileOf(1), 160));
  EXPECT_EQ(cache.find(fileOf(1), 160)->identity.size, 100);
  EXPECT_FALSE(cache.find(fileOf(1), 320));
  EXPECT_FALSE(cache.find(fileOf(2), 160));
  EXPECT_FALSE(cache.find({1, 2, 1, 5}, 160));
  struct stat facts {};
  ASSERT_EQ(stat(directory.file("a/pictures").c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 0777U, 0700U);
}

TEST(PictureCache, WhatWasNotAskedForTheLongestGoes) {
  const TemporaryDirectory directory;
  PictureCache cache(Path(directory.path()), 10'000);
  namespace fs = std::filesystem;
  const fs::path mine = directory.write("mine.txt", std::string(20'000, 'x'));
  for (int i = 1; i <= 9; ++i) {
    keep(cache, fileOf(i), 160, 1000);
    for (const auto& entry : fs::directory_iterator(directory.path())) {
      fs::last_write_time(entry, fs::last_write_time(entry) - std::chrono::hours(1));
    }
  }
  ASSERT_TRUE(cache.find(fileOf(1), 160)); // which makes it the newest
  keep(cache, fileOf(10), 160, 1000);
  keep(cache, fileOf(11), 160, 1000);
  EXPECT_TRUE(cache.find(fileOf(1), 160));
  EXPECT_FALSE(cache.find(fileOf(2), 160));
  EXPECT_TRUE(cache.find(fileOf(11), 160));
  EXPECT_TRUE(fs::exists(mine));
}

TEST(PictureCache, ALinkIsNoPicture) {
  const TemporaryDirectory directory;
  PictureCache cache(Path(directory.path()));
  keep(cache, fileOf(1), 160, 10);
  const auto picture = std::filesystem::directory_iterator(directory.path())->path();
  const TemporaryDirectory other;
  std::filesystem::rename(picture, other.file("a.jpg"));
  std::filesystem::create_symlink(other.file("a.jpg"), picture);
  EXPECT_FALSE(cache.find(fileOf(1), 160));
}

TEST(ServedFile, IsARegularFileAndNoLink) {
  const TemporaryDirectory directory;
  const std::string file = directory.write("a.png", "abc");
  EXPECT_TRUE(ServedFile(file).isThere());
  EXPECT_EQ(ServedFile(file).identity.size, 3);
  EXPECT_EQ(ServedFile(directory.file("b.png")).problem, "it is not there any more");
  std::filesystem::create_symlink(file, directory.file("link"));
  EXPECT_EQ(ServedFile(directory.file("link")).problem, "a link lies in its place");
  ASSERT_EQ(mkfifo(directory.file("pipe").c_str(), 0600), 0);
  EXPECT_EQ(ServedFile(directory.file("pipe")).problem, "it is no regular file");
  EXPECT_EQ(ServedFile(directory.path()).problem, "it is no regular file");
  EXPECT_FALSE(ServedFile("").isThere());
  EXPECT_FALSE(ServedFile("/dev/null").isThere());
  EXPECT_FALSE(ServedFile(std::string("/etc/hostname\0.png", 18)).isThere());
}

class PagePicturesTest : public testing::Test {
protected:
  /// What a request for a file is answered with, however late.
  HttpResponse ask(const std::string& file, const std::string& width = "160") {
    HttpRequest request;
    request.query["w"] = width;
    const HttpAnswer answer = pictures.answer(request, numberOf(file), ++exchange);
    if (answer.kind == HttpAnswer::Kind::Now) {
      return answer.response;
    }
    if (answers.contains(exchange)) {
      ++atOnce;
    }
    while (!answers.contains(exchange)) {
      std::vector<pollfd> descriptors;
      pictures.addTo(descriptors);
      const bool due = pictures.deadline() && *pictures.deadline() <= Clock::now();
      if (!due && poll(descriptors.data(), descriptors.size(), 20'000) <= 0) {
        ADD_FAILURE() << "no answer came";
        return {};
      }
      pictures.advance(Clock::now());
    }
    return answers[exchange];
  }
  static std::string problemOf(const HttpResponse& response) {
    return Json::parse(response.body).value("problem", "");
  }

  std::int64_t numberOf(const std::string& file) {
    files.push_back(file);
    return static_cast<std::int64_t>(files.size()) - 1;
  }
  /// Finds at once.
  PagePictures::Find find = [this](std::int64_t number, const PagePictures::Then& then) {
    FoundFile found{files.at(static_cast<std::size_t>(number)), {}, std::nullopt};
    const ServedFile file(found.path);
    found.identity = file.identity;
    if (!file.isThere()) {
      found.refusal.emplace();
      found.refusal->status = 404;
    }
    then(found);
  };

  TemporaryDirectory directory;
  std::vector<std::string> files;
  std::map<HttpExchange, HttpResponse> answers;
  HttpExchange exchange = 0;
  int atOnce = 0;
  PagePictures pictures{Path(directory.file("cache")), Path(FAKE_IMAGE_HELPER),
                        [this](HttpExchange id, HttpResponse response) { answers[id] = std::move(response); },
                        find};
};

TEST_F(PagePicturesTest, AFileThatTheHelperDiesOfIsNotTriedAgainUntilItChanges) {
  const std::string file = directory.write("crash.png", "a");
  EXPECT_EQ(ask(file).status, 415);
  EXPECT_EQ(atOnce, 0);
  const HttpResponse again = ask(file, "320");
  EXPECT_EQ(again.status, 415);
  EXPECT_EQ(problemOf(again), "The image library crashed on it");
  EXPECT_EQ(atOnce, 1);
  directory.write("crash.png", "ab");
  EXPECT_EQ(ask(file).status, 415);
  EXPECT_EQ(atOnce, 1);
}

TEST_F(PagePicturesTest, AFileThatIsGoneOrALinkHasNoPicture) {
  EXPECT_EQ(ask(directory.file("none.png")).status, 404);
  std::filesystem::create_symlink("/etc/hostname", directory.file("link.png"));
  EXPECT_EQ(ask(directory.file("link.png")).status, 404);
  EXPECT_EQ(atOnce, 2);
}

TEST_F(PagePicturesTest, AWidthIsOneOfThoseThereAre) {
  const std::string file = directory.write("a.png", "a");
  for (const char* width : {"", "0", "161", "-160", "160x", "99999999999"}) {
    EXPECT_EQ(ask(file, width).status, 400) << width;
  }
}

TEST_F(PagePicturesTest, SoManyWaitAndNoMore) {
  HttpRequest request;
  request.query["w"] = "80";
  for (int i = 0; i < 300; ++i) {
    const std::string file = directory.write("hang" + std::to_string(i) + ".png", "a");
    EXPECT_EQ(pictures.answer(request, numberOf(file), static_cast<HttpExchange>(i)).kind,
              HttpAnswer::Kind::Later);
  }
  EXPECT_EQ(answers.size(), 44U); // those that are not waited for
  for (const auto& [id, response] : answers) {
    EXPECT_EQ(response.status, 503);
  }
}

TEST_F(PagePicturesTest, WithoutAHelperTheReasonIsTold) {
  PagePictures none(
      Path(directory.file("cache")), Path(directory.file("no-such-program")),
      [this](HttpExchange id, HttpResponse response) { answers[id] = std::move(response); }, find);
  HttpRequest request;
  request.query["w"] = "80";
  EXPECT_EQ(none.answer(request, numberOf(directory.write("a.png", "a")), 7).kind, HttpAnswer::Kind::Later);
  ASSERT_TRUE(none.deadline());
  none.advance(Clock::now());
  ASSERT_TRUE(answers.contains(7));
  EXPECT_EQ(answers[7].status, 503); // which says nothing of the file
}

} // namespace
} // namespace trovik
