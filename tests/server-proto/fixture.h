// A server with one view and its user "ada" (uid 1000, group 100); "bob" (uid 1001, group 200)
// comes when asked for. The stores and the folder stay over a Stop and another Start.
#pragma once

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <future>
#include <random>
#include <set>

#include "lib/utility.h"
#include "rsapi-cpp/delta-file-reader.h"
#include "rsapi-cpp/simple-file-reader.h"
#include "server-proto/driver.h"
#include "server/store/metadata.h"

namespace tolven::test {

inline constexpr std::uint32_t kTime = 1'600'000'001;

inline std::string RandomBytes(std::size_t size) {
  static std::mt19937_64 random(7);
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; i += 8) {
    const std::uint64_t value = random();
    std::memcpy(&bytes[i], &value, std::min<std::size_t>(8, size - i));
  }
  return bytes;
}

class ServerFixture : public testing::Test {
 protected:
  server::ServeOptions options;

  ServerFixture();
  ~ServerFixture() override;

  void Start();
  void Stop();

  int port() const { return port_; }
  const std::string& token() const { return token_; }
  std::uint64_t view() const { return view_; }
  const std::string& fingerprint() const { return fingerprint_; }

  // In the stores, as the administrator's commands do it.
  std::string NewSession(const std::string& user);
  std::uint64_t NewView(const std::string& name, std::uint64_t quota, bool read_only);
  void SetAcl(const std::string& path, const std::string& acl);
  void SetProfiles(const std::vector<server::Profile>& profiles);  // of ada

  RawClient Connected() { return RawClient(port_, NewRequest("connect", token_)); }

  PObject ViewRequest(const char* action, const std::string& path) {
    PObject request = NewRequest(action, token_);
    request["view_id"] = view_;
    request["node_id"] = view_;
    request["path"] = ustring(path);
    return request;
  }
  PObject PullRequest(std::uint64_t since, const std::string& path) {
    PObject request = ViewRequest("pull_event", path);
    request["sync_id"] = since;
    request["recursive"] = true;
    return request;
  }
  PObject Pull(RawClient& client, std::uint64_t since, const std::string& path = "/") {
    return client.Request(6, PullRequest(since, path));
  }
  PObject FolderRequest(const std::string& path, std::uint64_t base) {
    PObject request = ViewRequest("upload", path);
    request["sync_id"] = base;
    request["max_id"] = base;
    request["is_dir"] = true;
    request["mtime"]["refer"] = false;
    request["mtime"]["mtime"] = kTime;
    return request;
  }
  PObject UploadRequest(const std::string& path, const std::string& content,
                        std::uint64_t base = 0) {
    PObject request = FolderRequest(path, base);
    request["is_dir"] = false;
    request["file"]["refer"] = false;
    request["file"]["is_delta"] = false;
    request["file"]["size"] = content.size();
    request["file"]["hash"] = Md4(content);
    request["file"]["data"] = WholeFile(LocalFile(content));
    return request;
  }
  PObject DownloadRequest(const std::string& path, std::uint64_t held, std::uint64_t wanted) {
    PObject request = ViewRequest("download", path);
    request["sync_id"] = held;
    request["max_id"] = held;
    request["target_sync_id"] = wanted;
    request["force_current_version"] = false;
    request["file"]["offset"] = 0;
    request["mtime"]["offset"] = 0;
    return request;
  }
  PObject RemoveRequest(const std::string& path, std::uint64_t version, std::uint64_t max_id) {
    PObject request = ViewRequest("remove", path);
    request["sync_id"] = version;
    request["max_id"] = max_id;
    return request;
  }

  std::uint64_t Put(RawClient& client, const std::string& path, const std::string& content,
                    std::uint64_t base = 0) {
    const PObject answer = client.Request(23, UploadRequest(path, content, base));
    EXPECT_EQ(CodeOf(answer), 0u) << path;
    return answer["sync_id"].asUInt64();
  }
  std::string Fetch(RawClient& client, const std::string& path, std::uint64_t held,
                    std::uint64_t wanted) {
    const PObject answer = client.Request(24, DownloadRequest(path, held, wanted));
    EXPECT_EQ(CodeOf(answer), 0u) << path;
    EXPECT_EQ(answer["mtime"]["mtime"].asUInt32() / 10, kTime / 10);
    const std::string content = ReadFile(answer["file"]["data"].asBinary().path);
    EXPECT_EQ(answer["file"]["hash"].asString(), Md4(content));
    return content;
  }

  ustring LocalFile(const std::string& content) {
    const ustring path = local_ / std::to_string(++files_);
    WriteFile(path, content);
    return path;
  }
  static PObject::binary_type WholeFile(const ustring& path) {
    return {0, std::filesystem::file_size(path.str()), path};
  }
  ustring Md4(const std::string& content) {
    ustring md4;
    SimpleFileReader reader;
    reader.setFile(LocalFile(content));
    reader.setHashString(md4);
    EXPECT_EQ(reader.readFile(), 0);
    return md4;
  }
  ustring DeltaOf(const std::string& basis, const std::string& target) {
    const ustring signature = LocalFile(""), delta = LocalFile("");
    SimpleFileReader signer, reader;
    signer.setFile(LocalFile(basis));
    signer.setSignature(signature, 2048, 8);
    EXPECT_EQ(signer.readFile(), 0);
    reader.setFile(LocalFile(target));
    reader.setDelta(delta, signature);
    EXPECT_EQ(reader.readFile(), 0);
    return delta;
  }
  std::string Patched(const std::string& basis, const ustring& delta) {
    const ustring target = LocalFile("");
    DeltaFileReader reader;
    reader.setFile(LocalFile(basis), delta);
    reader.setNewFile(target);
    EXPECT_EQ(reader.readFile(), 0);
    return ReadFile(target);
  }
  static std::string PathsOf(const PObject& answer) {
    std::string paths;
    for (const PObject& record : answer["event_list"].asArray()) {
      paths += (paths.empty() ? "" : " ") + record["path"].asString().str();
    }
    return paths;
  }
  std::vector<std::string> FilesIn(const std::string& name) {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator((folder_ / name).str())) {
      if (entry.is_regular_file()) files.push_back(Utf8(entry.path().filename()));
    }
    return files;
  }

 private:
  TempFolder folder_, local_;
  struct Stores;
  std::unique_ptr<Stores> stores_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
  int port_ = 0, files_ = 0;
  std::uint64_t view_ = 0;
  std::string token_, fingerprint_;
};

}  // namespace tolven::test
