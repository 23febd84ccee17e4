// The datagrams that clients which look for servers, and servers which answer them, write into each
// other's mailslots.
//
// A query and an answer are alike: the 32-bit count of a name's UTF-16 units, then the units, all
// little-endian. A query holds the name of the computer that the answer goes to, an answer the name
// of the server's.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tether {

// Made by every server, read by it.
inline constexpr wchar_t kQueryMailslot[] =
    L"kelvarine_{B4D27F19-6E3A-4C85-A1D0-7F92E6C3B548}_v1.01";
// Made by a client, on its own machine.
inline constexpr wchar_t kAnswerMailslot[] =
    L"kelvarine_{1E8A6C42-D97B-4F30-8C5E-43B1A0F7D926}_v1.01";

// The host part of this computer's DNS name, by which both kinds of datagram know it; it may change
// while a program runs. Throws hresult_error.
[[nodiscard]] std::wstring computer_name();

[[nodiscard]] std::vector<std::byte> make_datagram(std::wstring_view name);

// Says whether a name from the network, where anybody may have sent it, can do nothing but name a
// computer in a path such as "\\<name>\mailslot\...": up to 255 letters, digits, hyphens,
// underscores, periods and characters beyond ASCII. That leaves out whatever would open something
// else (separators, "..", "?"), address every computer ("*") or choose another protocol ("@"). The
// one name with a meaning of its own that remains is ".", this computer, which its true name stands
// for just as well. That a name is a domain's, whose computers would all be sent an answer, cannot
// be seen from the name.
[[nodiscard]] bool is_computer_name(std::wstring_view name) noexcept;

// The name that a datagram holds; a query's becomes a part of the path that the server opens.
// Throws hresult_error, ERROR_INVALID_DATA, for one that is no computer name and for a datagram
// that ends before the name does. What follows the name is ignored.
[[nodiscard]] std::wstring name_in(std::span<const std::byte> datagram);

}  // namespace tether
