#include "client/core/event-context.h"

#include "client/core/file.h"
#include "client/core/protocol-client.h"
#include "event-gen/session-fixture.h"
#include "support/memory-channel.h"

namespace tolven {
namespace {

class EventContextTest : public test::SessionTest {};

TEST_F(EventContextTest, FollowsItsEvent) {
  Row("/d/f", 5);
  entry_.config_path = "/conf";
  EventContext context;
  Event event;
  event.m_type = Event::EV_MODIFY;
  event.m_path = "/";
  context.SetEvent(event);
  context.SetEntry(entry_);
  context.Update();
  EXPECT_EQ(context.GetFullPath(), entry_.local_path);
  EXPECT_EQ(context.GetSignatureDirectory(), "/conf/db/sign");
  EXPECT_EQ(context.GetRecycleBinDir(),
            entry_.local_path + "/.ZentrovaWorkingDirectory/#ZentRecycle");

  context.GetEvent().m_path = "/d/f";
  context.Update();
  EXPECT_EQ(context.GetFullPath(), entry_.local_path + "/d/f");
  EXPECT_EQ(context.GetDatabaseInfo().syncID, 5u);
  DBFileInfo info = context.GetDatabaseInfo();
  info.syncID = 6;
  EXPECT_EQ(context.UpdateDatabaseInfo(info), 0);
  EXPECT_EQ(context.GetDatabaseInfo().syncID, 6u);
  EXPECT_EQ(context.CommitRemoveDatabase(), 0);
  EXPECT_EQ(context.GetDatabaseInfo().isExist, 0);
  EXPECT_EQ(entry_.event_db->getEventInfo("/d/f", info), 0);

  EXPECT_TRUE(context.IsRecordKnown());
  entry_.event_db->destroy();
  context.Update();
  EXPECT_FALSE(context.IsRecordKnown());

  const long users = entry_.event_db.use_count();
  context.Clear();
  EXPECT_EQ(entry_.event_db.use_count(), users - 1);
  EXPECT_FALSE(context.GetEvent().isValid());
  std::uint64_t sync_id = 0;
  EXPECT_EQ(context.GetEventDatabaseSafe().getSyncId(sync_id), -1);
  EXPECT_EQ(context.UpdateDatabaseInfo(info), -1);
  EXPECT_EQ(context.RemoveLocalDatabaseInfo(), -1);
}

// Looks at the context whenever the stream reads.
class WatchedChannel : public test::MemoryChannel {
 public:
  WatchedChannel(std::string_view input, const EventContext& context)
      : MemoryChannel(input), context_(context) {}
  int Read(char* data, std::size_t size) override {
    const TransferStatus status = context_.GetTransferStatus();
    if (status.GetStatus() == TransferStatus::STATUS_TRANSFER) seen_total = status.GetTotalSize();
    if (status.GetStatus() == TransferStatus::STATUS_NONE && status.GetTotalSize() != 0) ++wrong;
    return MemoryChannel::Read(data, size);
  }
  using MemoryChannel::Read;

  std::uint64_t seen_total = 0;
  int wrong = 0;

 private:
  const EventContext& context_;
};

TEST_F(EventContextTest, OnlyContentsOfFilesAreTransfers) {
  for (const std::string key : {"data", "sign"}) {
    // {"file": {key: ten bytes of content}}
    const std::string wire = std::string("\x42\x10\0\4file\x42\x10\0\4", 12) + key +
                             std::string("\x30\0\0\0\0\0\0\0\n", 9) + "0123456789\x40\x40";
    EventContext context;
    WatchedChannel in(wire, context);
    context.GetStream().SetDefaultRecvLocation(entry_.local_path);
    PObject received;
    ASSERT_EQ(context.GetStream().Recv(in, received), 0);
    EXPECT_EQ(in.seen_total, key == "data" ? 10u : 0u);
    EXPECT_EQ(in.wrong, 0);
  }
}

TEST_F(EventContextTest, FilesAreLookedAtAgain) {
  File nothing("", true);
  EXPECT_FALSE(nothing.Stat());
  EXPECT_FALSE(nothing.Exists());
  File file = File::CreateTempFile(entry_.local_path);
  ASSERT_TRUE(file.IsFile());
  EXPECT_TRUE(file.SetLastModifiedTime(1'000'000));
  EXPECT_EQ(file.GetLastModifiedTime(), 1'000'000u);
  EXPECT_TRUE(file.Rename(entry_.local_path + "/moved"));
  EXPECT_EQ(file.GetName(), "moved");
  EXPECT_TRUE(file.CanReadAndWrite() && file.Delete());
  EXPECT_FALSE(file.Exists());
  EXPECT_TRUE(file.CanRead() && file.CanWrite());
  EXPECT_TRUE(file.MakeDir() && file.IsDirectory());
  EXPECT_TRUE(File::CreateTempFilePath(folder_ / "none").empty());
}

}  // namespace
}  // namespace tolven
