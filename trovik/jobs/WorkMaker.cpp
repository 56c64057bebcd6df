#include "trovik/jobs/WorkMaker.h"

#include "host/application/JobFactory.h"
#include "host/application/jobs/ProcessJob.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Quoting.h"
#include "host/foundation/Stream.h"

#include <utility>
#include <vector>

namespace trovik {
std::string packedJob(const Job& job) {
  OutStream stream;
  job.PackObject(stream);
  return stream.Bytes();
}

WorkMaker::WorkMaker(const Job& job) : WorkMaker(job.Type(), packedJob(job)) {}

WorkMaker::WorkMaker(const UID& type, std::string packed, std::shared_ptr<ExecutableMemory> searches)
    : type_(type), packed_(std::move(packed)),
      searches_(searches ? std::move(searches) : std::make_shared<ExecutableMemory>()) {
  type_.GenString(); // kept with the number, and so with that of each job
}

SmartHandle<Job> WorkMaker::makeWhole() const {
  SmartHandle<Job> job = JobFactory::s_JobFactory->CreateJob(type_);
  CallModule("the module of the job's type failed to read the job", [&] {
    InStream stream(packed_);
    job->UnpackObject(stream, 1);
    if (auto* process = dynamic_cast<ProcessJob*>(job.Get()); process != nullptr) {
      process->ShareSearches(searches_);
    }
    // Jobs translate their files by this machine's path maps when they are
    // unpacked, but not the pattern of a scene sequence, which is no file.
    String format;
    if (!Path::Translations().empty() && job->GetParameter(sceneNameFormat, format) && !format.empty()) {
      job->SetParameter(sceneNameFormat, Path(format).TranslateToLocal());
    }
  });
  return job;
}

SmartHandle<Job> WorkMaker::make(const WorkInfo& work, SmartHandle<Job> job) const {
  if (work.hasFrames) {
    CallModule("the module of the job's type failed to take its frames",
               [&] { job->SetParameter(p_SubRange, work.run.Text()); });
  }
  if (!takesImages_) {
    String folder;
    takesImages_ = job->GetParameter(p_AfterOutputFolder, folder);
  }
  if (*takesImages_) {
    std::vector<String> words(work.imagesBefore.begin(), work.imagesBefore.end());
    job->Set(p_AfterImages, JoinCommandLine(words));
  }
  return job;
}

} // namespace trovik
