#pragma once

#include <unistd.h>

#include <utility>

/// A file descriptor that is closed with its owner; -1 for none.
class Descriptor {
public:
  Descriptor() = default;
  explicit Descriptor(int number) : m_Number(number) {}
  Descriptor(Descriptor&& other) noexcept : m_Number(other.Release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    Reset(other.Release());
    return *this;
  }
  ~Descriptor() { Reset(); }

  int Number() const { return m_Number; }
  bool IsOpen() const { return m_Number >= 0; }
  int Release() { return std::exchange(m_Number, -1); }
  void Reset(int number = -1) {
    if (m_Number >= 0) {
      close(m_Number);
    }
    m_Number = number;
  }

private:
  int m_Number = -1;
};
