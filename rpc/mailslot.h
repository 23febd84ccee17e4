// Either end of a mailslot, which carries datagrams between machines of the local network.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "async/future.h"
#include "async/overlapped_file.h"

namespace tether {

// Create makes the reading end, Open the writing end. Owned through a shared pointer, which each
// operation's coroutine also holds: the handle and its binding are closed when no operation uses
// them any more. One read at a time.
//
// Every operation is overlapped, except where a mailslot cannot be bound to the thread pool, as
// under Wine, whose mailslots are synchronous for reading. There a read of an empty slot would
// block its thread until a message comes, and could not be cancelled. So Read polls the slot on a
// timer and reads only a message that is already there.
//
// A reader without room for the next message leaves it in the slot, ahead of all others. So a
// message that is too long is read with as much room as it needs, and discarded.
class Mailslot final : public std::enable_shared_from_this<Mailslot> {
 public:
  // The longest message, in bytes, that Read returns.
  static constexpr DWORD kMaxMessage = 1024;

  // From now on, cancelling `owner` cancels the operations. Must precede the first of them.
  void LinkCancellation(const ostra::cancellation_source& owner) { file_.link(owner); }

  // Cancels pending operations and refuses later ones.
  void Cancel() { file_.cancel(); }

  // Creates the mailslot "\\.\mailslot\<name>"; `security` may be null. Returns 0 or the HRESULT of
  // the failure. Throws hresult_error when the mailslot was created but cannot be bound to the
  // thread pool, unless that is because it is synchronous.
  HRESULT Create(std::wstring_view name, SECURITY_ATTRIBUTES* security);

  // Opens "\\<target>\mailslot\<name>" for writing. Both parts are used unchanged: names from
  // others must be checked first. The name of another machine may block the calling thread for
  // seconds. Returns 0 or the HRESULT of the failure. Throws hresult_error when the mailslot cannot
  // be bound.
  HRESULT Open(std::wstring_view target, std::wstring_view name);

  // The next message. One longer than kMaxMessage fails the read with ERROR_INSUFFICIENT_BUFFER and
  // is discarded, so that the next read returns the message behind it.
  ostra::future<std::vector<std::byte>> Read();

  // Writes one message; completes with the number of bytes written.
  ostra::future<std::uint32_t> Write(std::vector<std::byte> message);

 private:
  [[nodiscard]] DWORD next_size() const;
  ostra::future<std::vector<std::byte>> read_overlapped();
  ostra::future<std::vector<std::byte>> read_polled();

  // Set by Create or Open, constant while operations run.
  ostra::overlapped_file file_;
};

}  // namespace tether
