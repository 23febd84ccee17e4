// The C library's functions for wide characters, for those of 16 bits: the library's own have 32.
// Hidden, so that they serve this program and not the shared libraries that it uses.
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

static_assert(sizeof(wchar_t) == 2);

extern "C" {
#pragma GCC visibility push(hidden)

std::size_t wcslen(const wchar_t* text) noexcept {
  const wchar_t* end = text;
  while (*end != L'\0')
    ++end;
  return static_cast<std::size_t>(end - text);
}

wchar_t* wmemcpy(wchar_t* to, const wchar_t* from, std::size_t count) noexcept {
  std::memcpy(to, from, count * sizeof(wchar_t));
  return to;
}

wchar_t* wmemmove(wchar_t* to, const wchar_t* from, std::size_t count) noexcept {
  std::memmove(to, from, count * sizeof(wchar_t));
  return to;
}

wchar_t* wmemset(wchar_t* to, wchar_t character, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i)
    to[i] = character;
  return to;
}

int wmemcmp(const wchar_t* left, const wchar_t* right, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    if (left[i] != right[i])
      return left[i] < right[i] ? -1 : 1;
  }
  return 0;
}

wchar_t* wmemchr(const wchar_t* text, wchar_t character, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    if (text[i] == character)
      return const_cast<wchar_t*>(text + i);
  }
  return nullptr;
}

// For std::to_wstring: pattern and text are ASCII.
int vswprintf(wchar_t* to, std::size_t size, const wchar_t* pattern, va_list arguments) noexcept {
  const std::string narrow(pattern, pattern + wcslen(pattern));
  char text[64];
  const int length = std::vsnprintf(text, sizeof text, narrow.c_str(), arguments);
  for (int i = 0; i <= length && static_cast<std::size_t>(i) < size; ++i)
    to[i] = static_cast<unsigned char>(text[i]);
  return length;
}

#pragma GCC visibility pop
}
