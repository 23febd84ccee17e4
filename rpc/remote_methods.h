// The methods of IServer_Remote for both halves of the binding: each is declared once, and its
// parameters and result determine its encoding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <tuple>
#include <utility>
#include <vector>

#include "async/future.h"
#include "rpc/connection.h"
#include "rpc/iserver_remote.h"
#include "rpc/marshalling.h"

namespace tether {

// The encoding of a T in a payload. Reading throws hresult_error with kMalformedPayload.
template <class T>
struct wire;

template <>
struct wire<std::uint32_t> {
  static std::uint32_t read(payload_reader& from) { return from.read_integer(); }
  static void write(payload_writer& to, std::uint32_t value) { to.write_integer(value); }
};

template <>
struct wire<HRESULT> {
  static HRESULT read(payload_reader& from) { return static_cast<HRESULT>(from.read_integer()); }
  static void write(payload_writer& to, HRESULT code) {
    to.write_integer(static_cast<std::uint32_t>(code));
  }
};

template <>
struct wire<std::vector<std::byte>> {
  static std::vector<std::byte> read(payload_reader& from) { return from.read_bytes(); }
  static void write(payload_writer& to, const std::vector<std::byte>& bytes) {
    to.write_bytes(bytes);
  }
};

template <>
struct wire<bytes_result> {
  static bytes_result read(payload_reader& from) {
    bytes_result result;
    result.code = wire<HRESULT>::read(from);
    result.bytes = from.read_bytes();
    return result;
  }
  static void write(payload_writer& to, const bytes_result& result) {
    wire<HRESULT>::write(to, result.code);
    to.write_bytes(result.bytes);
  }
};

template <>
struct wire<std::vector<port_record>> {
  static std::vector<port_record> read(payload_reader& from) {
    std::vector<port_record> ports;
    for (std::uint32_t count = from.read_integer(); count != 0; --count) {
      port_record port;
      port.friendly_name = from.read_string();
      port.number = from.read_integer();
      ports.push_back(std::move(port));
    }
    return ports;
  }
  static void write(payload_writer& to, const std::vector<port_record>& ports) {
    to.write_integer(static_cast<std::uint32_t>(ports.size()));
    for (const auto& port : ports) {
      to.write_string(port.friendly_name);
      to.write_integer(port.number);
    }
  }
};

// One method: its number on the wire and the member function that it stands for.
template <method Number, auto Function>
struct remote_method;

template <method Number, class Result, class... Arguments,
          ostra::future<Result> (IServer_Remote::*Function)(Arguments...)>
struct remote_method<Number, Function> {
  // Server half: reads the arguments from the request, releases it, as it may be long, calls the
  // server and appends the result to the reply. `server` and `reply` must live until the future
  // completes.
  static ostra::future<void> serve(IServer_Remote& server, std::shared_ptr<const Message> request,
                                   payload_writer& reply) {
    [[maybe_unused]] payload_reader payload(request->payload());
    std::tuple<Arguments...> arguments{wire<Arguments>::read(payload)...};
    request.reset();
    auto call = invoke(server, arguments);
    const auto result = co_await call;
    wire<Result>::write(reply, result);
  }

  // Client half: sends the request; completes with the result.
  static ostra::future<Result> call(IConnection& connection, const Arguments&... arguments) {
    auto request = connection.NewRequest(static_cast<std::uint16_t>(Number));
    [[maybe_unused]] payload_writer payload(*request);
    (wire<Arguments>::write(payload, arguments), ...);
    return result_of(connection.Call(std::move(request)));
  }

 private:
  static ostra::future<Result> invoke(IServer_Remote& server, std::tuple<Arguments...>& arguments) {
    return std::apply(
        [&server](Arguments&... each) { return (server.*Function)(std::move(each)...); },
        arguments);
  }

  static ostra::future<Result> result_of(ostra::future<std::shared_ptr<const Message>> reply) {
    const auto message = co_await reply;
    payload_reader payload(message->payload());
    co_return wire<Result>::read(payload);
  }
};

namespace remote {
using EnumeratePorts = remote_method<method::EnumeratePorts, &IServer_Remote::EnumeratePorts>;
using OpenPort = remote_method<method::OpenPort, &IServer_Remote::OpenPort>;
using IoControl = remote_method<method::IoControl, &IServer_Remote::IoControl>;
using Write = remote_method<method::Write, &IServer_Remote::Write>;
using Read = remote_method<method::Read, &IServer_Remote::Read>;
}  // namespace remote

}  // namespace tether
