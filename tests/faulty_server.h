// A server whose calls of Windows can be made to fail, one at a time.
#pragma once

#include <string>
#include <vector>

#include "tests/fault_board.h"
#include "tests/program.h"

namespace system_test {

// Runs without a log. Destruction ends it by force: a test that wants to see it stop stops it.
class FaultyServer {
 public:
  FaultyServer();
  FaultyServer(const FaultyServer&) = delete;
  FaultyServer& operator=(const FaultyServer&) = delete;
  ~FaultyServer();

  Program& program() noexcept { return program_; }

  // The functions that can fail, each by its index.
  [[nodiscard]] std::vector<std::string> FaultPoints() const;

  // The `occurrence`-th call, from 1, that any thread makes from now on at `point` fails.
  void Fail(std::size_t point, int occurrence);
  // From now on nothing fails; says whether the call that was to fail was made.
  bool Relent();

  // Blocks of memory that the server has allocated and not freed.
  [[nodiscard]] std::int64_t LiveBlocks() const { return board_->live_blocks; }

 private:
  Program program_;
  Tamrin::unique_handle section_;
  FaultBoard* board_ = nullptr;
};

}  // namespace system_test
