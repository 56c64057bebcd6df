#include "host/application/jobs/ProgramRun.h"

#include "host/foundation/Descendants.h"
#include "host/foundation/Log.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr std::size_t k_ReadSize = std::size_t{256} << 10;
constexpr int k_ReadsPerTurn = 4; // what a pipe holds
constexpr std::chrono::milliseconds k_LookPause{20};
constexpr double k_LongestLimit = 3e9; // a century: none that a clock could overflow with

std::optional<ProgramRun::Clock::duration> LimitOf(double seconds) {
  if (seconds <= 0) {
    return std::nullopt;
  }
  return std::chrono::duration_cast<ProgramRun::Clock::duration>(
      std::chrono::duration<double>(std::min(seconds, k_LongestLimit)));
}

// One buffer for all runs of a thread.
std::array<char, k_ReadSize>& ReadBuffer() {
  static thread_local std::array<char, k_ReadSize> buffer;
  return buffer;
}

} // namespace

ProgramRun::ProgramRun(std::unique_ptr<Program> program, const Patience& patience, Moment now, Output output)
    : m_Program(std::move(program)), m_Output(std::move(output)), m_RunTime(LimitOf(patience.RunTime)),
      m_Silence(LimitOf(patience.Silence)), m_Grace(patience.Grace), m_Start(now), m_LastOutput(now) {}

std::optional<ProgramRun::Moment> ProgramRun::Deadline() const {
  std::optional<Moment> earliest;
  const auto consider = [&earliest](const std::optional<Moment>& begin, const Clock::duration& length) {
    if (begin && (!earliest || *begin + length < *earliest)) {
      earliest = *begin + length;
    }
  };
  if (m_KilledAt && !m_StuckNamed) {
    consider(m_KilledAt, k_StuckPatience);
  }
  if (m_Exited) {
    if (m_SomeLeft && !m_KilledAt) {
      consider(m_KillAt ? m_KillAt : m_RestUntil, {});
    } else if (!m_SomeLeft && !m_OutputOver) {
      consider(m_RestUntil, {});
    }
    if (m_SomeLeft && m_Program->ExitDescriptor() < 0) {
      consider(m_Looked, k_LookPause); // no descriptor was to be had
    }
  } else if (m_KillAt && !m_KilledAt) {
    consider(m_KillAt, {});
  } else if (m_Ended == Ended::ByItself) {
    if (m_RunTime) {
      consider(m_Start, *m_RunTime);
    }
    if (m_Silence) {
      consider(m_LastOutput, *m_Silence);
    }
  }
  return earliest;
}

void ProgramRun::ReadOutput(Moment now) {
  std::array<char, k_ReadSize>& buffer = ReadBuffer();
  for (int turn = 0; turn < k_ReadsPerTurn && !m_OutputOver; ++turn) {
    const ssize_t count = m_Program->ReadOutput(buffer.data(), buffer.size());
    if (count < 0) {
      return;
    }
    if (count == 0) {
      m_OutputOver = true;
      return;
    }
    m_LastOutput = now;
    m_Output(std::string_view(buffer.data(), static_cast<std::size_t>(count)));
  }
}

void ProgramRun::Advance(Moment now) {
  if (m_Over) {
    return;
  }
  if (!m_Exited && m_Program->Wait(m_Exit, false)) {
    m_Exited = true;
    m_SomeLeft = !m_Program->Remaining().empty();
    m_RestUntil = now + k_RestPatience;
    if (m_Ended == Ended::ByItself && m_SomeLeft) {
      m_Program->Terminate();
    }
    ReadOutput(now);
  }
  if (m_Exited) {
    AwaitRest(now);
  } else {
    EnforceLimits(now);
  }
  NameStuckOnes(now);
}

void ProgramRun::EnforceLimits(Moment now) {
  if (m_KillAt && !m_KilledAt && now >= *m_KillAt) {
    Kill(now);
  }
  if (m_Ended == Ended::ByItself && !m_KillAt) {
    if (m_RunTime && now >= m_Start + *m_RunTime) {
      End(Ended::TimedOut, now);
    } else if (m_Silence && now >= m_LastOutput + *m_Silence) {
      End(Ended::Silent, now);
    }
  }
}

void ProgramRun::AwaitRest(Moment now) {
  m_Looked = now;
  m_SomeLeft = m_SomeLeft && !m_Program->Remaining().empty();
  // What was asked to end when the program was has the same grace.
  if (m_SomeLeft && (m_KilledAt || now >= m_KillAt.value_or(*m_RestUntil))) {
    Kill(now);
  }
  m_Over = !m_SomeLeft && (m_OutputOver || now >= *m_RestUntil);
}

void ProgramRun::Cancel(Moment now, bool kill) {
  if (m_Over) {
    return;
  }
  const bool first = !m_Exited && m_Ended == Ended::ByItself;
  if (kill) {
    m_Ended = first ? Ended::Canceled : m_Ended;
    Kill(now);
  } else if (first) {
    End(Ended::Canceled, now);
  }
}

void ProgramRun::Dismiss(Moment now) {
  if (!m_Exited && !m_KillAt) {
    End(Ended::ByItself, now);
  }
}

void ProgramRun::End(Ended why, Moment now) {
  m_Ended = why;
  m_KillAt = now + m_Grace;
  m_Program->Terminate();
}

void ProgramRun::Kill(Moment now) {
  if (!m_KilledAt) {
    m_KilledAt = now;
  }
  m_Program->Kill();
}

void ProgramRun::NameStuckOnes(Moment now) {
  if (!m_Over && !m_StuckNamed && m_KilledAt && now >= *m_KilledAt + k_StuckPatience) {
    m_StuckNamed = true;
    NameStuck(m_Program->Remaining());
  }
}

void ProgramRun::NameStuck(const std::vector<pid_t>& processes) {
  for (const pid_t process : processes) {
    ProcessFacts facts;
    if (ReadProcessFacts(process, facts)) {
      LogWarning("process " + std::to_string(process) + " (" + facts.Name + ") was killed and has not ended" +
                 (facts.State == 'D' ? ": it waits for a disk or a network file system that does not answer"
                                     : ": the system has not ended it yet") +
                 "; its work is not begun again before it has");
    }
  }
}
