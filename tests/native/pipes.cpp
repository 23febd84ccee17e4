// Named pipes within this process.
#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

#include "channel.h"
#include "kernel_objects.h"

namespace stand_in {
namespace {

struct connection {
  explicit connection(std::size_t capacity) : to_server(capacity), to_client(capacity) {}

  channel to_server;
  channel to_client;
  std::atomic<bool> client_gone = false;
};

class client_end final : public file_object {
 public:
  explicit client_end(std::shared_ptr<connection> connection)
      : connection_(std::move(connection)) {}

  void read(request_ptr call) override { connection_->to_client.read(std::move(call)); }
  void write(request_ptr call) override { connection_->to_server.write(std::move(call)); }
  void connect(request_ptr call) override { call->complete(ERROR_INVALID_HANDLE, 0); }
  bool cancel(const OVERLAPPED* overlapped) override {
    return connection_->to_client.cancel(overlapped) || connection_->to_server.cancel(overlapped);
  }
  void on_close() override {
    connection_->client_gone = true;
    connection_->to_server.end_writing();
    connection_->to_client.end_reading();
  }

 private:
  const std::shared_ptr<connection> connection_;
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
      return call->complete(connection_->client_gone ? ERROR_NO_DATA : ERROR_PIPE_CONNECTED, 0);
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

  // The client is thrown off, and the next one is waited for only when that is asked for.
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
    if (listener_)
      std::exchange(listener_, nullptr)->complete(ERROR_SUCCESS, 0);
    return std::make_shared<client_end>(connection_);
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
