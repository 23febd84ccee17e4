// The search for servers and its result.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "client/line/client_error.h"
#include "platform/name_less.h"

namespace tarnwheel::client {

// The target of a query: the name of a computer, or one of these.
inline constexpr wchar_t kThisMachine[] = L".";
inline constexpr wchar_t kAllMachines[] = L"*";  // of the domain or workgroup

// The servers that have answered a query or announce themselves. A server may be found several
// times, once for each transport of its answer, and computers' names do not depend on case. Anyone
// may answer and announce, so names beyond kMax are discarded.
class found_servers {
 public:
  static constexpr std::size_t kMax = 1000;

  // Ignores anything but an answer, since anyone may write into a mailslot.
  void add_answer(std::span<const std::byte> answer);

  void add(std::wstring computer) {
    if (names_.size() < kMax)
      names_.insert(std::move(computer));
  }

  void merge(const found_servers& others) {
    for (const auto& name : others.names_)
      add(name);
  }

  [[nodiscard]] bool empty() const noexcept { return names_.empty(); }

  // Sorted.
  [[nodiscard]] const auto& names() const noexcept { return names_; }

  // The names, sorted, one per line.
  [[nodiscard]] std::wstring lines() const;

  // The names, sorted, as an array of objects with the field "server".
  [[nodiscard]] std::wstring json() const;

 private:
  std::set<std::wstring, Tamrin::name_less> names_;
};

// Looks for servers in every available way, for `limit`. If there is none, a line on standard error
// reports each query that could not be sent. Throws client_error.
[[nodiscard]] found_servers find_servers(std::chrono::milliseconds limit);

// The failure of a search that found nothing.
[[nodiscard]] client_error no_server_error(std::chrono::milliseconds limit);

// The error to show for the outcome of a query to kThisMachine or kAllMachines; none if it was
// sent, or no server runs on this machine.
[[nodiscard]] std::optional<client_error> query_failure(std::wstring_view target, HRESULT outcome);

}  // namespace tarnwheel::client
