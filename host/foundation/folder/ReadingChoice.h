#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

/// When to read a folder whole of which one name after the other is asked for;
/// FileFinder.cpp tells why so. It takes the times that others measured, so that
/// the same times always give the same choice.
class ReadingChoice {
public:
  using Time = std::chrono::nanoseconds;

  /// The first so many answers are measured.
  static constexpr std::uint64_t k_Measured = 4;

  /// Of an open folder: its size in bytes, and how long it took to open it.
  ReadingChoice(std::uint64_t size, Time opening) : m_Size(size), m_IsOpenedSlowly(opening >= k_Slow) {}

  /// One more name was asked for.
  void Add() { ++m_Answers; }
  void Add(Time answer) {
    ++m_Answers;
    m_SlowAnswers += answer >= k_Slow ? 1U : 0U;
  }
  bool IsMeasuring() const { return m_Answers < k_Measured; }

  /// Whether to read it before anything else is asked.
  bool IsSmall() const { return m_Size < (m_IsOpenedSlowly ? k_SmallWhereSlow : k_Small); }

  /// So many answers take about as long as reading it.
  std::uint64_t BreakEven() const {
    const bool isSlow = 2 * m_SlowAnswers >= std::min(m_Answers, k_Measured);
    return 1 + m_Size / (isSlow ? k_BytesAnAnswerWhereSlow : k_BytesAnAnswer);
  }

  /// Whether to find out now, which is done once, how far the sequence goes.
  bool IsTimeToLookFar() const {
    return m_Answers >= std::clamp<std::uint64_t>(BreakEven() / k_LookFarAfter, 2, k_LookFarAtMostAfter);
  }

  /// Whether as many names were asked for as reading would have cost.
  bool IsPaid() const { return m_Answers >= BreakEven(); }

private:
  static constexpr Time k_Slow = std::chrono::microseconds(20);
  static constexpr std::uint64_t k_Small = 32 << 10; // about 700 names
  static constexpr std::uint64_t k_SmallWhereSlow = 64 << 10;
  static constexpr std::uint64_t k_BytesAnAnswer = 64;
  static constexpr std::uint64_t k_BytesAnAnswerWhereSlow = 4 << 10; // a block
  static constexpr std::uint64_t k_LookFarAfter = 32;                // of the break-even
  static constexpr std::uint64_t k_LookFarAtMostAfter = 8;

  std::uint64_t m_Size;
  bool m_IsOpenedSlowly;
  std::uint64_t m_Answers = 0;
  std::uint64_t m_SlowAnswers = 0;
};
