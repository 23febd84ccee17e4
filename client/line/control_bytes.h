// Conversion of the inputs and outputs of device controls to and from bytes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

namespace tarnwheel::client {

template <class T>
[[nodiscard]] std::vector<std::byte> bytes_of(const T& value) {
  const auto bytes = std::as_bytes(std::span(&value, 1));
  return {bytes.begin(), bytes.end()};
}

// A device that returns fewer bytes than requested uses an older layout; the rest is zero.
template <class Result>
[[nodiscard]] Result result_of(const std::vector<std::byte>& bytes) {
  Result result = {};
  const auto known = std::span(bytes).first(std::min(bytes.size(), sizeof result));
  std::ranges::copy(known, std::as_writable_bytes(std::span(&result, 1)).begin());
  return result;
}

}  // namespace tarnwheel::client
