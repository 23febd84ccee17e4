#include "format/placeholder.h"

namespace tfmt::details {
namespace {

void take_condition(cursor& at, segment& placeholder) {
  placeholder.flags &= ~(kOpen | kClose | kElse);
  placeholder.flags |= kConditional;
  switch (at.take()) {
    case L'<':
      placeholder.flags |= kOpen;
      break;
    case L'>':
      placeholder.flags |= kClose;
      break;
    case L'|':
      placeholder.flags |= kElse;
      break;
    default:
      throw bad_extended_format_string();
  }
}

// An unknown second letter is consumed and changes nothing.
void take_alignment(cursor& at, segment& placeholder) {
  switch (at.take()) {
    case L'l':
      placeholder.align = alignment::left;
      break;
    case L'c':
      placeholder.align = alignment::centre;
      break;
    case L'r':
      placeholder.align = alignment::right;
      break;
    default:
      break;
  }
}

void take_base(cursor& at, segment& placeholder) {
  placeholder.flags &= ~(kPrefix | kLowerCase | kZeroPadded);
  if (at.take_if(L'0'))
    placeholder.flags |= kPrefix;
  placeholder.base = at.take_number<std::uint8_t>();
  if (placeholder.base != 16)
    return;
  if (at.take_if(L'x'))
    placeholder.flags |= kLowerCase;
  else
    at.take_if(L'X');
  if (at.take_if(L'p'))
    placeholder.flags |= kZeroPadded;
}

void take_text_parameter(cursor& at, segment& placeholder) {
  if (!at.take_if(L'('))
    throw bad_extended_format_string();
  const auto end = at.rest().find_first_of(L")}");
  placeholder.text = at.take(end);
  if (!at.take_if(L')'))
    throw bad_extended_format_string();
  placeholder.flags |= kTextParameter;
}

void take_widths(cursor& at, segment& placeholder) {
  placeholder.width = at.take_number<std::uint16_t>();
  placeholder.max_width = at.take_if(L',') ? at.take_number<std::uint16_t>() : std::uint16_t{0};
}

// The flag of a letter that is a complete specifier; 0 for any other letter.
std::uint32_t flag_of(wchar_t letter) noexcept {
  switch (letter) {
    case L'+':
      return kPlus;
    case L'c':
      return kCharacter;
    case L'e':
      return kEllipsis;
    case L'l':
      return kGrouped;
    case L'n':
      return kLetterN;
    case L'u':
      return kUnsigned;
    default:
      return 0;
  }
}

// Takes the rest of a specifier that begins with `letter`.
void take_specifier(wchar_t letter, cursor& at, segment& placeholder) {
  switch (letter) {
    case L'?':
      return take_condition(at, placeholder);
    case L'a':
      return take_alignment(at, placeholder);
    case L'b':
      return take_base(at, placeholder);
    case L't':
      return take_text_parameter(at, placeholder);
    case L'w':
      return take_widths(at, placeholder);
    case L'f':
      placeholder.fill = at.take();
      return;
    case L'p':
      placeholder.precision = at.take_number<std::uint16_t>();
      return;
    case L's':
      placeholder.flags |= at.take_if(L'a') ? kLettersSa : kLetterS;
      return;
    default:
      if (flag_of(letter) == 0)
        throw bad_extended_format_string();
      placeholder.flags |= flag_of(letter);
  }
}

}  // namespace

segment take_placeholder(cursor& at, std::uint16_t automatic_index) {
  segment placeholder;
  placeholder.index = at.at_digit() ? at.take_number<std::uint16_t>() : automatic_index;
  for (wchar_t letter = at.take(); letter != L'}'; letter = at.take())
    take_specifier(letter, at, placeholder);
  return placeholder;
}

}  // namespace tfmt::details
