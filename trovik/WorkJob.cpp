#include "trovik/WorkJob.h"

#include "host/application/JobFactory.h"
#include "host/foundation/Stream.h"

namespace trovik {

WorkMaker::WorkMaker(const Job& job) : type_(job.Type()) {
  OutStream stream;
  job.PackObject(stream);
  packed_ = stream.Bytes();
}

SmartHandle<Job> WorkMaker::make(const WorkInfo& work) const {
  SmartHandle<Job> job = JobFactory::s_JobFactory->CreateJob(type_);
  InStream stream(packed_);
  job->UnpackObject(stream, 1);
  if (work.hasFrames) {
    job->SetParameter(p_SubRange, work.run.Text());
  }
  return job;
}

} // namespace trovik
