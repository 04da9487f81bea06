#include "server/admin/commands.h"

#include <json/json.h>

#include <algorithm>
#include <iostream>
#include <set>

#include "acl/acl-rule.h"
#include "lib/file-op.h"
#include "lib/profile.h"
#include "server/store/sha256.h"

namespace tolven::server {

namespace {

int Fail(const std::string& text) {
  std::cerr << "tolven-server: " << text << "\n";
  return 1;
}

void PrintJson(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  std::cout << Json::writeString(builder, value) << "\n";
}

Json::Value ToJson(const Node& node) {
  Json::Value value;
  value["path"] = node.path;
  value["number"] = Json::UInt64(node.sync_id);
  value["kind"] = node.is_dir ? "dir" : "file";
  value["removed"] = node.is_removed;
  value["mtime"] = node.mtime;
  if (!node.is_dir && !node.is_removed) {
    value["size"] = Json::UInt64(node.content.size);
    value["md4"] = node.content.md4;
  }
  if (!node.acl.empty()) value["acl"] = node.acl;
  return value;
}

std::string ToLine(const Node& node) {
  std::string line = std::to_string(node.sync_id) + "\t";
  line += node.is_removed ? "removed" : node.is_dir ? "dir" : std::to_string(node.content.size);
  return line + "\t" + node.path + (node.acl.empty() ? "" : "\t[access list]");
}

// Absolute, with "/" in front and none behind.
std::string PlainPath(std::string path) {
  if (!path.starts_with('/')) path.insert(path.begin(), '/');
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

bool MakeAcl(const std::vector<AclGrant>& grants, std::string& text) {
  using namespace ACL_API;
  ACLRule rule;
  for (const AclGrant& grant : grants) {
    ACLRule::Entry entry;
    entry.type = static_cast<ZENT_ACL_ID_TYPE>(grant.type);
    entry.id = grant.id;
    entry.inherit = ZENTSDK_ACL_INHERIT_FILE | ZENTSDK_ACL_INHERIT_DIR;
    entry.is_allow = grant.rights != "none";
    if (grant.rights == "rw" || grant.rights == "none") {
      entry.perm = ZENTSDK_SHARE_RW;
    } else if (grant.rights == "r") {
      entry.perm = ZENTSDK_SHARE_RO;
    } else {
      return false;
    }
    rule.addACE(entry);
  }
  text = rule.get();
  return true;
}

}  // namespace

bool Commands::FindView(const std::string& name, View& view) {
  if (data_.metadata().FindViewByName(name, view) == 1) return true;
  Fail("there is no view '" + name + "'");
  return false;
}

int Commands::AddUser(User user) {
  if (data_.metadata().AddUser(user) != 0) {
    return Fail("user '" + user.name + "' was not added; is the name taken?");
  }
  if (json_) {
    Json::Value value;
    value["id"] = Json::UInt64(user.id);
    value["name"] = user.name;
    value["uid"] = user.uid;
    PrintJson(value);
  } else {
    std::cout << "user " << user.name << " added, its uid is " << user.uid << '\n';
  }
  return 0;
}

int Commands::NewSession(const std::string& user) {
  std::string token;
  if (data_.metadata().NewSession(user, token) != 0) return Fail("there is no user '" + user + "'");
  if (json_) {
    Json::Value value;
    value["token"] = token;
    PrintJson(value);
  } else {
    std::cout << token << "\n";
  }
  return 0;
}

int Commands::AddView(View view) {
  if (data_.metadata().AddView(view) != 0) {
    return Fail("view '" + view.name + "' was not added; is the name taken?");
  }
  if (json_) {
    Json::Value value;
    value["id"] = Json::UInt64(view.id);
    value["name"] = view.name;
    PrintJson(value);
  } else {
    std::cout << "view " << view.name << " added, its id is " << view.id << "\n";
  }
  return 0;
}

int Commands::Tell(Outcome outcome, const Node& node) {
  if (outcome == Outcome::kNotFound) return Fail("there is no such object or version");
  if (outcome == Outcome::kConflict) return Fail("a folder has that name now");
  if (outcome == Outcome::kQuota) return Fail("the view's quota is used up");
  if (outcome != Outcome::kDone) return Fail("the change was not made");
  if (json_) {
    PrintJson(ToJson(node));
  } else {
    std::cout << ToLine(node) << "\n";
  }
  return 0;
}

int Commands::SetAcl(const std::string& view_name, const std::string& path,
                     const std::vector<AclGrant>& grants) {
  View view;
  if (!FindView(view_name, view)) return 1;
  std::string text;
  if (!MakeAcl(grants, text)) return Fail("rights are rw, r or none");
  const std::string plain = PlainPath(path);
  const Outcome outcome = data_.metadata().SetAcl(view.id, plain, text);
  Node node;
  if (outcome == Outcome::kDone) data_.metadata().FindNode(view.id, plain, node);
  return Tell(outcome, node);
}

int Commands::SetProfiles(const std::string& user_name, const std::vector<std::string>& files) {
  User user;
  if (data_.metadata().FindUser(user_name, user) != 1) {
    return Fail("there is no user '" + user_name + "'");
  }
  const ustring folder = data_.ProfileFolder(user_name);
  if (FSMKDir(folder, true) != 0) return Fail("the folder for profiles cannot be made");
  std::vector<Profile> profiles;
  for (const std::string& file : files) {
    Profile& profile = profiles.emplace_back();
    profile.name = file.substr(file.rfind('/') + 1);
    profile.file = folder + "/" + ustring(profile.name);
    if (FSCopy(ustring(file), profile.file, false) != 0) {
      return Fail("'" + file + "' cannot be copied");
    }
    tolven::Profile loaded;
    loaded.LoadFromFile(profile.file);
    profile.md5 = loaded.GetMd5().str();
  }
  if (data_.metadata().SetProfiles(user.id, profiles) != 0) return Fail("nothing was changed");
  if (!json_) std::cout << profiles.size() << " profiles of " << user_name << "\n";
  return 0;
}

void Commands::PrintNodes(const std::vector<Node>& nodes) {
  if (json_) {
    Json::Value list(Json::arrayValue);
    for (const Node& node : nodes) list.append(ToJson(node));
    PrintJson(list);
    return;
  }
  for (const Node& node : nodes) std::cout << ToLine(node) << "\n";
}

int Commands::List(const std::string& view_name, const std::string& path) {
  if (!view_name.empty()) {
    View view;
    if (!FindView(view_name, view)) return 1;
    std::vector<Node> nodes;
    if (data_.metadata().ListChanges(view.id, PlainPath(path), 0, SIZE_MAX >> 1, nodes) != 0) {
      return Fail("the view cannot be read");
    }
    std::erase_if(nodes, [](const Node& node) { return node.is_removed; });
    std::sort(nodes.begin(), nodes.end(),
              [](const Node& a, const Node& b) { return a.path < b.path; });
    PrintNodes(nodes);
    return 0;
  }
  std::vector<User> users;
  std::vector<View> views;
  if (data_.metadata().ListUsers(users) != 0 || data_.metadata().ListViews(views) != 0) {
    return Fail("the metadata cannot be read");
  }
  if (!json_) {
    for (const User& user : users) {
      std::cout << "user\t" << user.name << "\tuid " << user.uid
                << (user.is_admin ? "\tadministrator" : "") << "\n";
    }
    for (const View& view : views) {
      std::uint64_t used = 0;
      data_.metadata().UsedBytes(view.id, "/", used);
      std::cout << "view\t" << view.name << "\tid " << view.id << "\t" << used << " bytes"
                << (view.read_only ? "\tread-only" : "") << "\n";
    }
    return 0;
  }
  Json::Value value;
  value["users"] = Json::Value(Json::arrayValue);
  value["views"] = Json::Value(Json::arrayValue);
  for (const User& user : users) {
    Json::Value one;
    one["id"] = Json::UInt64(user.id);
    one["name"] = user.name;
    one["uid"] = user.uid;
    one["admin"] = user.is_admin;
    value["users"].append(one);
  }
  for (const View& view : views) {
    Json::Value one;
    one["id"] = Json::UInt64(view.id);
    one["name"] = view.name;
    one["quota"] = Json::UInt64(view.quota);
    one["read_only"] = view.read_only;
    value["views"].append(one);
  }
  PrintJson(value);
  return 0;
}

int Commands::Log(const std::string& view_name, const std::string& path) {
  View view;
  if (!FindView(view_name, view)) return 1;
  std::vector<Node> nodes;
  const int failed = path.empty()
                         ? data_.metadata().ListChanges(view.id, "/", 0, SIZE_MAX >> 1, nodes)
                         : data_.metadata().ListVersions(view.id, PlainPath(path), nodes);
  if (failed != 0) return Fail("the view cannot be read");
  PrintNodes(nodes);
  return 0;
}

int Commands::Restore(const std::string& view_name, const std::string& path,
                      std::uint64_t version) {
  View view;
  if (!FindView(view_name, view)) return 1;
  Node made;
  const Outcome outcome = data_.metadata().Restore(view.id, PlainPath(path), version, made);
  return Tell(outcome, made);
}

// 1, 0 for wrong or missing bytes, -1.
int Commands::IsSound(const Content& content) {
  std::string bytes;
  const int found = data_.metadata().FindBytes(content.sha256, bytes);
  if (found != 1) return found < 0 ? -1 : data_.contents().Verify(content);
  Sha256 sum;
  sum.Update(bytes.data(), bytes.size());
  return sum.Finish() == content.sha256 && bytes.size() == content.size ? 1 : 0;
}

int Commands::Check(bool sweep) {
  if (sweep && !data_.Claim()) return Fail("contents are removed only while nobody serves them");
  std::vector<std::string> problems;
  if (data_.metadata().Check(problems) != 0) return Fail("the metadata cannot be read");
  std::set<std::string> known;
  std::vector<Content> contents;
  if (data_.metadata().ListContents([&](const Content& content) {
        known.insert(content.sha256);
        contents.push_back(content);
      }) != 0) {
    return Fail("the metadata cannot be read");
  }
  for (const Content& content : contents) {
    const int sound = IsSound(content);
    if (sound != 1) {
      problems.push_back((sound == 0 ? "wrong or missing content: " : "unreadable content: ") +
                         content.sha256);
    }
  }
  std::vector<std::string> unused;
  data_.contents().List([&](const std::string& sha256) {
    if (!known.contains(sha256)) unused.push_back(sha256);
  });
  std::uint64_t unused_small = 0;
  if (data_.metadata().ListUnusedBytes(sweep, unused_small) != 0) {
    return Fail("the metadata cannot be read");
  }
  if (sweep) {
    for (const std::string& sha256 : unused) FSRemove(data_.contents().PathOf(sha256), false);
  }
  if (json_) {
    Json::Value value;
    value["contents"] = Json::UInt64(contents.size());
    value["unused"] = Json::UInt64(unused.size() + unused_small);
    value["problems"] = Json::Value(Json::arrayValue);
    for (const std::string& problem : problems) value["problems"].append(problem);
    PrintJson(value);
  } else {
    for (const std::string& problem : problems) std::cout << problem << "\n";
    std::cout << contents.size() << " contents, " << unused.size() + unused_small << " unused"
              << (sweep ? " and removed" : "") << ", " << problems.size() << " problems\n";
  }
  return problems.empty() ? 0 : 1;
}

}  // namespace tolven::server
