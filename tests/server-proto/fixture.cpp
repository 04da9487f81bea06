#include "server-proto/fixture.h"

#include "server/store/file-content-store.h"
#include "server/store/sqlite-metadata.h"

namespace tolven::test {

struct ServerFixture::Stores {
  explicit Stores(const TempFolder& folder) : contents(folder / "contents") {
    EXPECT_EQ(metadata.Open(folder / "metadata.db"), 0);
    EXPECT_EQ(contents.Open(), 0);
  }
  server::SqliteMetadata metadata;
  server::FileContentStore contents;
};

ServerFixture::ServerFixture() : stores_(std::make_unique<Stores>(folder_)) {
  options.port = 0;
  options.data_dir = ustring(folder_.path());
  token_ = NewSession("ada");
  view_ = NewView("team", 0, false);
}

ServerFixture::~ServerFixture() { Stop(); }

void ServerFixture::Start() {
  std::promise<int> ready;
  stop_ = false;
  options.stop = &stop_;
  options.ready = [&](int port, const std::string& fingerprint) {
    fingerprint_ = fingerprint;
    ready.set_value(port);
  };
  thread_ = std::thread(
      [this] { EXPECT_EQ(server::Serve(options, stores_->metadata, stores_->contents), 0); });
  port_ = ready.get_future().get();
}

void ServerFixture::Stop() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
}

std::string ServerFixture::NewSession(const std::string& name) {
  server::User user;
  if (stores_->metadata.FindUser(name, user) == 0) {
    user.name = name;
    user.uid = name == "ada" ? 1000 : 1001;
    user.groups = {name == "ada" ? 100u : 200u};
    EXPECT_EQ(stores_->metadata.AddUser(user), 0);
  }
  std::string token;
  EXPECT_EQ(stores_->metadata.NewSession(name, token), 0);
  return token;
}

std::uint64_t ServerFixture::NewView(const std::string& name, std::uint64_t quota, bool read_only) {
  server::View view;
  view.name = name;
  view.quota = quota;
  view.read_only = read_only;
  EXPECT_EQ(stores_->metadata.AddView(view), 0);
  return view.id;
}

void ServerFixture::SetAcl(const std::string& path, const std::string& acl) {
  EXPECT_EQ(stores_->metadata.SetAcl(view_, path, acl), server::Outcome::kDone);
}

void ServerFixture::SetProfiles(const std::vector<server::Profile>& profiles) {
  server::User ada;
  ASSERT_EQ(stores_->metadata.FindUser("ada", ada), 1);
  EXPECT_EQ(stores_->metadata.SetProfiles(ada.id, profiles), 0);
}

}  // namespace tolven::test
