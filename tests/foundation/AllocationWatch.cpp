#include "tests/foundation/AllocationWatch.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> g_Largest{0};
std::atomic<std::size_t> g_Count{0};

void* Allocate(std::size_t size) {
  ++g_Count;
  std::size_t largest = g_Largest;
  while (size > largest && !g_Largest.compare_exchange_weak(largest, size)) {
  }
  return std::malloc(size == 0 ? 1 : size);
}

} // namespace

void StartAllocationWatch() {
  g_Largest = 0;
  g_Count = 0;
}

std::size_t LargestAllocation() {
  return g_Largest;
}

std::size_t AllocationCount() {
  return g_Count;
}

void* operator new(std::size_t size) {
  void* memory = Allocate(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}
void* operator new[](std::size_t size) {
  return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t& /*unused*/) noexcept {
  return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*unused*/) noexcept {
  return Allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t /*unused*/) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t /*unused*/) noexcept {
  std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t& /*unused*/) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t& /*unused*/) noexcept {
  std::free(memory);
}
