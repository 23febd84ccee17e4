#include "format/fitting.h"

#include <cstddef>

namespace tfmt::details {
namespace {

constexpr wchar_t kEllipsisCharacter = L'\u2026';

void append_padded(std::wstring& output, std::wstring_view text, const segment& placeholder) {
  const std::size_t missing = placeholder.width - text.size();
  std::size_t before = 0;
  if (placeholder.align == alignment::centre)
    before = missing / 2;
  if (placeholder.align == alignment::right)
    before = missing;
  output.append(before, placeholder.fill);
  output.append(text);
  output.append(missing - before, placeholder.fill);
}

void append_cut(std::wstring& output, std::wstring_view text, const segment& placeholder) {
  const bool mark = placeholder.has(kEllipsis);
  const std::size_t kept = placeholder.max_width - (mark ? 1u : 0u);
  if (placeholder.align == alignment::right) {
    if (mark)
      output.push_back(kEllipsisCharacter);
    output.append(text.substr(text.size() - kept));
  } else {
    output.append(text.substr(0, kept));
    if (mark)
      output.push_back(kEllipsisCharacter);
  }
}

}  // namespace

void append_fitted(std::wstring& output, std::wstring_view text, const segment& placeholder) {
  if (text.size() < placeholder.width)
    append_padded(output, text, placeholder);
  else if (placeholder.max_width != 0 && text.size() > placeholder.max_width)
    append_cut(output, text, placeholder);
  else
    output.append(text);
}

}  // namespace tfmt::details
