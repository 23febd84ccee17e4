// A server whose calls of Windows can be made to fail, one at a time.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tests/fault_board.h"
#include "tests/program.h"

namespace system_test {

// Logs to a file. Destruction ends it by force: a test that wants to see it stop stops it.
class FaultyServer {
 public:
  explicit FaultyServer(std::wstring_view arguments = L"--no-discovery");
  FaultyServer(const FaultyServer&) = delete;
  FaultyServer& operator=(const FaultyServer&) = delete;
  ~FaultyServer();

  Program& program() noexcept { return program_; }

  // The functions that can fail, each by its index.
  [[nodiscard]] std::vector<std::string> FaultPoints() const;

  // The `occurrence`-th call, from 1, that any thread makes from now on at `point` fails.
  void Fail(std::size_t point, int occurrence);
  // The same with a call that is made at `name` but with `error`, or, when that is 0, blocks until
  // Relent.
  void FailWith(DWORD error, std::string_view name, int occurrence = 1);

  // True when the call that was to fail is made before the deadline.
  [[nodiscard]] bool Strikes() const;

  // From now on nothing fails or blocks; says whether the call that was to fail was made.
  bool Relent();

  // True when the log comes to have `text` before the deadline.
  [[nodiscard]] bool Logs(std::wstring_view text) const;

  // Blocks of memory that the server has allocated and not freed.
  [[nodiscard]] std::int64_t LiveBlocks() const { return board_->live_blocks; }

 private:
  TemporaryFile log_{L".log"};
  Program program_;
  Tamrin::unique_handle section_;
  FaultBoard* board_ = nullptr;
};

}  // namespace system_test
