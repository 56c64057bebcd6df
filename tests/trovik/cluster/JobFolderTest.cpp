#include "trovik/cluster/JobFolder.h"

#include "host/foundation/Exception.h"
#include "tests/trovik/TemporaryDirectory.h"
#include "trovik/cluster/FolderForms.h"
#include "trovik/text/UsageError.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <random>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace trovik {
namespace {

/// The text of the exception that an action raises; empty for none.
template <typename Action> std::string raisedBy(Action action) {
  try {
    action();
  } catch (Exception* exception) {
    return takeText(exception);
  }
  return {};
}

FileRecord fileRecord(const std::string& path, std::optional<int> frame) {
  FileRecord file;
  file.path = path;
  file.frame = frame;
  file.checked = true;
  file.problem = frame ? "" : "Truncated image";
  file.size = 1234567890123;
  file.modified = 1700000000123456789;
  return file;
}

WorkEnd endOf(int frame, int claim) {
  WorkEnd end;
  end.claim = claim;
  end.node = "n1";
  end.outcome.good.add({frame, frame});
  end.outcome.files = {fileRecord("/out/f_" + std::to_string(frame), frame)};
  return end;
}

void expectEqual(const FileRecord& left, const FileRecord& right) {
  EXPECT_EQ(left.path, right.path);
  EXPECT_EQ(left.frame, right.frame);
  EXPECT_EQ(left.checked, right.checked);
  EXPECT_EQ(left.problem, right.problem);
  EXPECT_EQ(left.size, right.size);
  EXPECT_EQ(left.modified, right.modified);
}

class JobFolderTest : public testing::Test {
protected:
  JobFolderTest() { array.create(plan); }

  std::string file(const std::string& name) const { return directory.file("job/1/" + name); }

  std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(directory.file("job/1"))) {
      found.push_back(entry.path().filename().string());
    }
    std::sort(found.begin(), found.end());
    return found;
  }

  TemporaryDirectory directory;
  JobFolder folder{Path(directory.file("job"))};
  ArrayFolder array{folder.array(1)};
  ArrayPlan plan{2,
                 "/logs/\xff",
                 true,
                 std::chrono::seconds(90),
                 {{{1, 3}, 1}, {{-4, -4}, 2, {"/a b.png", "/\xff"}}, {{7, 9}, 1}}};
};

TEST_F(JobFolderTest, JobComesBackAsItWas) {
  FolderJob job;
  job.queue = "0123abcd";
  job.job = std::numeric_limits<JobId>::max();
  job.name = "Sk\xc3\xa4tch \x80\xff\n";
  job.type = UID(true);
  job.typeName = "Sketch";
  job.hasFrames = false;
  job.packed = std::string("\0stream\xff", 8);
  folder.create(job);
  const FolderJob read = folder.read();
  EXPECT_EQ(read.queue, job.queue);
  EXPECT_EQ(read.job, job.job);
  EXPECT_EQ(read.name, job.name);
  EXPECT_TRUE(read.type == job.type);
  EXPECT_EQ(read.typeName, job.typeName);
  EXPECT_EQ(read.hasFrames, job.hasFrames);
  EXPECT_EQ(read.packed, job.packed);
  EXPECT_TRUE(std::filesystem::is_directory(folder.logs().Text().c_str()));
}

TEST_F(JobFolderTest, PlanComesBackAsItWas) {
  const ArrayPlan read = array.plan();
  EXPECT_EQ(read.perTask, plan.perTask);
  EXPECT_EQ(read.tasks(), 2U);
  EXPECT_EQ(read.logs, plan.logs);
  EXPECT_EQ(read.stage, plan.stage);
  EXPECT_EQ(read.patience, plan.patience);
  ASSERT_EQ(read.works.size(), plan.works.size());
  for (std::size_t i = 0; i < plan.works.size(); ++i) {
    EXPECT_EQ(read.works[i].run, plan.works[i].run);
    EXPECT_EQ(read.works[i].attempt, plan.works[i].attempt);
    EXPECT_EQ(read.works[i].imagesBefore, plan.works[i].imagesBefore);
  }
}

