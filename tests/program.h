// A program of this project, run as a process of its own.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/unique_resource.h"
#include "tests/patience.h"

namespace system_test {

// The path of a new file of the test's own in the temporary folder; the file is deleted with this
// object.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::wstring_view extension);
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile();

  [[nodiscard]] const std::wstring& path() const noexcept { return path_; }

  // What is in the file by now, also while a program writes to it; empty when there is no file.
  [[nodiscard]] std::string Content() const;

 private:
  std::wstring path_;
};

// The test's end of a program's standard input.
class ProgramInput {
 public:
  ProgramInput();

  // Blocks until the program, or the pipe's buffer, has taken all of it.
  void Write(std::string_view bytes) const;
  void End() { writer_.reset(); }

  // The program's end, which goes to the one program that is started with it.
  [[nodiscard]] Tamrin::unique_file TakeReader() { return std::move(reader_); }

 private:
  Tamrin::unique_file reader_;
  Tamrin::unique_file writer_;
};

// Runs from construction; ended by force with this object when it still runs then.
class Program {
 public:
  // `name` is that of an executable of this build, such as L"tarnwheel-server". Without `input` it
  // has no standard input.
  Program(std::wstring_view name, std::wstring_view arguments, ProgramInput* input = nullptr);
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program();

  // What it has written so far, line ends as "\n". Text that is not UTF-8 fails the test.
  [[nodiscard]] std::wstring Output() const;
  [[nodiscard]] std::wstring Errors() const;

  // The same as it was written.
  [[nodiscard]] std::string OutputBytes() const { return output_.Content(); }

  // True when the output, or what it writes to standard error, comes to have `text` before the
  // deadline or the end of the program.
  [[nodiscard]] bool Prints(std::wstring_view text) const;
  [[nodiscard]] bool Complains(std::wstring_view text) const;

  // The 32-bit exit code; none, and a failure of the test, when it does not end in time.
  std::optional<DWORD> ExitCode(DWORD milliseconds = kPatience);
  [[nodiscard]] bool Runs() const;

  [[nodiscard]] DWORD ProcessId() const { return ::GetProcessId(process_.get()); }

  // Bytes of memory that the process has for itself.
  [[nodiscard]] std::size_t MemoryInUse() const;

  // Bytes of memory that the process has made sure of, used or not.
  [[nodiscard]] std::size_t CommittedMemory() const;

  // The handles that the process holds.
  [[nodiscard]] std::size_t HandleCount() const;

  // Sends CTRL_C_EVENT or another event as the console does, `times` times without a pause.
  void SendConsoleEvent(DWORD event, int times = 1) const;

 private:
  TemporaryFile output_;
  TemporaryFile errors_;
  Tamrin::unique_handle process_;
};

// What a program that ends by itself leaves.
struct CompletedRun {
  CompletedRun(std::wstring_view name, std::wstring_view arguments);

  std::optional<DWORD> exit_code;
  std::wstring output;
  std::wstring errors;
};

}  // namespace system_test
