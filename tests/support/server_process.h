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

// Signals the global event as any account may; false when there is none.
bool SignalStopEvent();

// A server that serves once the object is constructed. It logs all details to its screen, without logo
// and discovery; `arguments` come after these options and so override them.
// Destruction stops it and fails the test when that does not end well.
class ServerProcess : public Program {
 public:
  explicit ServerProcess(std::wstring_view arguments = L"", std::wstring_view program = kServer);
  ~ServerProcess();

  // How often the log has this text; true when it comes to have it so often before the deadline.
  [[nodiscard]] int Count(std::wstring_view text) const;
  [[nodiscard]] bool Logs(std::wstring_view text, int times = 1) const;

  // Signals the global event; the server must end with 0.
  void Stop() const;
};

// Makes calls of a faulty-server fail or block, one at a time.
class FaultSwitch {
 public:
  explicit FaultSwitch(DWORD process_id);
  FaultSwitch(const FaultSwitch&) = delete;
  FaultSwitch& operator=(const FaultSwitch&) = delete;
  ~FaultSwitch() { Relent(); }

  // The `occurrence`-th call, from 1, that any thread makes from now on at `point` fails.
  void Fail(int point, int occurrence, bool blocks = false);
  // The next call of the function blocks until Relent.
  void Block(std::string_view function);
  // Whether the call that was to fail has been made; or comes to be made before the deadline.
  [[nodiscard]] bool HasStruck() const { return board_->failures != 0; }
  [[nodiscard]] bool Strikes() const {
    return Eventually([this] { return HasStruck(); });
  }
  // From now on nothing fails or blocks; says whether the call that was to fail was made.
  bool Relent();

  // Blocks of memory that the server has allocated and not freed.
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
