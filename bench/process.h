// A program of this project as a process of its own.
#pragma once

#include <string>
#include <string_view>

#include "platform/unique_resource.h"

namespace bench {

// The folder of the running program, with a backslash at its end; all programs lie there.
[[nodiscard]] std::wstring ProgramFolder();

// Runs from construction; ended by force with this object. Its output goes nowhere. Throws
// hresult_error.
class Process {
 public:
  Process(std::wstring_view name, std::wstring_view arguments);
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();

  void WaitForEnd() const;
  // As the console does it when Ctrl+C is struck.
  void SendCtrlC() const;
  [[nodiscard]] bool Runs() const;

  // What the process has for itself, in bytes.
  [[nodiscard]] std::size_t PrivateBytes() const;
  // Wine counts no handles for others, so each possible one is tried.
  [[nodiscard]] std::size_t Handles() const;
  [[nodiscard]] std::size_t Threads() const;

 private:
  Tamrin::unique_handle process_;
};

}  // namespace bench
