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

  // Prints `text` and returns the bytes that arrived.
  std::string Print(std::wstring_view text) {
    std::thread printer([&] {
      print(standard_stream::output, text);
      write_.reset();
    });
    std::string bytes;
    char buffer[512];
    DWORD size = 0;
    while (::ReadFile(read_.get(), buffer, sizeof buffer, &size, nullptr) && size != 0) {
      bytes.append(buffer, size);
    }
    printer.join();
    return bytes;
  }

  // Reads the first `size` bytes, and nothing more ever.
  std::string ReadAndClose(DWORD size) {
    std::string bytes(size, '\0');
    EXPECT_TRUE(::ReadFile(read_.get(), bytes.data(), size, &size, nullptr));
    bytes.resize(size);
    read_.reset();
    return bytes;
  }

 private:
  const HANDLE former_;
  Tamrin::unique_handle read_;
  Tamrin::unique_handle write_;
};

}  // namespace console::test
