// Clients of every kind that a server meets in years, each going about its business until told to
// stop.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "platform/win32.h"

namespace bench {

// What the visitors have seen; any thread.
class Tally {
 public:
  void Visit() noexcept { ++visits_; }
  void Line() noexcept { ++lines_; }
  void Call() noexcept { ++calls_; }
  void WrongBytes() noexcept { ++wrong_bytes_; }
  void Error(HRESULT code);

  [[nodiscard]] std::uint64_t visits() const noexcept { return visits_; }
  // Ports opened whose device makes requests wait.
  [[nodiscard]] std::uint64_t lines() const noexcept { return lines_; }
  [[nodiscard]] std::uint64_t calls() const noexcept { return calls_; }
  [[nodiscard]] std::uint64_t wrong_bytes() const noexcept { return wrong_bytes_; }

  // "0x80070020 13 times, ..." of what has come since the last call.
  [[nodiscard]] std::string TakeErrors();

 private:
  std::atomic<std::uint64_t> visits_ = 0;
  std::atomic<std::uint64_t> lines_ = 0;
  std::atomic<std::uint64_t> calls_ = 0;
  std::atomic<std::uint64_t> wrong_bytes_ = 0;

  std::mutex lock_;
  std::map<HRESULT, std::uint64_t> errors_;  // guarded by lock_
};

struct Ports {
  std::uint32_t file;      // its device takes and gives everything at once
  std::uint32_t loopback;  // its device sends back what is written to it
  std::uint32_t silent;    // its device sends nothing by itself
};

// One kind of client. `visit` is called again and again; what it throws as hresult_error counts as
// an error of the visit.
struct Kind {
  const char* name;
  void (*visit)(Tally& tally, const Ports& ports, unsigned random);
};

inline constexpr std::size_t kKinds = 7;
extern const Kind kAllKinds[kKinds];

}  // namespace bench
