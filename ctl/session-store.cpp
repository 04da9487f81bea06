#include "ctl/session-store.h"

#include <json/json.h>

#include <algorithm>
#include <memory>

#include "ctl/home.h"
#include "platform/files.h"

namespace tolven::ctl {
namespace {

constexpr unsigned kVersion = 1;

Json::Value ToJson(const ConnectionRecord& record) {
  Json::Value value;
  value["id"] = Json::UInt64{record.id};
  value["server"] = record.server.Text();
  value["address"] = record.address;
  value["token"] = record.token;
  value["embedded"] = record.embedded;
  value["tls"] = record.tls;
  value["insecure"] = record.insecure;
  value["ca"] = record.ca_path;
  value["host_name"] = record.host_name;
  value["proxy"] = record.proxy;
  value["tunnel"] = record.tunnel;
  value["major"] = record.major;
  value["minor"] = record.minor;
  value["build"] = record.build;
  return value;
}

Json::Value ToJson(const SessionRecord& record) {
  Json::Value value;
  value["id"] = Json::UInt64{record.id};
  value["connection_id"] = Json::UInt64{record.connection_id};
  value["view_id"] = Json::UInt64{record.view_id};
  value["folder"] = record.folder.str();
  value["remote_path"] = record.remote_path.str();
  value["recursive"] = record.recursive;
  value["read_only"] = record.read_only;
  value["perm_mode"] = record.perm_mode;
  value["paused"] = record.paused;
  value["has_settled"] = record.has_settled;
  return value;
}

// Throws Json::Exception for members of another type.
ConnectionRecord ToConnection(const Json::Value& value) {
  ConnectionRecord record;
  std::string error;
  record.id = value["id"].asUInt64();
  if (!ReadEndpoint(value["server"].asString(), record.server, error)) {
    throw Json::RuntimeError(error);
  }
  record.address = value["address"].asString();
  record.token = value["token"].asString();
  record.embedded = value["embedded"].asBool();
  record.tls = value["tls"].asBool();
  record.insecure = value["insecure"].asBool();
  record.ca_path = value["ca"].asString();
  record.host_name = value["host_name"].asString();
  record.proxy = value["proxy"].asString();
  record.tunnel = value["tunnel"].asString();
  record.major = value["major"].asUInt();
  record.minor = value["minor"].asUInt();
  record.build = value["build"].asUInt();
  return record;
}

SessionRecord ToSession(const Json::Value& value) {
  SessionRecord record;
  record.id = value["id"].asUInt64();
  record.connection_id = value["connection_id"].asUInt64();
  record.view_id = value["view_id"].asUInt64();
  record.folder = value["folder"].asString();
  record.remote_path = value["remote_path"].asString();
  record.recursive = value.get("recursive", true).asBool();
  record.read_only = value["read_only"].asBool();
  record.perm_mode = value.get("perm_mode", "sync-all").asString();
  record.paused = value["paused"].asBool();
  record.has_settled = value["has_settled"].asBool();
  return record;
}

template <class Record>
Record* Find(std::vector<Record>& records, std::uint64_t id) {
  const auto found = std::find_if(records.begin(), records.end(),
                                  [id](const Record& record) { return record.id == id; });
  return found == records.end() ? nullptr : &*found;
}

template <class Record>
std::uint64_t NextId(const std::vector<Record>& records, std::uint64_t stored) {
  std::uint64_t next = std::max<std::uint64_t>(stored, 1);
  for (const Record& record : records) next = std::max(next, record.id + 1);
  return next;
}

}  // namespace

bool SessionStore::Load(std::string& error) {
  connections_.clear();
  sessions_.clear();
  next_connection_ = next_session_ = 1;
  platform::NodeInfo info;
  if (platform::files().Stat(path_, info).is(platform::ErrorKind::kNotFound)) return true;
  std::string text;
  if (!ReadSmallFile(path_, text)) {
    error = "cannot read " + path_.str();
    return false;
  }
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  try {
    Json::Value root;
    std::string reason;
    if (!reader->parse(text.data(), text.data() + text.size(), &root, &reason)) {
      throw Json::RuntimeError("it is no JSON");
    }
    if (root["version"].asUInt() != kVersion) {
      throw Json::RuntimeError("it was written by another version");
    }
    for (const Json::Value& value : root["connections"])
      connections_.push_back(ToConnection(value));
    for (const Json::Value& value : root["sessions"]) sessions_.push_back(ToSession(value));
    next_connection_ = NextId(connections_, root["next_connection_id"].asUInt64());
    next_session_ = NextId(sessions_, root["next_session_id"].asUInt64());
    return true;
  } catch (const Json::Exception& exception) {
    error = "cannot use " + path_.str() + ": " + exception.what();
    return false;
  }
}

bool SessionStore::Save(std::string& error) const {
  Json::Value root;
  root["version"] = kVersion;
  root["next_connection_id"] = Json::UInt64{next_connection_};
  root["next_session_id"] = Json::UInt64{next_session_};
  root["connections"] = Json::Value(Json::arrayValue);
  root["sessions"] = Json::Value(Json::arrayValue);
  for (const ConnectionRecord& record : connections_) root["connections"].append(ToJson(record));
  for (const SessionRecord& record : sessions_) root["sessions"].append(ToJson(record));
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  builder["emitUTF8"] = true;
  return ReplaceFile(path_, Json::writeString(builder, root) + "\n", error, kOwnerAlone);
}

ConnectionRecord& SessionStore::Add(ConnectionRecord connection) {
  connection.id = next_connection_++;
  return connections_.emplace_back(std::move(connection));
}

SessionRecord& SessionStore::Add(SessionRecord session) {
  session.id = next_session_++;
  return sessions_.emplace_back(std::move(session));
}

void SessionStore::RemoveConnection(std::uint64_t id) {
  std::erase_if(connections_, [id](const ConnectionRecord& record) { return record.id == id; });
}

void SessionStore::RemoveSession(std::uint64_t id) {
  std::erase_if(sessions_, [id](const SessionRecord& record) { return record.id == id; });
}

ConnectionRecord* SessionStore::FindConnection(std::uint64_t id) { return Find(connections_, id); }

SessionRecord* SessionStore::FindSession(std::uint64_t id) { return Find(sessions_, id); }

ConnectionRecord* SessionStore::FindEmbedded() {
  const auto found = std::find_if(connections_.begin(), connections_.end(),
                                  [](const ConnectionRecord& record) { return record.embedded; });
  return found == connections_.end() ? nullptr : &*found;
}

}  // namespace tolven::ctl
