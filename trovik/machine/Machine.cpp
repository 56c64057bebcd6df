#include "trovik/machine/Machine.h"

#include <algorithm>
#include <ctime>

namespace trovik {
namespace {

class LocalProgram final : public Program {
public:
  explicit LocalProgram(const ProcessStart& start) : process_(start) {}
  pid_t id() const override { return process_.Id(); }
  int outputDescriptor() const override { return process_.OutputDescriptor(); }
  int exitDescriptor() const override { return process_.ExitDescriptor(); }
  ssize_t readOutput(char* buffer, std::size_t size) override { return process_.ReadOutput(buffer, size); }
  bool ended(ProcessExit& exit) override { return process_.Wait(exit, false); }
  void terminate() override { process_.Terminate(); }
  void kill() override { process_.Kill(); }

private:
  Process process_;
};

} // namespace

std::unique_ptr<Program> LocalMachine::start(const ProcessStart& start) {
  return std::make_unique<LocalProgram>(start);
}

void LocalMachine::wait(std::vector<pollfd>& descriptors, std::optional<Duration> timeout) {
  timespec time{};
  if (timeout) {
    const auto whole = std::max(*timeout, Duration::zero());
    time.tv_sec = static_cast<std::time_t>(std::chrono::duration_cast<std::chrono::seconds>(whole).count());
    time.tv_nsec = static_cast<long>((whole % std::chrono::seconds(1)).count());
  }
  if (ppoll(descriptors.data(), descriptors.size(), timeout ? &time : nullptr, nullptr) < 0) {
    // Interrupted by a signal: its descriptor is looked at on the next turn.
    for (pollfd& descriptor : descriptors) {
      descriptor.revents = 0;
    }
  }
}

} // namespace trovik
