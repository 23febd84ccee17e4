// A running server and its log.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tests/support/fault_board.h"
#include "tests/support/program.h"

namespace system_test {

inline constexpr wchar_t kServer[] = L"tarnwheel-server";
inline constexpr wchar_t kStopEvent[] =
    LR"(Global\kelvarine_{E7093B5D-2C4F-4A61-B8E2-9D05F3A7C614}_v1.01)";
inline constexpr wchar_t kStarted[] =
    L"Server has been started successfully and is waiting for connections";
inline constexpr wchar_t kStopped[] = L"Server has been stopped";

// A server that rests may hold so many handles more than one that has just started, for the threads
// of its pool. What leaks is to be found by doing it more often than that.
constexpr std::size_t kPoolHandles = 20;

struct LogLine {
  std::wstring time;
  std::wstring level;
  std::wstring message;

  bool operator==(const LogLine&) const = default;
};

// The lines of a log file; throws std::runtime_error when the file is no UTF-16 with one byte order
// mark, or a line is not made of three columns and CR LF.
std::vector<LogLine> ParseLog(const std::string& content);

// A server that serves once the object is constructed. It logs all details to a file of its own,
// without logo and discovery; `arguments` come after these options and so override them.
// Destruction stops it and fails the test when that does not end well.
class ServerProcess {
 public:
  explicit ServerProcess(std::wstring_view arguments = L"", std::wstring_view program = kServer);
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;
  ~ServerProcess();

  Program& program() noexcept { return program_; }
  [[nodiscard]] std::vector<LogLine> Log() const { return ParseLog(log_.Content()); }

  // How many lines have this text, as the end of their message, or anywhere.
  [[nodiscard]] std::size_t Count(std::wstring_view level, std::wstring_view message_end) const;
  [[nodiscard]] std::size_t Count(std::wstring_view text) const;
  // True when there are `times` such lines before the deadline.
  [[nodiscard]] bool Logs(std::wstring_view level, std::wstring_view message_end,
                          std::size_t times = 1) const;
  [[nodiscard]] bool Logs(std::wstring_view text) const;

  // True when every client that came has been told off by name, before the deadline.
  [[nodiscard]] bool AllClientsDeparted() const;

  // True when the process comes to hold no more than `count` handles before the deadline.
  [[nodiscard]] bool HandlesComeDownTo(std::size_t count) const;

  // Signals the global event; the server must end with 0.
  void Stop();

 private:
  TemporaryFile log_{L".log"};
  Program program_;
};

// Signals the global event as any account may; false when there is none.
bool SignalStopEvent();

// A server whose calls of Windows can be made to fail, one at a time.
class FaultyServer : public ServerProcess {
 public:
  explicit FaultyServer(std::wstring_view arguments = L"");
  ~FaultyServer() { Relent(); }

  // The functions that can fail, each by its index.
  [[nodiscard]] std::vector<std::string> FaultPoints() const;

  // The `occurrence`-th call, from 1, that any thread makes from now on at `point` fails.
  void Fail(std::size_t point, int occurrence);
  // The next call at the point of that name blocks until Relent.
  void Block(std::string_view name);
  // Whether the call that was to fail has been made; or comes to be made before the deadline.
  [[nodiscard]] bool HasStruck() const { return board_->failures != 0; }
  [[nodiscard]] bool Strikes() const;
  // From now on nothing fails or blocks; says whether the call that was to fail was made.
  bool Relent();

  // Blocks of memory that the server has allocated and not freed.
  [[nodiscard]] std::int64_t LiveBlocks() const { return board_->live_blocks; }

 private:
  Tamrin::unique_handle section_;
  FaultBoard* board_ = nullptr;  // mapped until this process ends
};

}  // namespace system_test
