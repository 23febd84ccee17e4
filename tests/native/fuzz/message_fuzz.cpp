// What the other end of a connection may send: requests for the server's methods and replies to
// calls of this end, cut off anywhere.
#include <algorithm>
#include <cstring>

#include "fuzz.h"
#include "rpc/client_iclient.h"
#include "rpc/connection.h"
#include "rpc/marshalling.h"
#include "rpc/server_iserver.h"
#include "tests/support/unit/memory_transport.h"

namespace {

using namespace tether;
using bytes = std::vector<std::byte>;

constexpr std::uint16_t kOwnCode = 1;

// Answers at once, with what it was asked.
class EchoingServer final : public IServer_Remote {
 public:
  ostra::future<std::vector<port_record>> EnumeratePorts() override {
    co_return std::vector<port_record>(1);
  }
  ostra::future<HRESULT> OpenPort(std::uint32_t number) override { co_return HRESULT(number); }
  ostra::future<bytes_result> IoControl(std::uint32_t code, std::uint32_t, bytes input) override {
    co_return bytes_result{HRESULT(code), std::move(input)};
  }
  ostra::future<HRESULT> Write(bytes data) override { co_return HRESULT(data.size()); }
  ostra::future<bytes_result> Read(std::uint32_t size) override {
    co_return bytes_result{HRESULT(size), {}};
  }
};

// The integers of each method's arguments; the last one of methods 2 and 3 counts bytes that follow.
constexpr std::size_t kIntegers[] = {0, 1, 3, 1, 1};

bool is_answered(const message_header& header, fuzz::input payload) {
  if (header.code == kOwnCode || header.code == kNoConnection || header.method >= 5)
    return false;
  const std::size_t size = 4 * kIntegers[header.method];
  std::uint32_t count = 0;
  if (payload.size() >= size && (header.method == 2 || header.method == 3))
    std::memcpy(&count, payload.data() + size - 4, sizeof count);
  return payload.size() >= size + count;
}

// The reply can be read back, to its end.
void require_reply(const message_header& request, const Message& reply) {
  message_header expected = request;
  expected.length = reply.header().length;
  fuzz::require(std::memcmp(&expected, &reply.header(), sizeof expected) == 0);
  payload_reader reader(reply.payload());
  std::size_t size = 4;
  const std::uint32_t first = reader.read_integer();
  if (request.method == 0) {
    fuzz::require(first == 1 && reader.read_string().empty() && reader.read_integer() == 0);
    size += 8;
  } else if (request.method % 2 == 0) {
    size += 4 + reader.read_bytes().size();
  }
  fuzz::require(reply.payload().size() == size);
}

}  // namespace

void fuzz::run(input bytes) {
  const auto server = std::make_shared<EchoingServer>();
  auto [transport, peer] = test::MemoryTransport::MakePair();
  peer->WriteBytes(std::as_bytes(bytes));
  peer->EndWriting();
  const auto end = std::make_shared<Connection<Client_IClient, Server_IServer>>(
      std::move(transport), kOwnCode, std::weak_ptr<IServer_Remote>(server));
  const auto ports = end->Remote().EnumeratePorts();
  const auto read = end->Remote().Read(1);
  const auto ran = end->Run();
  require(ran.is_complete() && end->RequestsInProgress() == 0);
  require(ports.is_complete() && read.is_complete());

  for (int call = 0; call < 2; ++call)
    require(peer->ReadMessage().get()->header().code == kOwnCode);
  for (message_header header; bytes.size() >= sizeof header;) {
    std::memcpy(&header, bytes.data(), sizeof header);
    bytes = bytes.subspan(sizeof header);
    if (header.length > bytes.size())
      break;
    const input payload = bytes.first(header.length);
    bytes = bytes.subspan(header.length);
    if (is_answered(header, payload))
      require_reply(header, *peer->ReadMessage().get());
  }
  try {
    static_cast<void>(peer->ReadMessage().get());
    require(false);
  } catch (const ostra::hresult_error&) {
    // Nothing else was sent.
  }
}
