// Named pipes within this process.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <deque>
#include <string>
#include <utility>

#include "kernel_objects.h"

namespace stand_in {

std::shared_ptr<file_object> make_temporary_file();

namespace {

// One direction of a connection: bytes in their order, up to `capacity` of them waiting.
class channel {
 public:
  explicit channel(std::size_t capacity) : capacity_(capacity) {}

  void read(request_ptr reader) {
    const std::lock_guard guard(lock_);
    if (size_ == 0 && writer_gone_)
      return reader->complete(ERROR_BROKEN_PIPE, 0);
    readers_.push_back(std::move(reader));
    move_bytes();
  }

  void write(request_ptr writer) {
    const std::lock_guard guard(lock_);
    if (reader_gone_)
      return writer->complete(ERROR_NO_DATA, 0);
    writers_.push_back(std::move(writer));
    move_bytes();
  }

  bool cancel(const OVERLAPPED* overlapped) {
    const std::lock_guard guard(lock_);
    return fail_from(readers_, overlapped) || fail_from(writers_, overlapped);
  }

  // An end is closed: its own calls are aborted, and the other end hears of it when it has read
  // what is there.
  void end_writing() {
    const std::lock_guard guard(lock_);
    writer_gone_ = true;
    fail(writers_, ERROR_OPERATION_ABORTED);
    if (size_ == 0)
      fail(readers_, ERROR_BROKEN_PIPE);
  }

  void end_reading() {
    const std::lock_guard guard(lock_);
    reader_gone_ = true;
    chunks_.clear();
    size_ = 0;
    fail(readers_, ERROR_OPERATION_ABORTED);
    fail(writers_, ERROR_BROKEN_PIPE);
    emptied_.notify_all();
  }

  void wait_until_read() {
    std::unique_lock guard(lock_);
    emptied_.wait(guard, [this] { return size_ == 0; });
  }

 private:
  using requests = std::deque<request_ptr>;

  static void fail(requests& queue, DWORD error) {
    for (const auto& call : std::exchange(queue, {}))
      call->complete(error, call->moved);
  }

  static bool fail_from(requests& queue, const OVERLAPPED* overlapped) {
    const auto found = std::ranges::find(queue, overlapped,
                                         [](const request_ptr& call) { return call->overlapped; });
    if (found == queue.end())
      return false;
    const auto call = *found;
    queue.erase(found);
    call->complete(ERROR_OPERATION_ABORTED, 0);
    return true;
  }

  void move_bytes() {
    do {
      while (!writers_.empty() && size_ < capacity_)
        accept(*writers_.front());
      while (!readers_.empty() && size_ != 0)
        deliver(*readers_.front());
    } while (!writers_.empty() && size_ < capacity_);
    if (size_ == 0)
      emptied_.notify_all();
  }

  void accept(request& writer) {
    const auto* const first = writer.data + writer.moved;
    const auto count = std::min<std::size_t>(writer.size - writer.moved, capacity_ - size_);
    chunks_.emplace_back(first, first + count);
    size_ += count;
    writer.moved += static_cast<DWORD>(count);
    if (writer.moved == writer.size) {
      const auto done = std::move(writers_.front());
      writers_.pop_front();
      done->complete(ERROR_SUCCESS, done->size);
    }
  }

  void deliver(request& reader) {
    while (reader.moved < reader.size && size_ != 0) {
      auto& chunk = chunks_.front();
      const auto count = std::min<std::size_t>(reader.size - reader.moved, chunk.size() - read_);
      std::memcpy(reader.data + reader.moved, chunk.data() + read_, count);
      reader.moved += static_cast<DWORD>(count);
      size_ -= count;
      read_ += count;
      if (read_ == chunk.size()) {
        chunks_.pop_front();
        read_ = 0;
      }
    }
    const auto done = std::move(readers_.front());
    readers_.pop_front();
    done->complete(ERROR_SUCCESS, done->moved);
  }

  const std::size_t capacity_;

