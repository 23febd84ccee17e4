// Either end of a mailslot: datagrams between the machines of the local network.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "async/future.h"
#include "async/overlapped_file.h"

namespace tether {

// The end that Create makes is read from, the end that Open opens is written to. Owned through a
// shared pointer, which each operation's coroutine holds as well: the handle and its binding are
// closed when no operation uses them any more. One read at a time.
//
// Every operation is overlapped, except where a mailslot cannot be bound to the thread pool, as
// under Wine, whose mailslots are synchronous to read from: a read that finds the slot empty would
// hold its thread until a message comes, and could not be cancelled. There Read looks for a message
// every now and then, on a timer, and reads only what is there.
//
// A reader without room for the next message leaves it in the slot, before all others. So a message
// that is too long is taken out with as much room as it needs, and dropped.
class Mailslot final : public std::enable_shared_from_this<Mailslot> {
 public:
  // The longest message, in bytes, that Read gives.
  static constexpr DWORD kMaxMessage = 1024;

  // From now on a cancellation of `owner` cancels the operations; called before the first of them.
  void LinkCancellation(const ostra::cancellation_source& owner) { file_.link(owner); }

  // Ends what is pending and refuses what comes later.
  void Cancel() { file_.cancel(); }

  // Makes the mailslot "\\.\mailslot\<name>"; `security` may be null. Returns why it cannot be
  // made; throws hresult_error when it was made but cannot be bound to the thread pool, unless it
  // is one of the synchronous kind.
  HRESULT Create(std::wstring_view name, SECURITY_ATTRIBUTES* security);

  // Opens "\\<target>\mailslot\<name>" for writing, whose parts are taken as they stand: what comes
  // from others has to be looked at before. The name of another machine may hold the caller's
  // thread for seconds. Returns why it cannot be opened; throws hresult_error when it cannot be
  // bound.
  HRESULT Open(std::wstring_view target, std::wstring_view name);

  // The next message. A longer one than kMaxMessage fails the read with ERROR_INSUFFICIENT_BUFFER
  // and is gone, so that the next read gets the message behind it.
  ostra::future<std::vector<std::byte>> Read();

  // Writes one message; the value is the number of its bytes.
  ostra::future<std::uint32_t> Write(std::vector<std::byte> message);

 private:
  [[nodiscard]] DWORD next_size() const;
  ostra::future<std::vector<std::byte>> read_overlapped();
  ostra::future<std::vector<std::byte>> read_polled();

  // Set by Create or Open, constant while operations run.
  ostra::overlapped_file file_;
};

}  // namespace tether
