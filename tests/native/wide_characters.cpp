// The C library's functions for wide characters, for those of 16 bits: the library's own have 32.
// Hidden, so that they serve this program and not the shared libraries that it uses.
#include <cstddef>
#include <cstring>

static_assert(sizeof(wchar_t) == 2);

extern "C" {
#pragma GCC visibility push(hidden)

std::size_t wcslen(const wchar_t* text) noexcept {
  std::size_t length = 0;
  while (text[length] != L'\0')
    ++length;
  return length;
}

wchar_t* wmemmove(wchar_t* to, const wchar_t* from, std::size_t count) noexcept {
  std::memmove(to, from, count * sizeof(wchar_t));
  return to;
}

wchar_t* wmemcpy(wchar_t* to, const wchar_t* from, std::size_t count) noexcept {
  return wmemmove(to, from, count);
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

#pragma GCC visibility pop
}
