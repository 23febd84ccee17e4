#include "client/line/line_settings.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "app/command_line/cmd_line_syntax_error.h"
#include "app/command_line/numbers.h"

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

template <class Code, std::size_t Size>
Code parse_keyword(std::wstring_view text, const std::string& what,
                   const keyword<Code> (&keywords)[Size]) {
  const auto* const found = std::ranges::find(keywords, text, &keyword<Code>::text);
  if (found == std::end(keywords))
    throw Tamrin::cmd_line_syntax_error("Invalid " + what + " specified.");
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
