// Texts that are long because a work has many frames, or a type many references:
// the names of all scenes of a work, the command line that holds them, and a
// command line of thousands of references.

#include "bench/Inputs.h"
#include "bench/ModuleUnderTest.h"
#include "bench/Race.h"
#include "bench/limits/Limits.h"
#include "host/application/Constants.h"
#include "host/application/Job.h"
#include "host/application/JobFactory.h"
#include "host/application/Module.h"
#include "host/foundation/Exception.h"

#include <filesystem>

namespace bench {
namespace {

constexpr const char* typeId = "5f0c9a5e-6d0b-4c86-9d0f-100000000003";

SmartHandle<Job> makeJob() {
  UID type;
  type.FromString(typeId);
  return JobFactory::s_JobFactory->CreateJob(type);
}

// One text, made by both again and again.
Row textRow(const std::string& path, int rounds, int repetitions, const std::function<std::string()>& limit,
            const std::function<String()>& ours) {
  const std::string expected = limit();
  require(ours() == expected, path + ": the job made another text");
  std::size_t length = 0;
  Race race;
  const auto enter = [&](const auto& make) {
    return race.enter([&] {
      const Stopwatch watch;
      for (int i = 0; i < repetitions; ++i) {
        length += make().size();
      }
      Cost cost = watch.stop();
      cost.wall /= repetitions;
      cost.cpu /= repetitions;
      return cost;
    });
  };
  const std::size_t theirs = enter(limit);
  const std::size_t own = enter(ours);
  race.run(rounds);
  require(length % expected.size() == 0, path + ": a text changed");
  return ratioRow(path, race, own, theirs, 1.3);
}

} // namespace

std::vector<Row> expansionRows(const Setup& setup) {
  const int frames = setup.quick ? 1000 : 100'000;
  const int references = setup.quick ? 30 : 3000;
  const int repetitions = setup.quick ? 1 : 10;
  const std::string types = setup.directory + "/types";
  std::filesystem::create_directory(types);
  writeFile(types + "/long.tvx", "[Module]\nID=" + std::string(typeId) +
                                     "\nName=Long\nCommand=-i $(ActualScene) -w $(Width)\n\n"
                                     "[PrimaryParameters]\n1=Width\n[Width]\nType=Integer\nDefault=1920\n");
  ModuleLoader loader;
  loader.Load({Path(ModuleUnderTest::directory()), Path(types)});
  const SmartHandle<Job> job = makeJob();
  job->SetParameter("SubRange", "1-" + std::to_string(frames));

  std::vector<Row> rows;
  const std::string all = std::to_string(frames / 1000) + ",000 frames";
  for (const bool quoted : {false, true}) {
    const std::string head = quoted ? "/show/seq 010/shot_a." : "/show/seq_010/shot_a.";
    const std::string around = quoted ? "\"" : "";
    job->SetParameter("SceneNameFormat", head + "%06d.scene");
    const auto limit = [&, head, around] {
      return namesLimit(around + head, ".scene" + around, 6, 1, frames);
    };
    const std::string names = (quoted ? "quoted names of " : "names of ") + all;
    rows.push_back(textRow(names, setup.rounds, repetitions, limit, [&] {
      String text;
      job->GetParameter("ActualScene", text);
      return text;
    }));
    rows.push_back(textRow(
        "line with " + names, setup.rounds, repetitions, [&] { return "-i " + limit() + " -w 1920"; },
        [&] { return job->FormatStringWithParameters("-i $(ActualScene) -w $(Width)"); }));
  }

  job->SetParameter(p_Scene, "/show/seq 010/shot_a.scene");
  String line;
  for (int i = 0; i < references; i += 3) {
    line += " -w $(Width) -s $(Scene.Enquote) -o $(Scene.Base).png";
  }
  rows.push_back(textRow(
      "line of " + std::to_string(references) + " references", setup.rounds, repetitions,
      [&] { return lineLimit(line, "1920", "/show/seq 010/shot_a.scene"); },
      [&] { return job->FormatStringWithParameters(line); }));
  return rows;
}

} // namespace bench
