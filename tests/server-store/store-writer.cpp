// server_store_writer FOLDER FIRST CALL: uploads to the stores in FOLDER, numbered from FIRST, and
// notes in FOLDER/acknowledged what was answered; ends in the middle of the CALL-th call to the
// disk as a killed process does.
#include <cstdlib>
#include <fstream>
#include <string>

#include "platform/forwarding-files.h"
#include "server/store/file-content-store.h"
#include "server/store/sha256.h"
#include "server/store/sqlite-metadata.h"
#include "support/faulty-vfs.h"
#include "support/temp-folder.h"

int main(int argc, char** argv) {
  using namespace tolven;
  if (argc != 4) return 2;
  const std::string folder = argv[1];
  unsigned long left = std::strtoul(argv[3], nullptr, 10);
  const platform::CallHook die = [&left](const char*) {
    if (--left == 0) std::_Exit(9);
    return platform::Status{};
  };
  platform::ForwardingFiles files(platform::files(), die);
  platform::SetFiles(&files);
  const test::FaultyVfs vfs(die);

  server::SqliteMetadata metadata;
  server::FileContentStore contents(ustring(folder + "/contents"));
  server::View view;
  if (metadata.Open(ustring(folder + "/metadata.sqlite")) != 0 || contents.Open() != 0) return 1;
  if (metadata.FindViewByName("v", view) == 0) {
    view.name = "v";
    if (metadata.AddView(view) != 0) return 1;
  }
  std::ofstream acknowledged(folder + "/acknowledged", std::ios::app);
  for (auto i = std::strtoul(argv[2], nullptr, 10);; ++i) {
    const std::string text = "content " + std::to_string(i);
    const ustring file(folder + "/incoming");
    test::WriteFile(file, text);
    server::Put put;
    server::Node current, made;
    put.path = "/d" + std::to_string(i % 3) + "/f" + std::to_string(i % 7);
    if (metadata.FindNode(view.id, put.path, current) == 1 && !current.is_removed) {
      put.base = current.sync_id;
    }
    if (i % 2 == 0) {
      if (contents.Add(file, "md4 of " + text, put.content) != 0) return 1;
    } else {
      server::Sha256 sum;
      sum.Update(text.data(), text.size());
      put.content = {0, text.size(), "md4 of " + text, sum.Finish()};
      put.bytes = &text;
    }
    if (metadata.PutNode(view.id, put, made) != server::Outcome::kDone) return 1;
    acknowledged << put.path << '\t' << text << std::endl;
    if (i % 11 == 10 &&
        metadata.RemoveNode(view.id, "/d1", 0, UINT64_MAX >> 1, made) == server::Outcome::kDone) {
      acknowledged << "/d1\t" << std::endl;
    }
  }
}