TEST_F(JobFolderTest, PlaceIsClaimedOnceForEachNumber) {
  WorkClaim claim;
  claim.host = "n\xff"
               "1";
  claim.boot = "b";
  claim.process = 42;
  claim.mark = "m";
  claim.node = "node";
  claim.task = "12_3";
  claim.restarts = 2;
  claim.started = Moment(std::chrono::microseconds(1700000000123456));
  claim.stage = "/out/.trovik-m";
  EXPECT_EQ(array.lastClaim(3), 0);
  EXPECT_FALSE(array.claimOf(3, 1));
  EXPECT_TRUE(array.claim(3, claim));
  EXPECT_FALSE(array.claim(3, claim));
  EXPECT_EQ(array.lastClaim(3), 1);
  EXPECT_EQ(array.lastClaim(2), 0);
  claim.number = 2;
  EXPECT_TRUE(array.claim(3, claim));
  EXPECT_EQ(array.lastClaim(3), 2);
  EXPECT_EQ(array.lastClaim(3, 2), 2);
  const WorkClaim read = array.claimOf(3, 2).value();
  EXPECT_EQ(read.number, 2);
  EXPECT_EQ(read.host, claim.host);
  EXPECT_EQ(read.boot, claim.boot);
  EXPECT_EQ(read.process, claim.process);
  EXPECT_EQ(read.mark, claim.mark);
  EXPECT_EQ(read.node, claim.node);
  EXPECT_EQ(read.task, claim.task);
  EXPECT_EQ(read.restarts, claim.restarts);
  EXPECT_EQ(read.started, claim.started);
  EXPECT_EQ(read.stage, claim.stage);
  EXPECT_EQ(names(), (std::vector<std::string>{"3.claim.1", "3.claim.2", "plan.json"}));
}

TEST_F(JobFolderTest, EndComesBackAsItWas) {
  for (const WorkEnd::By by :
       {WorkEnd::By::Itself, WorkEnd::By::Canceled, WorkEnd::By::Interrupted, WorkEnd::By::GivenUp}) {
    WorkEnd end;
    end.by = by;
    end.claim = 3;
    end.node = "n1";
    end.started = Moment(std::chrono::microseconds(5));
    end.ended = Moment(std::chrono::microseconds(-6));
    end.outcome.state = AttemptState::Lost;
    end.outcome.rule = VerdictRule::Cluster;
    end.outcome.reason = "Error line: \xff";
    end.outcome.lines = {"a", "\x80", ""};
    end.outcome.log = "/logs/1-3.log";
    end.outcome.command = "'pro gram' 1";
    end.outcome.exitCode = 3;
    end.outcome.signal = 9;
    if (by != WorkEnd::By::GivenUp) {
      end.outcome.usage = ProcessUsage{1500000, 20000, 812 << 20, std::nullopt, 4096};
    }
    end.outcome.good.add({1, 2});
    end.outcome.good.add({9, 9});
    end.outcome.retryable = false;
    end.outcome.alike = "Error line: #";
    end.outcome.duration = std::chrono::microseconds(1234567);
    end.outcome.files = {fileRecord("/out/\xff.png", 1), fileRecord("/out/b", std::nullopt)};
    const auto position = static_cast<std::size_t>(by);
    EXPECT_FALSE(array.endOf(position));
    EXPECT_FALSE(array.hasEnded(position));
    ASSERT_TRUE(array.leave(position, end));
    EXPECT_TRUE(array.hasEnded(position));
    const WorkEnd read = array.endOf(position).value();
    EXPECT_EQ(read.by, end.by);
    EXPECT_EQ(read.claim, end.claim);
    EXPECT_EQ(read.node, end.node);
    EXPECT_EQ(read.started, end.started);
    EXPECT_EQ(read.ended, end.ended);
    EXPECT_EQ(read.outcome.state, end.outcome.state);
    EXPECT_EQ(read.outcome.rule, end.outcome.rule);
    EXPECT_EQ(read.outcome.reason, end.outcome.reason);
    EXPECT_EQ(read.outcome.lines, end.outcome.lines);
    EXPECT_EQ(read.outcome.log, end.outcome.log);
    EXPECT_EQ(read.outcome.command, end.outcome.command);
    EXPECT_EQ(read.outcome.exitCode, end.outcome.exitCode);
    EXPECT_EQ(read.outcome.signal, end.outcome.signal);
    EXPECT_EQ(read.outcome.usage, end.outcome.usage);
    EXPECT_EQ(read.outcome.good.text(), "1-2,9");
    EXPECT_EQ(read.outcome.retryable, end.outcome.retryable);
    EXPECT_EQ(read.outcome.alike, end.outcome.alike);
    EXPECT_EQ(read.outcome.duration, end.outcome.duration);
    ASSERT_EQ(read.outcome.files.size(), 2U);
    expectEqual(read.outcome.files[0], end.outcome.files[0]);
    expectEqual(read.outcome.files[1], end.outcome.files[1]);
  }
}

TEST(FolderForms, EndInABeatComesBackWithAndWithoutWhatWasUsed) {
  for (const std::optional<ProcessUsage>& usage :
       {std::optional<ProcessUsage>(), std::optional(ProcessUsage{1, 2, 3, 4, 5}),
        std::optional(ProcessUsage{1, 2, 3, std::nullopt, std::nullopt})}) {
    WorkBeat beat;
    beat.count = 1;
    beat.stage = "checking";
    beat.end = ProcessExit{137, 9, usage};
    const WorkBeat read = beatFromForm(formOf(beat));
    ASSERT_TRUE(read.end.has_value());
    EXPECT_EQ(read.end->Signal, 9);
    EXPECT_EQ(read.end->Usage, usage);
  }
}

