// A type-erased argument of a format call, which keeps the parser and the renderer free of
// templates.
#pragma once

#include <concepts>
#include <cstdint>
#include <string_view>
#include <variant>

namespace tfmt::details {

template <class T>
concept signed_32 = sizeof(T) == 4 && (std::same_as<T, int> || std::same_as<T, long>);

template <class T>
concept unsigned_32 = sizeof(T) == 4 &&
                      (std::same_as<T, unsigned int> || std::same_as<T, unsigned long>);

template <class T>
concept wide_text = std::convertible_to<const T&, std::wstring_view>;

template <class T>
concept formattable = signed_32<T> || unsigned_32<T> || std::same_as<T, bool> || wide_text<T>;

// Text is not copied: the original argument must outlive this one.
using argument = std::variant<std::int32_t, std::uint32_t, bool, std::wstring_view>;

template <formattable T>
[[nodiscard]] argument to_argument(const T& value) {
  if constexpr (signed_32<T>)
    return static_cast<std::int32_t>(value);
  else if constexpr (unsigned_32<T>)
    return static_cast<std::uint32_t>(value);
  else if constexpr (wide_text<T>)
    return std::wstring_view(value);
  else
    return value;
}

}  // namespace tfmt::details
