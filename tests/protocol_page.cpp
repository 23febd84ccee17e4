#include "tests/protocol_page.h"

#include <algorithm>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace system_test {
namespace {

constexpr std::size_t kBytesALine = 12;
constexpr std::size_t kNoteColumn = 42;

struct Block {
  std::vector<std::string> words;  // of its first line
  std::vector<std::string> lines;
};

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
}

std::vector<std::string> WordsOf(const std::string& text) {
  std::istringstream in(text);
  return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

std::vector<Block> BlocksOf(const std::string& page, const std::string& kind) {
  std::vector<Block> blocks;
  bool inside = false;
  for (const std::string& line : LinesOf(page)) {
    const bool fence = line.starts_with("```");
    if (fence && !inside && line.starts_with("```" + kind + " "))
      blocks.push_back({WordsOf(line), {}});
    else if (!fence && inside)
      blocks.back().lines.push_back(line);
    inside = fence ? !inside && line.starts_with("```" + kind + " ") : inside;
  }
  return blocks;
}

TranscriptLine ParseBytes(const std::string& text) {
  const std::size_t note = text.find('#');
  TranscriptLine line;
  for (const std::string& word : WordsOf(text.substr(0, note))) {
    if (!std::regex_match(word, std::regex("[0-9A-F]{2}")))
      throw std::runtime_error("\"" + word + "\" is no byte: " + text);
    line.bytes.push_back(static_cast<std::uint8_t>(std::stoul(word, nullptr, 16)));
  }
  if (note != std::string::npos)
    line.note = text.substr(note);
  return line;
}

TranscriptLine ParseLine(const std::string& text) {
  if (!text.starts_with("> ") && !text.starts_with("< "))
    throw std::runtime_error("neither sent nor received: " + text);
  TranscriptLine line = ParseBytes(text.substr(2));
  line.direction = text.front();
  return line;
}

// Twelve bytes are mostly a header, whose fields stand apart.
std::string Hexadecimal(const Bytes& bytes, bool header) {
  std::ostringstream out;
  out << std::hex << std::uppercase << std::setfill('0');
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const bool field = header && (i == 4 || i == 6 || i == 8);
    out << (i == 0 ? "" : field ? "  " : " ") << std::setw(2) << unsigned{bytes[i]};
  }
  return out.str();
}

}  // namespace

std::string ProtocolPage() {
  std::ifstream file(TARNWHEEL_PROTOCOL_PAGE);
  if (!file)
    throw std::runtime_error("there is no " TARNWHEEL_PROTOCOL_PAGE);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void Transcript::Replace(std::size_t first, std::size_t last, const Bytes& bytes) {
  auto rest = bytes.begin();
  std::vector<TranscriptLine> replaced;
  for (std::size_t i = first; rest != bytes.end(); ++i) {
    const bool had = i < last;
    const auto size = static_cast<std::ptrdiff_t>(had ? lines[i].bytes.size() : kBytesALine);
    const auto end = rest + std::clamp<std::ptrdiff_t>(size, 1, bytes.end() - rest);
    replaced.push_back({lines[first].direction, Bytes(rest, end), had ? lines[i].note : ""});
    rest = end;
  }
  const auto at = [this](std::size_t i) { return lines.begin() + static_cast<std::ptrdiff_t>(i); };
  lines.insert(lines.erase(at(first), at(last)), replaced.begin(), replaced.end());
}

std::string Transcript::Text() const {
  std::string text = "```transcript " + connection + " " + name + "\n";
  for (const TranscriptLine& line : lines) {
    std::string shown =
        line.direction + (" " + Hexadecimal(line.bytes, line.note.starts_with("# call ")));
    if (!line.note.empty())
      shown.resize(std::max(shown.size() + 1, kNoteColumn), ' ');
    text += shown + line.note + "\n";
  }
  return text + "```\n";
}

std::vector<Transcript> TranscriptsOf(const std::string& page) {
  std::vector<Transcript> transcripts;
  for (const Block& block : BlocksOf(page, "transcript")) {
    Transcript transcript = {block.words.at(1), block.words.at(2), {}};
    std::ranges::transform(block.lines, std::back_inserter(transcript.lines), ParseLine);
    transcripts.push_back(std::move(transcript));
  }
  return transcripts;
}

std::map<std::string, Bytes> DatagramsOf(const std::string& page) {
  std::map<std::string, Bytes> datagrams;
  for (const Block& block : BlocksOf(page, "datagram")) {
    Bytes& datagram = datagrams[block.words.at(1)];
    for (const std::string& line : block.lines)
      datagram = Join({datagram, ParseBytes(line).bytes});
  }
  return datagrams;
}

std::map<std::string, std::uint32_t> ControlCodesOf(const std::string& page) {
  const std::regex row(R"(\| `0x([0-9A-F]{8})` \| `(IOCTL_\w+)` \|.*)");
  std::map<std::string, std::uint32_t> codes;
  for (const std::string& line : LinesOf(page)) {
    std::smatch match;
    if (std::regex_match(line, match, row))
      codes[match[2]] = static_cast<std::uint32_t>(std::stoul(match[1], nullptr, 16));
  }
  return codes;
}

}  // namespace system_test