  std::mutex lock_;
  std::condition_variable emptied_;

  // Guarded by lock_.
  std::deque<std::vector<std::byte>> chunks_;
  std::size_t read_ = 0;  // of the first chunk
  std::size_t size_ = 0;  // not read yet
  requests readers_;
  requests writers_;
  bool reader_gone_ = false;
  bool writer_gone_ = false;
};

struct connection {
  explicit connection(std::size_t capacity) : to_server(capacity), to_client(capacity) {}

  channel to_server;
  channel to_client;
};

class client_end final : public file_object {
 public:
  explicit client_end(std::shared_ptr<connection> connection,
                      std::shared_ptr<std::atomic<bool>> gone)
      : connection_(std::move(connection)), gone_(std::move(gone)) {}

  void read(request_ptr call) override { connection_->to_client.read(std::move(call)); }
  void write(request_ptr call) override { connection_->to_server.write(std::move(call)); }
  void connect(request_ptr call) override { call->complete(ERROR_INVALID_HANDLE, 0); }
  bool cancel(const OVERLAPPED* overlapped) override {
    return connection_->to_client.cancel(overlapped) || connection_->to_server.cancel(overlapped);
  }
  void on_close() override {
    *gone_ = true;
    connection_->to_server.end_writing();
    connection_->to_client.end_reading();
  }

 private:
  const std::shared_ptr<connection> connection_;
  const std::shared_ptr<std::atomic<bool>> gone_;
};

// The server end: one instance of a named pipe, which clients come to one after another.
class server_end final : public file_object {
 public:
  server_end(std::wstring name, std::size_t most, std::size_t capacity)
      : name(std::move(name)), most_instances(most), capacity_(capacity) {}

  void read(request_ptr call) override {
    if (const auto current = connected())
      return current->to_server.read(std::move(call));
    call->complete(ERROR_PIPE_LISTENING, 0);
  }

  void write(request_ptr call) override {
    if (const auto current = connected())
      return current->to_client.write(std::move(call));
    call->complete(ERROR_PIPE_LISTENING, 0);
  }

  void connect(request_ptr call) override {
    const std::lock_guard guard(lock_);
    if (connection_)
      return call->complete(*client_gone_ ? ERROR_NO_DATA : ERROR_PIPE_CONNECTED, 0);
    listens_ = true;
    listener_ = std::move(call);
  }

  bool cancel(const OVERLAPPED* overlapped) override {
    if (const auto current = connected())
      return current->to_server.cancel(overlapped) || current->to_client.cancel(overlapped);
    const std::lock_guard guard(lock_);
    if (!listener_ || listener_->overlapped != overlapped)
      return false;
    std::exchange(listener_, nullptr)->complete(ERROR_OPERATION_ABORTED, 0);
    return true;
  }

  void flush() override {
    if (const auto current = connected())
      current->to_client.wait_until_read();
  }

  void on_close() override {
    const auto current = connected();
    if (current) {
      current->to_client.end_writing();
      current->to_server.end_reading();
    }
    const std::lock_guard guard(lock_);
    listens_ = false;
    if (listener_)
      std::exchange(listener_, nullptr)->complete(ERROR_OPERATION_ABORTED, 0);
  }

  void disconnect() {
    on_close();
    const std::lock_guard guard(lock_);
    if (connection_)
      connection_->to_client.end_reading();
    connection_.reset();
  }

  // Null when no client is waited for.
  std::shared_ptr<client_end> accept() {
    const std::lock_guard guard(lock_);
    if (!std::exchange(listens_, false))
      return nullptr;
    connection_ = std::make_shared<connection>(capacity_);
    client_gone_ = std::make_shared<std::atomic<bool>>(false);
    if (listener_)
      std::exchange(listener_, nullptr)->complete(ERROR_SUCCESS, 0);
    return std::make_shared<client_end>(connection_, client_gone_);
  }

  [[nodiscard]] bool listens() {
    const std::lock_guard guard(lock_);
    return listens_;
  }

