// Fuzzes the bytes that the other end of a connection may send: requests for the server's methods
// and replies to this end's calls, cut off anywhere.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "rpc/client_iclient.h"
#include "rpc/connection.h"
#include "rpc/server_iserver.h"
#include "tests/support/unit/memory_transport.h"

namespace {

using namespace tether;
using test::bytes;

constexpr std::uint16_t kOwnCode = 1;
constexpr unsigned char kPorts[] = {2, 0, 0, 0,                                        //
                                    2, 0, 0, 0, 'P', 0, 0xAC, 0x20, 0x70, 0x11, 1, 0,  //
                                    2, 0, 0, 0, 'P', 0, 0xAC, 0x20, 0x70, 0x11, 1, 0};

// Ends the program unless `holds`; the fuzzer reports that with the input.
void require(bool holds) {
  if (!holds)
    std::abort();
}

// The payload of the reply; none if the request must not be answered.
std::optional<bytes> reply_to(const message_header& request, std::span<const std::byte> payload) {
  // The number of integers among each method's arguments; the last one of methods 2 and 3 counts
  // the bytes that follow.
  constexpr std::size_t kIntegers[] = {0, 1, 3, 1, 1};
  if (request.code == kOwnCode || request.code == kNoConnection || request.method >= 5)
    return std::nullopt;
  const std::size_t size = 4 * kIntegers[request.method];
  std::uint32_t count = 0;
  if (payload.size() >= size && (request.method == 2 || request.method == 3))
    std::memcpy(&count, payload.data() + size - 4, sizeof count);
  if (payload.size() < size + count)
    return std::nullopt;
  const auto first = request.method == 0 ? std::as_bytes(std::span(kPorts)) : payload.first(4);
  bytes reply(first.begin(), first.end());
  if (request.method == 2)
    reply.insert(reply.end(), payload.begin() + 8, payload.begin() + 12 + count);
  reply.resize(reply.size() + (request.method == 4 ? 4 : 0));
  return reply;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto server = std::make_shared<test::EchoServer>();
  auto [transport, peer] = test::MemoryTransport::MakePair();
  auto rest = std::as_bytes(std::span(data, size));
  peer->WriteBytes(rest);
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
  for (message_header header; rest.size() >= sizeof header; rest = rest.subspan(header.length)) {
    std::memcpy(&header, rest.data(), sizeof header);
    rest = rest.subspan(sizeof header);
    if (header.length > rest.size())
      break;
    const auto expected = reply_to(header, rest.first(header.length));
    if (!expected)
      continue;
    const auto reply = peer->ReadMessage().get();
    const message_header& replied = reply->header();
    require(replied.call == header.call && replied.code == header.code &&
            replied.method == header.method && std::ranges::equal(reply->payload(), *expected));
  }
  try {
    static_cast<void>(peer->ReadMessage().get());
    require(false);
  } catch (const ostra::hresult_error&) {
    // Nothing else was sent.
  }
  return 0;
}
