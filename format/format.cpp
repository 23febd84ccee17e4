#include "format/format.h"

#include "format/parser.h"
#include "format/renderer.h"

namespace tfmt {

parsed_pattern::parsed_pattern(std::wstring_view text) : table_(details::parse(text)) {}

std::wstring parsed_pattern::render(std::span<const details::argument> arguments) const {
  return details::render(table_, arguments);
}

std::wstring details::format(std::wstring_view pattern, std::span<const argument> arguments) {
  return render(parse(pattern), arguments);
}

}  // namespace tfmt