  const std::wstring name;
  const std::size_t most_instances;

 private:
  std::shared_ptr<connection> connected() {
    const std::lock_guard guard(lock_);
    return connection_;
  }

  const std::size_t capacity_;

  // Guarded by lock_.
  std::mutex lock_;
  bool listens_ = true;
  request_ptr listener_;
  std::shared_ptr<connection> connection_;
  std::shared_ptr<std::atomic<bool>> client_gone_;
};

// The instances of all pipes.
class directory {
 public:
  static directory& instance() {
    static directory& pipes = *new directory;
    return pipes;
  }

  // Null when the pipe has all its instances.
  std::shared_ptr<server_end> create(const std::wstring& name, std::size_t most, std::size_t size) {
    const std::lock_guard guard(lock_);
    const auto present = named(name);
    if (!present.empty() && present.size() >= present.front()->most_instances)
      return nullptr;
    auto created = std::make_shared<server_end>(name, most, size);
    instances_.push_back(created);
    return created;
  }

  std::vector<std::shared_ptr<server_end>> find(const std::wstring& name) {
    const std::lock_guard guard(lock_);
    return named(name);
  }

 private:
  std::vector<std::shared_ptr<server_end>> named(const std::wstring& name) {
    std::erase_if(instances_, [](const auto& instance) { return instance.expired(); });
    std::vector<std::shared_ptr<server_end>> found;
    for (const auto& weak : instances_) {
      if (auto instance = weak.lock(); instance && instance->name == name)
        found.push_back(std::move(instance));
    }
    return found;
  }

  std::mutex lock_;
  std::vector<std::weak_ptr<server_end>> instances_;  // guarded by lock_
};

HANDLE open(std::shared_ptr<file_object> file, DWORD flags) {
  file->overlapped = (flags & FILE_FLAG_OVERLAPPED) != 0;
  return make_handle(std::move(file));
}

HANDLE refuse(DWORD error) {
  SetLastError(error);
  return INVALID_HANDLE_VALUE;
}

}  // namespace
}  // namespace stand_in

using stand_in::directory;
using stand_in::server_end;

HANDLE CreateFileW(const wchar_t* name, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD disposition,
                   DWORD flags, HANDLE) {
  if (disposition == CREATE_ALWAYS)
    return stand_in::open(stand_in::make_temporary_file(), flags);
  const auto instances = directory::instance().find(name);
  for (const auto& instance : instances) {
    if (const auto client = instance->accept())
      return stand_in::open(client, flags);
  }
  return stand_in::refuse(instances.empty() ? ERROR_FILE_NOT_FOUND : ERROR_PIPE_BUSY);
}

HANDLE CreateNamedPipeW(const wchar_t* name, DWORD open_mode, DWORD, DWORD instances,
                        DWORD output_size, DWORD, DWORD, SECURITY_ATTRIBUTES*) {
  const auto created = directory::instance().create(name, instances, output_size);
  return created ? stand_in::open(created, open_mode) : stand_in::refuse(ERROR_PIPE_BUSY);
}

BOOL DisconnectNamedPipe(HANDLE pipe) {
  const auto end = stand_in::object_of<server_end>(pipe);
  if (end)
    end->disconnect();
  return end != nullptr;
}

BOOL WaitNamedPipeW(const wchar_t* name, DWORD milliseconds) {
  const auto instances = directory::instance().find(name);
  if (instances.empty()) {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return FALSE;
  }
  const auto end = stand_in::clock::now() + std::chrono::milliseconds(milliseconds);
  while (std::ranges::none_of(instances, [](const auto& each) { return each->listens(); })) {
    if (stand_in::clock::now() >= end) {
      SetLastError(ERROR_SEM_TIMEOUT);
      return FALSE;
    }
    Sleep(1);
  }
  return TRUE;
}

BOOL SetNamedPipeHandleState(HANDLE, DWORD*, DWORD*, DWORD*) {
  return TRUE;
}