RC_GTEST_PROP(FolderForms, AnyBytesComeBack, (const std::string& bytes)) {
  WorkEnd end;
  end.outcome.reason = bytes;
  end.outcome.lines = {bytes, bytes + '\xff'};
  const WorkEnd read = endFromForm(formOf(end));
  RC_ASSERT(read.outcome.reason == bytes);
  RC_ASSERT(read.outcome.lines == end.outcome.lines);
}

RC_GTEST_PROP(FolderForms, DamagedTextIsRefusedOrReadAndNothingElse, (std::size_t at, char with)) {
  WorkEnd end = endOf(7, 1);
  end.outcome.reason = "\xff";
  std::string text = formOf(end);
  text[at % text.size()] = with;
  try {
    endFromForm(text);
  } catch (const FormProblem& problem) {
    RC_ASSERT(!problem.text.empty());
  }
}

TEST_F(JobFolderTest, FirstOfManyResultsCounts) {
  constexpr int writers = 8;
  constexpr int positions = 40;
  std::vector<pid_t> processes;
  for (int writer = 1; writer <= writers; ++writer) {
    const pid_t process = fork();
    if (process == 0) {
      int won = 0;
      for (std::size_t position = 0; position < positions; ++position) {
        won += array.leave(position, endOf(writer, writer)) ? 1 : 0;
      }
      _exit(won);
    }
    processes.push_back(process);
  }
  int won = 0;
  for (const pid_t process : processes) {
    int status = 0;
    ASSERT_EQ(waitpid(process, &status, 0), process);
    ASSERT_TRUE(WIFEXITED(status));
    won += WEXITSTATUS(status);
  }
  EXPECT_EQ(won, positions);
  for (std::size_t position = 0; position < positions; ++position) {
    const WorkEnd end = array.endOf(position).value();
    EXPECT_EQ(end.outcome.good.text(), std::to_string(end.claim)); // all of it by one writer
    EXPECT_FALSE(array.leave(position, endOf(99, 99)));
    EXPECT_EQ(array.endOf(position).value().claim, end.claim);
  }
  EXPECT_EQ(names().size(), positions + 1U); // and no temporary
}

TEST_F(JobFolderTest, KillsLeaveNoHalfFileAndWhatTheyLeaveIsSweptAway) {
  std::mt19937 random(std::random_device{}());
  constexpr std::size_t positions = 4000;
  std::size_t next = 0;
  for (int kills = 0; kills < 30; ++kills) {
    const pid_t process = fork();
    if (process == 0) {
      for (std::size_t position = next; position < positions; ++position) {
        WorkEnd end = endOf(1, 1);
        end.outcome.reason = std::string(20000, 'r') + "end";
        array.leave(position, end);
      }
      _exit(0);
    }
    while (!array.hasEnded(next) && waitpid(process, nullptr, WNOHANG) == 0) {
      std::this_thread::yield();
    }
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
    for (; array.hasEnded(next); ++next) {
      EXPECT_TRUE(array.endOf(next).value().outcome.reason.ends_with("rend"));
    }
  }
  ASSERT_GE(next, 30U);
}

