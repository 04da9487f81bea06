#include "server/protocol/connection-table.h"

#include <system_error>

#include "lib/log.h"
#include "server/protocol/service.h"

namespace tolven::server {

namespace {

constexpr const char* kCategory = "server";

}  // namespace

ConnectionTable::~ConnectionTable() {
  for (Entry& entry : entries_) entry.connection->End();
  for (Entry& entry : entries_) entry.thread.join();
}

void ConnectionTable::Add(platform::NativeSocket socket) {
  if (entries_.size() >= service_.options.max_connections) {
    Logger::LogMsg(Logger::L_WARNING, kCategory,
                   L"[WARNING] server(%d): too many connections, one was closed\n", __LINE__);
    (void)platform::sockets().Close(socket);
    return;
  }
  Entry entry;
  entry.connection = std::make_unique<Connection>(service_, socket);
  try {
    entry.thread = std::thread([connection = entry.connection.get()] { connection->Run(); });
  } catch (const std::system_error&) {
    Logger::LogMsg(Logger::L_ERR, kCategory,
                   L"[ERROR] server(%d): no thread for a connection, it was closed\n", __LINE__);
    return;
  }
  entries_.push_back(std::move(entry));
}

void ConnectionTable::Sweep() {
  for (auto entry = entries_.begin(); entry != entries_.end();) {
    if (entry->connection->IsOver()) {
      entry->thread.join();
      entry = entries_.erase(entry);
      continue;
    }
    entry->connection->EndWithoutLogin();
    ++entry;
  }
}

}  // namespace tolven::server
