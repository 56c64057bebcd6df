#include "trovik/commandline/HelpText.h"

#include <map>
#include <stdexcept>
#include <string>

namespace trovik {
namespace {

const char* const programFooter =
    "Examples:\n"
    "  trovik types                      which job types there are\n"
    "  trovik type povray                what a job of a type can be told\n"
    "  trovik run povray shot_0001.pov   render all frames of the sequence\n"
    "  trovik new Sketch                 a job type for a program of your own\n"
    "  trovik jobs                       what is in the queue\n"
    "  trovik show last                  how the newest job stands, and why\n"
    "  trovik help run                   more about a verb\n"
    "\n"
    "Exit codes: 0 all good, 1 some work failed or was not done, 2 wrong usage or\n"
    "input. Environment: TROVIK_STATE, TROVIK_MODULE_PATH, TROVIK_SETTINGS,\n"
    "TROVIK_OPTIONS, NO_COLOR.";

const char* const typesFooter = "Examples:\n"
                                "  trovik types\n"
                                "  trovik types --all --json\n"
                                "  trovik types --module-path ~/mytypes:   my own, then the usual ones";

const char* const typeFooter = "Examples:\n"
                               "  trovik type povray\n"
                               "  trovik type povray --all    also what is hidden from forms\n"
                               "  trovik type povray --json";

const char* const checkFooter =
    "Exit codes: 0 no error, 1 errors (with --strict also warnings), 2 wrong usage or\n"
    "a file that cannot be read.\n"
    "\n"
    "Examples:\n"
    "  trovik check sketch.tvx\n"
    "  trovik check types/ --strict --no-programs    for continuous integration\n"
    "  trovik check - --name sketch.tvx --json       for editors";

const char* const detectFooter = "Examples:\n"
                                 "  trovik detect povray shots/a_0001.pov\n"
                                 "  trovik detect povray shots/a_0001.pov --json";

const char* const findFooter = "Exit code 1 when there is no program.\n"
                               "\n"
                               "Examples:\n"
                               "  trovik find povray\n"
                               "  trovik find povray --json";

const char* const newFooter =
    "Arguments are written as you would type them, with words in capitals for what\n"
    "varies: SCENE, NAME (of the scene), FRAME, FIRST, LAST, FOLDER and OUTPUT.\n"
    "\n"
    "Examples:\n"
    "  trovik new Sketch\n"
    "  trovik new Sketch --program sketch --scene '-i SCENE' --output '-o OUTPUT'\n"
    "  trovik new Orbit --frames '-s FIRST -e LAST' --output '-o FOLDER/NAME_%d.png'\n"
    "  trovik new Plot --scene SCENE --frames none --extension svg --error Error:\n"
    "  trovik new Sketch -o . --yes --json";

const char* const replayFooter =
    "Exit codes 129 to 192 are deaths by the signal N - 128, as shells report them.\n"
    "Without --files every file is taken as good, and a crash after a success text\n"
    "stays a crash.\n"
    "\n"
    "Exit codes: 0 good, 1 bad, 2 wrong usage or input.\n"
    "\n"
    "Examples:\n"
    "  trovik replay povray render.log --exit 1\n"
    "  trovik replay ./sketch.tvx sketch.log    a type that is being written\n"
    "  trovik replay blender - --all < render.log\n"
    "  trovik replay blender render.log --range 7-9 --files\n"
    "  trovik replay ffmpeg encode.log --exit SIGTERM --json";

const char* const runFooter =
    "Frames: 1-100, every fifth 1-100x5, all but every fifth 1-100y5, interleaved\n"
    "1-100:4, lists 1,4,9-12.\n"
    "\n"
    "The job stands in the queue, so nothing of it is lost when the run ends early:\n"
    "the same command goes on where it stopped.\n"
    "\n"
    "Ctrl-C asks the running programs to end and says what is done and what is\n"
    "not; a second one kills them. On a cluster (--engine slurm) it leaves the job,\n"
    "which goes on there; \"trovik watch\" comes back to it.\n"
    "\n"
    "Exit codes: 0 every frame good, 1 some failed or were not done, 2 wrong usage\n"
    "or input, nothing started.\n"
    "\n"
    "Examples:\n"
    "  trovik run povray shots/a_0001.pov              all frames of the sequence\n"
    "  trovik run povray shots/a_0001.pov --range 1-10 --out images\n"
    "  trovik run povray a.pov --set Width=1920 --set Height=1080\n"
    "  trovik run povray shots/a_0001.pov --missing    only what is not there yet\n"
    "  trovik run povray shots/a_0001.pov --engine slurm\n"
    "  trovik run povray shots/a_0001.pov --dry-run    only show the commands";

const char* const submitFooter =
    "Frames: 1-100, every fifth 1-100x5, all but every fifth 1-100y5, interleaved\n"
    "1-100:4, lists 1,4,9-12.\n"
    "\n"
    "Prints the number of the job. \"trovik engine\" works it off; on a cluster\n"
    "(--engine slurm) Slurm has it at once, and \"trovik watch\" follows it.\n"
    "\n"
    "Examples:\n"
    "  trovik submit povray shots/a_0001.pov\n"
    "  trovik submit povray shots/b_0001.pov --priority 80\n"
    "  trovik submit povray shots/a_0001.pov --on-end 'mail -s rendered ada'\n"
    "  trovik submit povray shots/a_0001.pov --json";

const char* const engineFooter =
    "Ctrl-C asks the running programs to end; their works are ready again for the\n"
    "next engine. A second one kills them.\n"
    "\n"
    "Examples:\n"
    "  trovik engine --slots 4       works off the queue until it is stopped\n"
    "  trovik engine --until-empty   ends when nothing is left\n"
    "  trovik engine --job last      the newest job alone\n"
    "  trovik engine --until-empty --json";

const char* const jobsFooter = "TIME runs from the start of the first work to the end of the last, whether\n"
                               "anything ran all the while or not; \"trovik stats\" counts what did.\n"
                               "\n"
                               "Examples:\n"
                               "  trovik jobs\n"
                               "  trovik jobs --all\n"
                               "  trovik jobs --limit 5 --json";

const char* const showFooter = "Examples:\n"
                               "  trovik show 3\n"
                               "  trovik show last --json";

const char* const logFooter = "Without FRAME it shows the attempts that failed, else the last one.\n"
                              "\n"
                              "Examples:\n"
                              "  trovik log 3              why the works of job 3 failed\n"
                              "  trovik log 3 17           the last attempt at frame 17\n"
                              "  trovik log 3 17 --attempt 1 --all > first.log\n"
                              "  trovik log 3 -- -5        frame -5\n"
                              "  trovik log last --json";

const char* const imagesFooter = "Exit code 1 with --missing where frames are missing.\n"
                                 "\n"
                                 "Examples:\n"
                                 "  trovik images 3\n"
                                 "  trovik images last --missing    as a text for --range\n"
                                 "  trovik images 3 --json";

const char* const watchFooter = "Ctrl-C only leaves: the job goes on.\n"
                                "\n"
                                "Exit codes: 0 every frame good, 1 some failed or were not done.\n"
                                "\n"
                                "Examples:\n"
                                "  trovik watch 3\n"
                                "  trovik watch last --json";

const char* const retryFooter = "Without options the works that failed or were canceled are done again; an\n"
                                "engine takes them up.\n"
                                "\n"
                                "Examples:\n"
                                "  trovik retry 3\n"
                                "  trovik retry 3 --frames 17,20-24    these, also where they are good\n"
                                "  trovik retry 3 --missing            those whose files are gone or broken\n"
                                "  trovik retry last --json";

const char* const cancelFooter = "What is good stays; \"trovik retry\" opens the job again.\n"
                                 "\n"
                                 "Examples:\n"
                                 "  trovik cancel 3\n"
                                 "  trovik cancel 3 --with-followers\n"
                                 "  trovik cancel --status waiting --type povray --yes\n"
                                 "  trovik cancel 3 4 5 --json";

const char* const holdFooter = "On a cluster the job's tasks are ended.\n"
                               "\n"
                               "Examples:\n"
                               "  trovik hold 3\n"
                               "  trovik hold 3 4 5 --json";

const char* const setFooter =
    "Priority, Retries, StopAfter, SlotsAtMost and Limits count for works that begin\n"
    "from now on; PacketSize cuts those anew that have not begun.\n"
    "\n"
    "Examples:\n"
    "  trovik set 3 Priority=80\n"
    "  trovik set 3 4 SlotsAtMost=2 Retries=1\n"
    "  trovik set --status waiting --type povray PacketSize=4 --dry-run --json";

const char* const releaseFooter =
    "A job that is held and waits for others is released from the one first, then,\n"
    "given once more, from the other.\n"
    "\n"
    "Examples:\n"
    "  trovik release 3\n"
    "  trovik release 3 4 5 --json";

const char* const deleteFooter =
    "The job's logs go with it where they are in the queue's own directory; logs\n"
    "elsewhere and images stay.\n"
    "\n"
    "Examples:\n"
    "  trovik delete 3\n"
    "  trovik delete 3 4 5 --json";

const char* const statsFooter = "Examples:\n"
                                "  trovik stats        over all jobs\n"
                                "  trovik stats 3\n"
                                "  trovik stats last --csv > attempts.csv";

const char* const sheetFooter = "Examples:\n"
                                "  trovik sheet last -o sheet.png\n"
                                "  trovik sheet 3 -o sheet.jpg --columns 6 --width 400\n"
                                "  trovik sheet 3 -o sheet.png --frames 1-100x10 --json";

const char* const pageFooter =
    "The address holds a secret: whoever has it sees every frame and steers every\n"
    "job. It stays the same from one start to the next. Only this machine reaches\n"
    "the page; see docs/page.md for others.\n"
    "\n"
    "Examples:\n"
    "  trovik page --open\n"
    "  trovik page --port 8080 --read-only   # for a screen on the wall";

const char* const taskFooter =
    "The exit code is 0 when every work of the task has a result, whatever it says,\n"
    "or the array job was canceled.\n"
    "\n"
    "Examples:\n"
    "  trovik task /shared/trovik/3f9a2c10-12/1 --index 0";

} // namespace

const char* helpFooter(std::string_view verb) {
  static const std::map<std::string_view, const char*> footers = {
      {"", programFooter},      {"types", typesFooter},     {"type", typeFooter},
      {"check", checkFooter},   {"detect", detectFooter},   {"find", findFooter},
      {"new", newFooter},       {"replay", replayFooter},   {"run", runFooter},
      {"submit", submitFooter}, {"engine", engineFooter},   {"jobs", jobsFooter},
      {"show", showFooter},     {"log", logFooter},         {"images", imagesFooter},
      {"watch", watchFooter},   {"retry", retryFooter},     {"hold", holdFooter},
      {"set", setFooter},       {"release", releaseFooter}, {"cancel", cancelFooter},
      {"delete", deleteFooter}, {"stats", statsFooter},     {"sheet", sheetFooter},
      {"page", pageFooter},     {"task", taskFooter},       {"help", "Examples:\n  trovik help run"},
  };
  const auto footer = footers.find(verb);
  if (footer == footers.end()) {
    throw std::logic_error("no help for the verb " + std::string(verb));
  }
  return footer->second;
}

} // namespace trovik
