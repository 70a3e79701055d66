// Work that several threads begin at the same moment.
#pragma once

#include <barrier>
#include <thread>
#include <vector>

namespace cpp_test {

inline constexpr int kThreads = 4;

// Runs work(0) to work(kThreads - 1), all at once.
template <class Work>
void together(Work work) {
  std::barrier start(kThreads);
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back([&, number] {
      start.arrive_and_wait();
      work(number);
    });
  }
  for (std::thread &thread : threads) thread.join();
}

}  // namespace cpp_test
