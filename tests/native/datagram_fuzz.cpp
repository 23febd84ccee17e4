// Discovery datagrams, which anybody on the network may send.
#include <algorithm>

#include "async/errors.h"
#include "fuzz_input.h"
#include "rpc/discovery_datagram.h"
#include "rpc/marshalling.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto datagram = std::as_bytes(fuzz::input(data, size));
  try {
    const auto name = tether::name_in(datagram);
    // A part of a path that leads nowhere else, and what the bytes say.
    fuzz::require(!name.empty() && name.size() <= 255);
    fuzz::require(name == L"." || name.find_first_of(L"\\/:*?\"<>|@ ") == name.npos);
    fuzz::require(name == L"." || !name.starts_with(L'.'));
    fuzz::require(std::ranges::equal(tether::make_datagram(name),
                                     datagram.first(4 + name.size() * sizeof(wchar_t))));
  } catch (const ostra::hresult_error& error) {
    fuzz::require(error.code() == tether::kMalformedPayload);
  }
  return 0;
}
