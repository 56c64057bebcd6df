#include "tests/trovik/queue/QueueTest.h"

#include "tests/trovik/queue/Invariants.h"
#include "trovik/queue/Database.h"

#include <sstream>

namespace trovik {

std::vector<FrameRun> runsOf(const std::string& text) {
  std::vector<FrameRun> runs;
  std::istringstream parts(text);
  for (std::string part; std::getline(parts, part, ',');) {
    FrameRun run;
    EXPECT_TRUE(ParseRun(String(part), run)) << part;
    runs.push_back(run);
  }
  return runs;
}

RunSet setOf(const std::string& text) {
  RunSet set;
  for (const FrameRun& run : runsOf(text)) {
    set.add(run);
  }
  return set;
}

NewJob jobOf(const std::string& works) {
  NewJob job;
  job.name = "shot";
  job.type.FromString("5f0c9a5e-6d0b-4c86-9d0f-2f4f3b1f7a10");
  job.typeName = "Sketch";
  job.scene = "/scenes/shot_%04d.skt";
  job.range = works;
  job.works = runsOf(works);
  job.packed = "a stream";
  job.directory = "/home/ada";
  job.output = "/home/ada/out";
  return job;
}

Outcome good(AttemptId attempt) {
  Outcome outcome;
  outcome.attempt = attempt;
  return outcome;
}

namespace {

Outcome outcomeOf(AttemptId attempt, AttemptState state, VerdictRule rule, const std::string& reason,
                  const std::string& goodFrames) {
  Outcome outcome;
  outcome.attempt = attempt;
  outcome.state = state;
  outcome.rule = rule;
  outcome.reason = reason;
  outcome.alike = reason;
  outcome.good = setOf(goodFrames);
  return outcome;
}

} // namespace

Outcome failed(AttemptId attempt, const std::string& reason, const std::string& goodFrames) {
  return outcomeOf(attempt, AttemptState::Failed, VerdictRule::ErrorLine, reason, goodFrames);
}
Outcome canceledOutcome(AttemptId attempt, const std::string& goodFrames) {
  return outcomeOf(attempt, AttemptState::Canceled, VerdictRule::Canceled, "Canceled", goodFrames);
}
Outcome lost(AttemptId attempt, const std::string& goodFrames) {
  return outcomeOf(attempt, AttemptState::Lost, VerdictRule::Engine, "Its engine died", goodFrames);
}

std::vector<ArrayWork> arrayWorks(Queue& queue, JobId job) {
  std::vector<ArrayWork> works;
  for (const WorkRecord& work : queue.worksToSubmit(job)) {
    ArrayWork& given = works.emplace_back();
    given.work = work.id;
    given.run = work.run;
    given.number = work.attempts + 1;
  }
  return works;
}

FileRecord file(const std::string& path, const std::string& problem) {
  FileRecord record;
  record.path = path;
  record.checked = true;
  record.problem = problem;
  record.size = 1234;
  record.modified = 1'700'000'000'123'456'789;
  return record;
}

void QueueTest::TearDown() {
  EXPECT_EQ(brokenInvariants(databaseFile()), std::vector<std::string>());
}

Claim QueueTest::take(std::optional<JobId> only) {
  const std::vector<Claim> claims = queue.claim(engine, 1, only);
  EXPECT_EQ(claims.size(), 1U);
  return claims.empty() ? Claim() : claims.front();
}

std::string QueueTest::standing(JobId job) {
  const JobFrames frames = queue.frames(job);
  std::string text;
  for (const RunSet* set : {&frames.ready, &frames.running, &frames.good, &frames.failed, &frames.canceled}) {
    text += (text.empty() ? "" : " ") + (set->empty() ? std::string("-") : set->text());
  }
  return text;
}

void QueueTest::change(const std::string& sql) {
  Database(Path(databaseFile())).execute(sql.c_str());
}

} // namespace trovik
