// A program of this project, run as a process of its own. What does not go well throws
// std::runtime_error.
#pragma once

#include <string>
#include <string_view>

#include "platform/unique_resource.h"
#include "tests/support/patience.h"

namespace system_test {

// The path of a new file in the temporary folder; the file is deleted with this object.
class TemporaryFile {
 public:
  TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() { ::DeleteFileW(path.c_str()); }

  // What is in the file by now, also while a program writes to it; empty when there is no file.
  [[nodiscard]] std::string Content() const;

  const std::wstring path;
};

// Runs from construction; ended by force with this object when it still runs then.
class Program {
 public:
  // `name` is that of an executable of this build, such as L"tarnwheel-server".
  Program(std::wstring_view name, std::wstring_view arguments);
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program();

  // What it has written so far, with "\n" as line ends.
  [[nodiscard]] std::wstring Output() const;
  [[nodiscard]] std::wstring Errors() const;

  // True when its output, or what it writes to standard error, comes to have `text` before the
  // deadline or the end of the program.
  [[nodiscard]] bool Prints(std::wstring_view text) const;

  // Waits for the end; the 32-bit exit code.
  DWORD ExitCode(DWORD milliseconds = kPatience) const;
  [[nodiscard]] bool Runs() const;

  // Bytes of memory that the process has for itself, used or not.
  [[nodiscard]] std::size_t CommittedMemory() const;
  [[nodiscard]] std::size_t HandleCount() const;

  [[nodiscard]] HANDLE Process() const { return process_.get(); }

  // Sends CTRL_C_EVENT or another event as the console does, `times` times without a pause.
  void SendConsoleEvent(DWORD event, int times = 1) const;

 private:
  TemporaryFile output_, errors_;
  Tamrin::unique_handle process_;
};

// What a program that ends by itself leaves.
struct CompletedRun {
  CompletedRun(std::wstring_view name, std::wstring_view arguments);

  DWORD exit_code;
  std::wstring output, errors;
};

}  // namespace system_test
