#include "trovik/reports/JobTable.h"
#include "tests/trovik/verbs/VerbTest.h"
#include "trovik/verbs/Verbs.h"

#include "trovik/text/Json.h"

namespace trovik {
namespace {

using namespace std::chrono_literals;

constexpr Moment now{std::chrono::microseconds(1'700'000'000'000'000)};

JobView viewWith(JobId id, JobState state, const std::string& good, const std::string& failed,
                 const std::string& ready) {
  JobView view;
  view.job.id = id;
  view.job.name = "shot";
  view.job.typeName = "POV-Ray";
  view.job.state = state;
  view.job.created = now - 3h;
  view.job.started = now - 2h;
  view.job.logs = "/logs";
  if (!isOpen(state)) {
    view.job.ended = now - 2h + 83s;
  }
  view.frames.good = setOf(good);
  view.frames.failed = setOf(failed);
  view.frames.ready = setOf(ready);
  view.frames.runningWorks = state == JobState::Running ? 1 : 0;
  return view;
}

std::string tableOf(const std::vector<JobView>& views, bool terminal, bool colour = false,
                    std::size_t width = 80) {
  const Console console([](std::string_view) {}, [](std::string_view) {}, {terminal, false, colour, false},
                        [width] { return width; });
  return jobTable(console, views, now);
}

std::vector<JobView> someViews() {
  std::vector<JobView> views = {
      viewWith(7, JobState::Good, "1-36", "", ""), viewWith(12, JobState::Failed, "1-99", "100", ""),
      viewWith(13, JobState::Running, "1-5", "", "6-240"), viewWith(14, JobState::Waiting, "", "", "1")};
  views[1].job.name.clear();
  views[1].job.scene = "/shots/a scene with a rather long name that goes on and on_%04d.pov";
  views[3].job.started.reset();
  views[3].job.name.clear();
  views[3].job.created = now - 12s;
  return views;
}

TEST(JobTable, JsonTellsTheSameStatesAndNames) {
  std::vector<JobView> views = someViews();
  views[2].frames.runningWorks = 0; // nothing of it runs just now
  std::string told;
  for (const JobView& view : views) {
    const Json json = jobJson(view, now);
    told += json.at("state").get<std::string>() + ' ' + json.at("name").get<std::string>() + '\n';
  }
  EXPECT_EQ(told, "good shot\n"
                  "failed a scene with a rather long name that goes on and on_%04d.pov\n"
                  "waiting shot\n"
                  "waiting job 14\n");
}

TEST(JobTable, IsTheSameInEveryPipe) {
  const std::string expected = "JOB  STATE      GOOD  FAILED        TIME   AGE  TYPE     NAME\n"
                               "  7  good      36/36       -  1 min 23 s   3 h  POV-Ray  shot\n"
                               " 12  failed   99/100       1  1 min 23 s   3 h  POV-Ray  "
                               "a scene with a rather long name that goes on and on_%04d.pov\n"
                               " 13  running   5/240       -  2 h 00 min   3 h  POV-Ray  shot\n"
                               " 14  waiting     0/1       -           -  12 s  POV-Ray  job 14\n";
  EXPECT_EQ(tableOf(someViews(), false), expected);
  EXPECT_EQ(tableOf(someViews(), false, false, 40), expected);
}

TEST(JobTable, AnOpenJobOfWhichNothingRunsWaits) {
  JobView view = viewWith(1, JobState::Running, "1", "", "2");
  view.frames.runningWorks = 0;
  EXPECT_EQ(tableOf({view}, false), "JOB  STATE    GOOD  FAILED        TIME  AGE  TYPE     NAME\n"
                                    "  1  waiting   1/2       -  2 h 00 min  3 h  POV-Ray  shot\n");
}

TEST(JobTable, FitsATerminal) {
  const std::string table = tableOf(someViews(), true);
  EXPECT_NE(table.find(" 12  failed   99/100       1  1 min 23 s   3 h  POV-Ray  a scene with a rather …\n"),
            std::string::npos)
      << table;
  for (std::size_t begin = 0; begin < table.size();) {
    const std::size_t end = table.find('\n', begin);
    EXPECT_LE(displayWidth(table.substr(begin, end - begin)), 80U);
    begin = end + 1;
  }
}

TEST(JobTable, WideFormTellsWhatProgramsUsedAndIsNotCut) {
  std::vector<JobView> views = someViews();
  views.resize(2);
  views[0].job.output = "/shots/out";
  const Console console([](std::string_view) {}, [](std::string_view) {}, {true, false, false, false},
                        [] { return std::size_t{60}; });
  EXPECT_EQ(jobTable(console, views, now,
                     JobUsages{ProcessUsage{90'000'000, 3'000'000, 812'000'000}, std::nullopt}),
            "JOB  STATE     GOOD  FAILED        TIME  AGE  TYPE     NAME"
            "                                                                 CPU  MEMORY  PRIO  OUTPUT\n"
            "  7  good     36/36       -  1 min 23 s  3 h  POV-Ray  shot"
            "                                                          1 min 33 s  812 MB    50  /shots/out\n"
            " 12  failed  99/100       1  1 min 23 s  3 h  POV-Ray  "
            "a scene with a rather long name that goes on and on_%04d.pov           -       -    50  -\n");
}

TEST(JobTable, ColoursTheStatesAndTheFailures) {
  const std::string table = tableOf({viewWith(12, JobState::Failed, "1-99", "100", "")}, true, true);
  EXPECT_NE(table.find("\x1b[31mfailed\x1b[0m  99/100  \x1b[31m     1\x1b[0m"), std::string::npos) << table;
}

TEST(JobTable, NamesCannotSteerTheTerminal) {
  JobView view = viewWith(1, JobState::Good, "1", "", "");
  view.job.name = "a\x1b[2J\nb\xff";
  view.job.typeName = "T\x1b[31m";
  EXPECT_EQ(tableOf({view}, true),
            "JOB  STATE  GOOD  FAILED        TIME  AGE  TYPE       NAME\n"
            "  1  good    1/1       -  1 min 23 s  3 h  T\\x1b[31m  a\\x1b[2J\\nb\\xff\n");
}

class Jobs : public VerbTest {};

TEST_F(Jobs, ANamedQueueThatIsNotThereIsRefusedAndStaysAway) {
  const std::string named = directory.file("none/queue");
  JobsOptions options = optionsFor();
  options.state = named;
  const std::string message = "--state: there is no queue in \"" + named + '"';
  EXPECT_EQ(refusalOf([&] { call(listJobs, options); }).message, message);
  JobOptions job = optionsFor();
  job.state = named;
  StatsOptions stats;
  stats.state = named;
  EXPECT_EQ(refusalOf([&] { call(showStats, stats); }).message, message);
  job.job = "last";
  EXPECT_EQ(refusalOf([&] { call(showJob, job); }).message, message);
  EXPECT_EQ(access(directory.file("none").c_str(), F_OK), -1);
}

TEST_F(Jobs, TheLastTwentyAndAllOpenOnesAreListed) {
  for (int i = 1; i <= 25; ++i) {
    NewJob job = jobOf("1");
    job.priority = i == 2 ? 1 : 50;
    queue.submit(job);
  }
  // All but the second, which nobody has taken.
  for (int i = 0; i < 24; ++i) {
    queue.settle(good(take().attempt));
  }
  const auto numbersOf = [&](const JobsOptions& options) {
    JobsOptions json = options;
    json.json = true;
    std::string numbers;
    const Json document = Json::parse(call(listJobs, json).out);
    for (const Json& job : document.at("jobs")) {
      numbers += (numbers.empty() ? "" : " ") + job.at("job").dump();
    }
    return numbers;
  };
  EXPECT_EQ(numbersOf(optionsFor()), "2 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 25");
  JobsOptions options = optionsFor();
  options.limit = "3";
  EXPECT_EQ(numbersOf(options), "23 24 25");
  options.limit.reset();
  options.all = true;
  EXPECT_EQ(numbersOf(options).substr(0, 8), "1 2 3 4 ");
  const std::string shown = call(listJobs, optionsFor(), true).out;
  EXPECT_EQ(shown.substr(shown.size() - 25), "\n4 older jobs with --all\n");
}

TEST_F(Jobs, AJobIsToldWholeInJson) {
  NewJob job = jobOf("1-2,3");
  job.priority = 70;
  queue.submit(job);
  workOff([](int frame) { return frame == 3 ? "Error line: bad" : ""; });
  JobsOptions options = optionsFor();
  options.json = true;
  const Json document = Json::parse(call(listJobs, options).out);
  EXPECT_EQ(document.at("kind"), "jobs");
  EXPECT_EQ(document.at("more"), 0);
  Json told = document.at("jobs").at(0);
  for (const char* time : {"submitted", "started", "ended", "seconds"}) {
    EXPECT_TRUE(told.at(time).is_number()) << time;
    told.erase(time);
  }
  EXPECT_EQ(told.dump(), R"({"job":1,"name":"shot","type":"Sketch","typeId":)"
                         R"("5f0c9a5e-6d0b-4c86-9d0f-2f4f3b1f7a10","scene":"/scenes/shot_%04d.skt",)"
                         R"("range":"1-2,3","state":"failed","note":"Error line: bad","priority":70,)"
                         R"("counts":{"total":3,"good":2,"failed":1,"running":0,"ready":0,"canceled":0,)"
                         R"("blocked":0},)"
                         R"("frames":{"good":"1-2","failed":"3","running":"","ready":"","canceled":"",)"
                         R"("blocked":""},"after":[],)"
                         R"("output":"/home/ada/out","logs":")" +
                             directory.file("logs/1") + "\"}");
}

TEST_F(Jobs, WrongLimitsAreRefused) {
  JobsOptions options = optionsFor();
  options.limit = "0";
  EXPECT_EQ(refusalOf([&] { call(listJobs, options); }).message,
            "--limit: \"0\" is not a whole number from 1 on");
  options.limit = "3";
  options.all = true;
  EXPECT_EQ(refusalOf([&] { call(listJobs, options); }).message, "--all and --limit exclude each other");
}

} // namespace
} // namespace trovik
