// A running server and its log.
#pragma once

#include <gtest/gtest.h>

#include "tests/support/fault_board.h"
#include "tests/support/program.h"

namespace system_test {

inline constexpr wchar_t kServer[] = L"tarnwheel-server";
inline constexpr wchar_t kStopEvent[] =
    LR"(Global\kelvarine_{E7093B5D-2C4F-4A61-B8E2-9D05F3A7C614}_v1.01)";
inline constexpr wchar_t kStarted[] =
    L"Server has been started successfully and is waiting for connections";

// Signals the global stop event, as any account may; false if there is none.
bool SignalStopEvent();

// A server that is ready for clients once constructed. It logs all details to its screen, without
// logo and discovery; `arguments` follow these options and so override them. The destructor stops
// the server and fails the test unless it ends with exit code 0.
class ServerProcess : public Program {
 public:
  explicit ServerProcess(std::wstring_view arguments = L"", std::wstring_view program = kServer);
  ~ServerProcess();

  // The number of times that the log contains `text`. Logs waits for `times` of them; false at the
  // deadline.
  [[nodiscard]] int Count(std::wstring_view text) const;
  [[nodiscard]] bool Logs(std::wstring_view text, int times = 1) const;

  // Signals the stop event; the server must end with exit code 0.
  void Stop() const;
};

// Makes calls of a faulty-server fail or block, one at a time.
class FaultSwitch {
 public:
  explicit FaultSwitch(DWORD process_id);
  FaultSwitch(const FaultSwitch&) = delete;
  FaultSwitch& operator=(const FaultSwitch&) = delete;
  ~FaultSwitch() { Disarm(); }

  // Makes the `occurrence`-th call (from 1) at `point` fail or block, counted from now on over all
  // threads.
  void Fail(int point, int occurrence, bool blocks = false);
  // Makes the next call of the function block until Disarm.
  void Block(std::string_view function);
  // Whether the call that was to fail has been made; Strikes waits for it until the deadline.
  [[nodiscard]] bool HasStruck() const { return board_->failures != 0; }
  [[nodiscard]] bool Strikes() const {
    return Eventually([this] { return HasStruck(); });
  }
  // From now on nothing fails or blocks; returns whether the call that was to fail was made.
  bool Disarm();

  // Memory blocks that the server has allocated and not freed.
  [[nodiscard]] std::int64_t LiveBlocks() const { return board_->live_blocks; }

 private:
  FaultBoard* board_ = nullptr;  // mapped until this process ends
};

class FaultyServer : public ServerProcess {
 public:
  explicit FaultyServer(std::wstring_view arguments = L"")
      : ServerProcess(arguments, L"faulty-server") {}

  FaultSwitch faults{::GetProcessId(Process())};
};

}  // namespace system_test
