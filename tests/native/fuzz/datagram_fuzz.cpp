// Discovery datagrams, which anybody on the network may send.
#include <algorithm>

#include "async/errors.h"
#include "fuzz.h"
#include "rpc/discovery_datagram.h"
#include "rpc/marshalling.h"

void fuzz::run(input bytes) {
  const auto datagram = std::as_bytes(bytes);
  try {
    const auto name = tether::name_in(datagram);
    // A part of a path that leads nowhere else, and what the bytes say.
    require(name == L"." || name.find_first_of(L"\\/:*?\"<>|@ ") == name.npos);
    require(name == L"." || (!name.starts_with(L'.') && !name.empty() && name.size() <= 255));
    require(std::ranges::equal(tether::make_datagram(name),
                               datagram.first(4 + name.size() * sizeof(wchar_t))));
  } catch (const ostra::hresult_error& error) {
    require(error.code() == tether::kMalformedPayload);
  }
}
