#include "client/line/line_settings.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "app/command_line/cmd_line_syntax_error.h"
#include "app/command_line/numbers.h"
#include "format/format.h"

namespace tarnwheel::client {
namespace {

constexpr wchar_t kBaud[] = L"baud";
constexpr wchar_t kDataBits[] = L"data";
constexpr wchar_t kParity[] = L"parity";
constexpr wchar_t kStopBits[] = L"stop";
constexpr wchar_t kFlow[] = L"flow";

template <class Code>
struct keyword {
  std::wstring_view text;
  Code code;
};

constexpr keyword<UCHAR> kParities[] = {{L"none", NO_PARITY},
                                        {L"odd", ODD_PARITY},
                                        {L"even", EVEN_PARITY},
                                        {L"mark", MARK_PARITY},
                                        {L"space", SPACE_PARITY}};

constexpr keyword<UCHAR> kStopBitCounts[] = {
    {L"1", STOP_BIT_1}, {L"1.5", STOP_BITS_1_5}, {L"2", STOP_BITS_2}};

constexpr keyword<flow_control> kFlowControls[] = {{L"none", flow_control::none},
                                                   {L"rtscts", flow_control::rts_cts},
                                                   {L"xonxoff", flow_control::xon_xoff}};

Tamrin::command_line_option& add_option(Tamrin::command_line& line, const wchar_t* name,
                                        const wchar_t* value_name, std::wstring_view default_value,
                                        const wchar_t* description) {
  auto& option = line.add_valued(name);
  option.value_name = value_name;
  option.default_value = default_value;
  option.description = description;
  return option;
}

// "none, odd or even".
template <class Code, std::size_t Size>
std::wstring list_of(const keyword<Code> (&keywords)[Size]) {
  std::wstring list(keywords[0].text);
  for (std::size_t i = 1; i < Size; ++i)
    list.append(i + 1 < Size ? L", " : L" or ").append(keywords[i].text);
  return list;
}

template <class Code, std::size_t Size>
std::wstring_view text_of(Code code, const keyword<Code> (&keywords)[Size]) {
  return std::ranges::find(keywords, code, &keyword<Code>::code)->text;
}

template <class Code, std::size_t Size>
Code parse_keyword(std::wstring_view text, const std::string& what,
                   const keyword<Code> (&keywords)[Size]) {
  const auto* const found = std::ranges::find(keywords, text, &keyword<Code>::text);
  if (found == std::end(keywords))
    throw Tamrin::cmd_line_syntax_error("Invalid " + what + " specified.", text, list_of(keywords));
  return found->code;
}

}  // namespace

void add_line_options(Tamrin::command_line& line) {
  auto& first =
      add_option(line, kBaud, L"N", L"115200", L"Bits per second. Default value is 115200.");
  first.group_header = L"=== The line ===";
  add_option(line, kDataBits, L"N", L"8", L"Data bits, 5 to 8. Default value is 8.");
  add_option(line, kParity, L"PARITY", L"none",
             L"none, odd, even, mark or space. Default value is none.");
  add_option(line, kStopBits, L"N", L"1", L"Stop bits: 1, 1.5 or 2. Default value is 1.");
  add_option(line, kFlow, L"FLOW", L"none",
             L"Flow control: none, rtscts or xonxoff. Default value is none.");
}

std::wstring words_of(const SERIAL_LINE_CONTROL& control) {
  return tfmt::format(L"{0} data bits, {1} parity and {2} stop bits",
                      std::uint32_t{control.WordLength}, text_of(control.Parity, kParities),
                      text_of(control.StopBits, kStopBitCounts));
}

std::wstring_view words_of(flow_control flow) {
  return text_of(flow, kFlowControls);
}

std::wstring short_form_of(const SERIAL_LINE_CONTROL& control) {
  const wchar_t parity = L"NOEMS"[control.Parity];
  return tfmt::format(L"{0}{1}{2}", std::uint32_t{control.WordLength}, std::wstring(1, parity),
                      text_of(control.StopBits, kStopBitCounts));
}

line_settings line_settings_of(const Tamrin::command_line& line) {
  line_settings settings = {};
  settings.baud_rate.BaudRate = Tamrin::parse_number(line.at(kBaud).text(), "baud rate", 1,
                                                     std::numeric_limits<std::uint32_t>::max());
  settings.control.WordLength = static_cast<UCHAR>(
      Tamrin::parse_number(line.at(kDataBits).text(), "number of data bits", 5, 8));
  settings.control.Parity = parse_keyword(line.at(kParity).text(), "parity", kParities);
  settings.control.StopBits =
      parse_keyword(line.at(kStopBits).text(), "number of stop bits", kStopBitCounts);
  settings.flow = parse_keyword(line.at(kFlow).text(), "flow control", kFlowControls);
  return settings;
}

}  // namespace tarnwheel::client
