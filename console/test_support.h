// Shared by the tests of whatever prints.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <thread>

#include "console/print.h"
#include "platform/unique_resource.h"

namespace console::test {

// Stands in for standard output while it lives and collects what is printed.
class RedirectedOutput {
 public:
  RedirectedOutput() : former_(::GetStdHandle(STD_OUTPUT_HANDLE)) {
    HANDLE read = nullptr;
    HANDLE write = nullptr;
    EXPECT_TRUE(::CreatePipe(&read, &write, nullptr, 0));
    read_.reset(read);
    write_.reset(write);
    ::SetStdHandle(STD_OUTPUT_HANDLE, write);
  }
  ~RedirectedOutput() { ::SetStdHandle(STD_OUTPUT_HANDLE, former_); }

  // Returns the bytes that arrive while `action` runs, and before.
  template <class Action>
  std::string Collect(Action action) {
    std::thread printer([&] {
      action();
      write_.reset();
    });
    std::string bytes;
    char buffer[4096];
    DWORD size = 0;
    while (::ReadFile(read_.get(), buffer, sizeof buffer, &size, nullptr) && size != 0) {
      bytes.append(buffer, size);
    }
    printer.join();
    read_.reset();
    return bytes;
  }
  std::string Print(std::wstring_view text) {
    return Collect([text] { print(standard_stream::output, text); });
  }

 private:
  const HANDLE former_;
  Tamrin::unique_handle read_;
  Tamrin::unique_handle write_;
};

}  // namespace console::test
