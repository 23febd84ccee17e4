#include "bench/visitors.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "bench/blocking_client.h"
#include "bench/local_port.h"
#include "rpc/message_format.h"

namespace bench {
namespace {

using tether::method;

BlockingClient Connect() {
  return BlockingClient(tether::kServerPipe);
}

// Bytes that tell one visit from another.
Bytes Noise(std::size_t size, unsigned random) {
  Bytes bytes(size);
  for (auto& byte : bytes) {
    random = random * 1664525u + 1013904223u;
    byte = static_cast<std::byte>(random >> 24);
  }
  return bytes;
}

HRESULT CodeOf(std::span<const std::byte> reply) {
  HRESULT code = S_OK;
  std::memcpy(&code, reply.data(), sizeof code);
  return code;
}

// Stays and calls.
void Talk(Tally& tally, const Ports&, unsigned random) {
  BlockingClient client = Connect();
  for (unsigned call = 0; call < random % 500; ++call, tally.Call())
    client.NullCall();
}

// Has bytes go round and compares them. Read and write are under way together.
void Echo(Tally& tally, const Ports& ports, unsigned random) {
  // Windows opens a port once at a time, Wine as often as asked.
  static std::mutex one_at_a_time;
  const std::lock_guard guard(one_at_a_time);
  BlockingClient client = Connect();
  client.OpenPort(ports.loopback);
  tally.Line();
  client.Call(method::IoControl, LocalPort::WaitForAllOfARead());
  for (unsigned round = 0; round < 20; ++round) {
    const Bytes sent = Noise(1 + (random + 977 * round) % 5000, random + round);
    client.Send(method::Read, Integer(static_cast<std::uint32_t>(sent.size())));
    client.Send(method::Write, Vector(sent));
    for (int reply = 0; reply < 2; ++reply, tally.Call()) {
      const auto payload = client.Receive();
      const bool is_read = payload.size() > sizeof(std::uint32_t);
      if (is_read && !std::ranges::equal(payload, Join(Integer(0), Vector(sent))))
        tally.WrongBytes();
    }
  }
}

// Lists, asks for a port that others ask for too, uses it if it is free, and leaves.
void Visit(Tally& tally, const Ports& ports, unsigned random) {
  BlockingClient client = Connect();
  client.Call(method::EnumeratePorts, {});
  const HRESULT opened = CodeOf(client.Call(method::OpenPort, Integer(ports.file)));
  tally.Call();
  if (FAILED(opened))
    return tally.Error(opened);
  client.Call(method::Write, Vector(Noise(random % 3000, random)));
  client.Call(method::Read, Integer(random % 70'000));
  tally.Call();
}

// Goes in the middle of a request.
void Vanish(Tally&, const Ports&, unsigned random) {
  BlockingClient client = Connect();
  const tether::message_header header = {1, 7, static_cast<std::uint16_t>(random % 6), 100};
  Bytes request(sizeof header + 100);
  std::memcpy(request.data(), &header, sizeof header);
  client.SendBytes(std::span(request).first(random % request.size()));
}

// Asks for much, reads nothing, and goes.
void KeepSilent(Tally&, const Ports& ports, unsigned random) {
  BlockingClient client = Connect();
  client.Send(method::OpenPort, Integer(ports.file));
  for (unsigned request = 0; request < random % 40; ++request)
    client.Send(method::Read, Integer(200'000));
  ::Sleep(random % 300);
}

// Leaves while requests wait for the device.
void LeaveThingsPending(Tally& tally, const Ports& ports, unsigned) {
  BlockingClient client = Connect();
  client.OpenPort(ports.silent);
  tally.Line();
  tally.Call();
  client.Call(method::IoControl, LocalPort::WaitForAllOfARead());
  for (int request = 0; request < 5; ++request)
    client.Send(method::Read, Integer(1000));
}

// Says what makes no sense.
void Babble(Tally&, const Ports&, unsigned random) {
  BlockingClient client = Connect();
  Bytes noise = Noise(16 + random % 200, random);
  // Short messages, so that their ends are found and the next ones read.
  for (std::size_t at = 10; at + 2 < noise.size(); at += 12)
    noise[at] = noise[at + 1] = std::byte{0};
  client.SendBytes(noise);
  ::Sleep(1);
}

}  // namespace

const Kind kAllKinds[kKinds] = {{"talk", &Talk},         {"echo", &Echo},
                                {"visit", &Visit},       {"vanish", &Vanish},
                                {"silent", &KeepSilent}, {"pending", &LeaveThingsPending},
                                {"babble", &Babble}};

void Tally::Error(HRESULT code) {
  const std::lock_guard guard(lock_);
  ++errors_[code];
}

std::string Tally::TakeErrors() {
  std::map<HRESULT, std::uint64_t> taken;
  {
    const std::lock_guard guard(lock_);
    taken.swap(errors_);
  }
  std::string text;
  for (const auto& [code, count] : taken) {
    char entry[64];
    std::snprintf(entry, sizeof entry, "%s0x%08lX %llu times", text.empty() ? "" : ", ",
                  static_cast<unsigned long>(code), static_cast<unsigned long long>(count));
    text += entry;
  }
  return text.empty() ? "none" : text;
}

}  // namespace bench
