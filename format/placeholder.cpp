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

// A second letter without a meaning is consumed and changes nothing.
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
  if (at.take_if(L'x')) {
    placeholder.flags |= kLowerCase;
  } else {
    at.take_if(L'X');
  }
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

// Reads what follows `letter`, if anything belongs to it.
void take_specifier(wchar_t letter, cursor& at, segment& placeholder) {
  switch (letter) {
    case L'+':
      placeholder.flags |= kPlus;
      break;
    case L'?':
      take_condition(at, placeholder);
      break;
    case L'a':
      take_alignment(at, placeholder);
      break;
    case L'b':
      take_base(at, placeholder);
      break;
    case L'c':
      placeholder.flags |= kCharacter;
      break;
    case L'e':
      placeholder.flags |= kEllipsis;
      break;
    case L'f':
      placeholder.fill = at.take();
      break;
    case L'l':
      placeholder.flags |= kGrouped;
      break;
    case L'n':
      placeholder.flags |= kLetterN;
      break;
    case L'p':
      placeholder.precision = at.take_number<std::uint16_t>();
      break;
    case L's':
      placeholder.flags |= at.take_if(L'a') ? kLettersSa : kLetterS;
      break;
    case L't':
      take_text_parameter(at, placeholder);
      break;
    case L'u':
      placeholder.flags |= kUnsigned;
      break;
    case L'w':
      take_widths(at, placeholder);
      break;
    default:
      throw bad_extended_format_string();
  }
}

}  // namespace

segment take_placeholder(cursor& at, std::uint16_t automatic_index) {
  segment placeholder;
  placeholder.index = at.at_digit() ? at.take_number<std::uint16_t>() : automatic_index;
  for (wchar_t letter = at.take(); letter != L'}'; letter = at.take()) {
    take_specifier(letter, at, placeholder);
  }
  return placeholder;
}

}  // namespace tfmt::details
