// A program of this project, run as a process of its own. Failures throw std::runtime_error.
#pragma once

#include <string>
#include <string_view>

#include "platform/unique_resource.h"
#include "tests/support/patience.h"

namespace system_test {

// The path for a new file in the temporary folder. The destructor deletes the file, if it exists.
class TemporaryFile {
 public:
  TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() { ::DeleteFileW(path.c_str()); }

  // The file's current content, even while a program writes to it; empty if there is no file.
  [[nodiscard]] std::string Content() const;

  const std::wstring path;
};

// Runs from construction. The destructor terminates the process if it is still running.
class Program {
 public:
  // `name` is an executable of this build without its extension, such as L"tarnwheel-server".
  Program(std::wstring_view name, std::wstring_view arguments);
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program();

  // The text written so far, with "\n" as line ends.
  [[nodiscard]] std::wstring Output() const;
  [[nodiscard]] std::wstring Errors() const;

  // Waits until standard output or standard error contains `text`; false if neither does before the
  // deadline or the end of the program.
  [[nodiscard]] bool Prints(std::wstring_view text) const;

  // Waits for the program to end and returns its 32-bit exit code.
  DWORD ExitCode(DWORD milliseconds = kPatience) const;
  [[nodiscard]] bool Runs() const;

  // Bytes of private memory that the process has committed, used or not.
  [[nodiscard]] std::size_t CommittedMemory() const;
  [[nodiscard]] std::size_t HandleCount() const;

  [[nodiscard]] HANDLE Process() const { return process_.get(); }

  // Delivers CTRL_C_EVENT or another event as the console does, `times` times without a pause.
  void SendConsoleEvent(DWORD event, int times = 1) const;

 private:
  TemporaryFile output_, errors_;
  Tamrin::unique_handle process_;
};

// A program that has run to its end by itself: its exit code and its output.
struct CompletedRun {
  CompletedRun(std::wstring_view name, std::wstring_view arguments);

  DWORD exit_code;
  std::wstring output, errors;
};

}  // namespace system_test
