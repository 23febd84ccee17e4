// The datagrams by which clients look for servers and servers answer, each written into the other's
// mailslot.
//
// Queries and answers have the same form: the 32-bit count of a name's UTF-16 units, then the
// units, all little-endian. A query holds the name of the computer to answer, an answer the name of
// the server's computer.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tether {

// Created and read by every server.
inline constexpr wchar_t kQueryMailslot[] =
    L"kelvarine_{B4D27F19-6E3A-4C85-A1D0-7F92E6C3B548}_v1.01";
// Created by a client, on its own machine.
inline constexpr wchar_t kAnswerMailslot[] =
    L"kelvarine_{1E8A6C42-D97B-4F30-8C5E-43B1A0F7D926}_v1.01";

// The host part of this computer's DNS name, as used in both kinds of datagram; it may change while
// a program runs. Throws hresult_error.
[[nodiscard]] std::wstring computer_name();

[[nodiscard]] std::vector<std::byte> make_datagram(std::wstring_view name);

// True when a name from the network, where anyone may have sent it, can only name a computer in a
// path such as "\\<name>\mailslot\...": up to 255 letters, digits, hyphens, underscores, periods
// and characters beyond ASCII. This excludes anything that would open something else (separators,
// "..", "?"), address every computer ("*") or select another protocol ("@"). The only special name
// that remains is ".", this computer, which its real name denotes as well. A domain's name cannot
// be told from a computer's, although an answer to it would go to every computer of the domain.
[[nodiscard]] bool is_computer_name(std::wstring_view name) noexcept;

// The name in a datagram; that of a query becomes part of the path that the server opens. Throws
// hresult_error, ERROR_INVALID_DATA, when it is not a computer name or the datagram ends before the
// name does. Anything after the name is ignored.
[[nodiscard]] std::wstring name_in(std::span<const std::byte> datagram);

}  // namespace tether
