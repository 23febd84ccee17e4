// The C library's wide-character functions, for characters of 16 bits; the library's own have 32.
// Hidden, so that they serve this program and not the shared libraries that it uses.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

extern "C" {
#pragma GCC visibility push(hidden)

std::size_t wcslen(const wchar_t* text) noexcept {
  return static_cast<std::size_t>(std::ranges::find(text, std::unreachable_sentinel, L'\0') - text);
}
wchar_t* wmemmove(wchar_t* to, const wchar_t* from, std::size_t count) noexcept {
  return static_cast<wchar_t*>(std::memmove(to, from, count * sizeof(wchar_t)));
}
[[gnu::alias("wmemmove")]] wchar_t* wmemcpy(wchar_t*, const wchar_t*, std::size_t) noexcept;
wchar_t* wmemset(wchar_t* to, wchar_t character, std::size_t count) noexcept {
  std::fill_n(to, count, character);
  return to;
}
int wmemcmp(const wchar_t* left, const wchar_t* right, std::size_t count) noexcept {
  const auto [first, second] = std::mismatch(left, left + count, right);
  return first == left + count ? 0 : *first - *second;
}
wchar_t* wmemchr(const wchar_t* text, wchar_t character, std::size_t count) noexcept {
  const auto found = std::find(text, text + count, character);
  return found == text + count ? nullptr : const_cast<wchar_t*>(found);
}

#pragma GCC visibility pop
}