TEST_F(JobFolderTest, BeatsAreWrittenInPlaceAndReadWholeOrNotAtAll) {
  EXPECT_FALSE(array.beatOf(0));
  WorkBeat beat;
  beat.count = 1;
  beat.stage = "running";
  array.beat(0, beat);
  struct stat before {};
  ASSERT_EQ(stat(file("0.beat").c_str(), &before), 0);

  std::atomic<bool> over{false};
  std::thread writer([&] {
    for (std::int64_t count = 2; count < 3000; ++count) {
      WorkBeat next = beat;
      next.count = count;
      next.command = std::string(static_cast<std::size_t>(count % 7) * 3000, 'a');
      array.beat(0, next);
    }
    over = true;
  });
  std::int64_t last = 0;
  std::size_t read = 0;
  while (!over) {
    if (const std::optional<WorkBeat> now = array.beatOf(0)) {
      ++read;
      EXPECT_GE(now->count, last);
      EXPECT_EQ(now->command.size(), now->count < 2 ? 0U : static_cast<std::size_t>(now->count % 7) * 3000);
      last = now->count;
    }
  }
  writer.join();
  EXPECT_GT(read, 0U);
  EXPECT_EQ(array.beatOf(0).value().count, 2999);
  struct stat after {};
  ASSERT_EQ(stat(file("0.beat").c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(JobFolderTest, TornBeatGivesNothing) {
  WorkBeat beat;
  beat.count = 12;
  beat.files = {fileRecord("/out/a", 1)};
  const std::string text = formOf(beat);
  for (std::size_t size = 0; size + 1 < text.size(); ++size) {
    directory.write("job/1/0.beat", text.substr(0, size));
    EXPECT_FALSE(array.beatOf(0)) << size;
  }
  beat.count = 13;
  const std::string next = formOf(beat);
  ASSERT_EQ(next.size(), text.size());
  for (const std::size_t size : {text.find("12") + 2, text.size() / 2}) {
    directory.write("job/1/0.beat", next.substr(0, size) + text.substr(size));
    EXPECT_FALSE(array.beatOf(0)) << size;
  }
  directory.write("job/1/0.beat", next + "left of a longer one\n");
  EXPECT_EQ(array.beatOf(0).value().count, 13);
}

TEST_F(JobFolderTest, CanceledArrayStaysCanceled) {
  EXPECT_FALSE(array.isCanceled());
  array.cancel();
  array.cancel();
  EXPECT_TRUE(array.isCanceled());
}

TEST_F(JobFolderTest, DamagedFilesAreRefusedByName) {
  const auto messageFor = [&](const std::string& text) {
    directory.write("job/1/plan.json", text);
    return raisedBy([&] { array.plan(); });
  };
  const std::string name = '"' + file("plan.json") + "\": ";
  EXPECT_EQ(messageFor("[]"), name + "the text is no JSON object");
  EXPECT_EQ(messageFor(R"({"version":2,"kind":"cluster.plan"})"),
            name + "its version is not 1; another trovik wrote it");
  EXPECT_EQ(messageFor(R"({"version":1,"kind":"x\n"})"),
            name + "its kind is \"x\\n\" instead of \"cluster.plan\"");
  EXPECT_EQ(messageFor(R"({"version":1,"kind":"cluster.plan"})"), name + "\"perTask\" is missing");
  EXPECT_EQ(messageFor(R"({"version":1,"kind":"cluster.plan","perTask":0})"),
            name + "\"perTask\" is out of its range");
  EXPECT_EQ(messageFor(R"({"version":1,"kind":"cluster.plan","perTask":-1})"),
            name + "\"perTask\" is out of its range");
  EXPECT_EQ(messageFor(R"({"version":1,"kind":"cluster.plan","perTask":1.5})"),
            name + "\"perTask\" is no whole number");
  EXPECT_EQ(messageFor(R"({"version":1,"kind":"cluster.plan","perTask":1,"logs":{"hex":"0"}})"),
            name + "\"logs\" has a \"hex\" that is not one");
  const std::string start = R"({"version":1,"kind":"cluster.plan","perTask":1,"logs":"","stage":true,)";
  EXPECT_EQ(messageFor(start + R"("patience":18446744073709551615,"works":[]})"),
            name + "\"patience\" is out of its range");
  EXPECT_EQ(messageFor(start + R"("patience":9,"works":[{"first":2,"last":1,"attempt":1}]})"),
            name + "\"last\" is before \"first\"");
  EXPECT_EQ(messageFor(start + R"("patience":9,"works":[7]})"), name + "a work is no JSON object");
  EXPECT_EQ(messageFor(std::string(100000, '[')), name + "it is nested too deeply");
  EXPECT_TRUE(messageFor("").starts_with(name + "[json.exception"));
}

TEST_F(JobFolderTest, OnlyRegularFilesOfABoundedSizeAreRead) {
  ASSERT_EQ(mkfifo(file("0.result").c_str(), 0666), 0);
  EXPECT_EQ(raisedBy([&] { array.endOf(0); }), '"' + file("0.result") + "\": it is no regular file");
  std::filesystem::create_symlink(file("plan.json"), file("1.result"));
  EXPECT_NE(raisedBy([&] { array.endOf(1); }), "");
  directory.write("job/1/2.claim.1", "");
  ASSERT_EQ(truncate(file("2.claim.1").c_str(), off_t{1} << 40), 0);
  EXPECT_EQ(raisedBy([&] { array.claimOf(2, 1); }), '"' + file("2.claim.1") + "\": it is larger than 1 MiB");
}

TEST_F(JobFolderTest, MissingFolderIsNamed) {
  const ArrayFolder nowhere{Path(directory.file("nowhere"))};
  EXPECT_EQ(raisedBy([&] { nowhere.plan(); }),
            "cannot read \"" + directory.file("nowhere/plan.json") + "\": No such file or directory");
  EXPECT_NE(raisedBy([&] { nowhere.claim(0, {}); }), "");
}

} // namespace
} // namespace trovik
