#include "settings/server_parameters.h"

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

#include "format/format.h"
#include "settings/regkey.h"

namespace Tamrin::setman {
namespace {

// Numbers are written and read in their in-memory representation.
static_assert(std::endian::native == std::endian::little);

constexpr ULONG kNumberSize = sizeof(std::uint32_t);

HRESULT write_all(IStream& stream, const void* data, std::size_t size) {
  ULONG written = 0;
  const HRESULT result = stream.Write(data, static_cast<ULONG>(size), &written);
  if (FAILED(result))
    return result;
  return written == size ? S_OK : HRESULT_FROM_WIN32(ERROR_HANDLE_EOF);
}

// Reads up to `size` bytes; a stream may deliver them in pieces.
HRESULT read_up_to(IStream& stream, void* data, ULONG size, ULONG& read) {
  read = 0;
  while (read < size) {
    ULONG piece = 0;
    const HRESULT result = stream.Read(static_cast<std::byte*>(data) + read, size - read, &piece);
    if (FAILED(result))
      return result;
    if (piece == 0)
      break;
    read += piece;
  }
  return S_OK;
}

HRESULT read_all(IStream& stream, void* data, ULONG size) {
  ULONG read = 0;
  const HRESULT result = read_up_to(stream, data, size, read);
  if (FAILED(result))
    return result;
  return read == size ? S_OK : HRESULT_FROM_WIN32(ERROR_HANDLE_EOF);
}

// Reads block by block, so that memory grows with the bytes that exist and not with a false count.
HRESULT read_numbers(IStream& stream, std::uint32_t count, std::vector<std::uint32_t>& numbers) {
  std::array<std::uint32_t, 64> block;
  while (count != 0) {
    const auto taken = std::min(count, static_cast<std::uint32_t>(block.size()));
    const HRESULT result = read_all(stream, block.data(), taken * kNumberSize);
    if (FAILED(result))
      return result;
    numbers.insert(numbers.end(), block.begin(), block.begin() + taken);
    count -= taken;
  }
  return S_OK;
}

HRESULT expect_end(IStream& stream) {
  std::byte surplus;
  ULONG read = 0;
  const HRESULT result = read_up_to(stream, &surplus, 1, read);
  if (FAILED(result))
    return result;
  return read == 0 ? S_OK : HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
}

HRESULT read_list(IStream& stream, std::vector<std::uint32_t>& numbers) {
  std::uint32_t count = 0;
  HRESULT result = read_all(stream, &count, kNumberSize);
  if (FAILED(result))
    return result;
  result = read_numbers(stream, count, numbers);
  return FAILED(result) ? result : expect_end(stream);
}

// The result for a value that could not be read: only a missing value falls back to its default.
HRESULT default_if_missing(abstract_folder& folder, const wchar_t* name) {
  return folder.has_value(name) ? HRESULT_FROM_WIN32(ERROR_INVALID_DATA) : S_OK;
}

HRESULT read_security_descriptor(abstract_folder& folder, std::wstring& sddl) {
  auto text = folder.read_string(kSecurityDescriptorName);
  if (!text)
    return default_if_missing(folder, kSecurityDescriptorName);
  sddl = *std::move(text);
  return S_OK;
}

HRESULT read_auto_discovery(abstract_folder& folder, bool& auto_discovery) {
  std::uint32_t on = 1;
  if (!folder.read_value(kAutoDiscoveryName, &on, sizeof(on)))
    return default_if_missing(folder, kAutoDiscoveryName);
  auto_discovery = on != 0;
  return S_OK;
}

// A stream may also deliver the bytes of a number or a string. Those of the number 0 would be an
// empty list, which shares every port.
bool is_number_or_string(abstract_folder& folder, const wchar_t* name) {
  std::byte first;
  return folder.read_value(name, &first, sizeof(first)) || folder.read_string(name);
}

// The stream of a value that is missing, or is not plain bytes, may be null or empty: it does not
// tell the two apart.
HRESULT read_shared_ports(abstract_folder& folder, std::vector<std::uint32_t>& ports) {
  const unique_stream stream = folder.open_stream(kSharedPortsName, STGM_READ);
  if (!stream || !folder.has_value(kSharedPortsName))
    return default_if_missing(folder, kSharedPortsName);
  if (is_number_or_string(folder, kSharedPortsName))
    return HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
  std::vector<std::uint32_t> numbers;
  const HRESULT result = read_list(*stream.get(), numbers);
  if (FAILED(result))
    return result;
  std::sort(numbers.begin(), numbers.end());
  ports = std::move(numbers);
  return S_OK;
}

}  // namespace

std::wstring parameters_key(unsigned major, unsigned minor) {
  return tfmt::format(L"Software\\Quorvane\\Tarnwheel Server {0}.{1w2arf0}", major, minor);
}

std::shared_ptr<abstract_folder> open_parameters_folder(unsigned major, unsigned minor) {
  return hkey_local_machine->open_subfolder(parameters_key(major, minor));
}

HRESULT write_shared_ports(abstract_folder& folder, const std::vector<std::uint32_t>& ports) {
  const unique_stream stream = folder.open_stream(kSharedPortsName, STGM_WRITE);
  if (!stream)
    return S_OK;
  const auto count = static_cast<std::uint32_t>(ports.size());
  const HRESULT result = write_all(*stream.get(), &count, sizeof(count));
  if (FAILED(result) || ports.empty())
    return result;
  return write_all(*stream.get(), ports.data(), ports.size() * kNumberSize);
}

HRESULT write_server_parameters(abstract_folder& folder, const server_parameters& parameters) {
  folder.write_string(kSecurityDescriptorName, parameters.security_descriptor);
  folder.write_value(kAutoDiscoveryName, &parameters.auto_discovery,
                     sizeof(parameters.auto_discovery));
  return write_shared_ports(folder, parameters.shared_ports);
}

HRESULT read_server_parameters(abstract_folder& folder, server_parameters& parameters) {
  server_parameters read;
  HRESULT result = read_security_descriptor(folder, read.security_descriptor);
  if (SUCCEEDED(result))
    result = read_auto_discovery(folder, read.auto_discovery);
  if (SUCCEEDED(result))
    result = read_shared_ports(folder, read.shared_ports);
  if (SUCCEEDED(result))
    parameters = std::move(read);
  return result;
}

}  // namespace Tamrin::setman
