#include "client/verbs/json.h"

#include "format/format.h"

namespace tarnwheel::client {
namespace {

std::wstring quoted(std::wstring_view text) {
  std::wstring result = L"\"";
  for (const wchar_t unit : text) {
    if (unit == L'"' || unit == L'\\')
      result += {L'\\', unit};
    else if (unit < L' ' || unit > L'~')
      result += tfmt::format(L"\\u{0w4arf0b16x}", static_cast<std::uint32_t>(unit));
    else
      result += unit;
  }
  return result + L'"';
}

}  // namespace

void json_array::add(std::initializer_list<field> fields) {
  std::wstring object;
  for (const auto& [name, value] : fields) {
    object += object.empty() ? L"{" : L", ";
    object += quoted(name) + L": " + quoted(value);
  }
  objects_ += (objects_.empty() ? L"\n  " : L",\n  ") + object + L"}";
}

std::wstring json_array::text() const {
  return L"[" + objects_ + (objects_.empty() ? L"]\n" : L"\n]\n");
}

}  // namespace tarnwheel::client
