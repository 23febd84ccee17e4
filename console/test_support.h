// Shared by the tests of whatever prints.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "console/print.h"
#include "platform/unique_resource.h"

namespace console::test {

// Stands in for standard output while it lives and collects what is printed.
class RedirectedOutput {
 public:
  RedirectedOutput() {
    EXPECT_TRUE(::CreatePipe(&read_, &write_, nullptr, 0));
    ::SetStdHandle(STD_OUTPUT_HANDLE, write_);
  }
  ~RedirectedOutput() { ::SetStdHandle(STD_OUTPUT_HANDLE, former_); }

  // Returns the bytes that arrive while `action` runs, and before. Afterwards nobody has this end.
  template <class Action>
  std::string Collect(Action action) {
    const std::jthread printer([&] {
      action();
      ::CloseHandle(write_);
    });
    std::string bytes;
    char buffer[4096];
    for (DWORD size = 0; ::ReadFile(read_, buffer, sizeof buffer, &size, nullptr);)
      bytes.append(buffer, size);
    ::CloseHandle(read_);
    return bytes;
  }

 private:
  const HANDLE former_ = ::GetStdHandle(STD_OUTPUT_HANDLE);
  HANDLE read_ = nullptr, write_ = nullptr;
};

}  // namespace console::test
