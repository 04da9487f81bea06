// The file layer under the delta engine.

#include "rsapi-cpp/xio.h"

#include <gtest/gtest.h>

#include "rsapi-cpp/xio-bio.h"
#include "workbench.h"

namespace tolven::test {
namespace {

TEST(XioTest, WritesAppendInOrderAndReadsEndWithTheFile) {
  const TempFolder folder;
  Random random(7);
  const std::string parts[] = {"small", RandomText(random, 700'000), "last"};
  fd_t fd;
  ASSERT_EQ(fd_open_write(folder / "file", fd), 0);
  fd_aio_t aio;
  EXPECT_EQ(fd_aio_wait(aio), -1) << "nothing under way";
  for (const std::string& part : parts) {
    ASSERT_EQ(fd_aio_write(aio, fd, part.data(), part.size()), 0);
    ASSERT_EQ(fd_aio_wait(aio), static_cast<fd_ssize_t>(part.size()));
  }
  EXPECT_EQ(fd_sync(fd), 0);
  EXPECT_EQ(fd_close(fd), 0);
  EXPECT_EQ(fd_sync(fd), -1);
  EXPECT_EQ(ReadFile(folder / "file"), parts[0] + parts[1] + parts[2]);

  char tail[8];
  std::uint64_t size = 0;
  ASSERT_EQ(fd_open_read(folder / "file", fd), 0);
  ASSERT_EQ(fd_stat(fd, size), 0);
  EXPECT_EQ(size, 700'009u);
  ASSERT_EQ(fd_seek(fd, size - 4), 0);
  EXPECT_EQ(fd_read(fd, tail, sizeof tail), 4);
  EXPECT_EQ(fd_read(fd, tail, sizeof tail), 0);
  fd_close(fd);
  EXPECT_EQ(fd_open_read(folder / "none", fd), -1);
  EXPECT_NE(fd_error(), 0);
}

TEST(XioTest, ABufferWrapsAndABufferedFileKeepsTheOrder) {
  EXPECT_EQ(buffer_t(0).capacity, 8192u);
  buffer_t ring(8);
  char out[16] = {};
  EXPECT_EQ(buffer_copy_in(ring, "abcdef", 6), 6u);
  EXPECT_EQ(buffer_copy_out(ring, out, 4), 4u);
  EXPECT_EQ(buffer_copy_in(ring, "ghijklmn", 8), 6u);
  EXPECT_TRUE(buffer_is_full(ring));
  ASSERT_EQ(buffer_resize(ring, 12), 0);
  EXPECT_EQ(buffer_left(ring), 4u);
  EXPECT_EQ(buffer_copy_out(ring, out, 16), 8u);
  EXPECT_EQ(std::string(out, 8), "efghijkl");
  EXPECT_EQ(ring.head, 0u);

  const TempFolder folder;
  Random random(8);
  const std::string text = RandomText(random, 5000);
  fd_t fd;
  fd_bio_t bio;
  ASSERT_EQ(fd_open_write(folder / "file", fd), 0);
  ASSERT_EQ(fd_bio_load(bio, fd, 64), 0);
  for (std::size_t at = 0, size = 0; at < text.size(); at += size) {
    size = std::min<std::size_t>(text.size() - at, random() % 150);
    ASSERT_EQ(fd_bio_write(bio, text.data() + at, size), 0);
  }
  ASSERT_EQ(fd_bio_flush(bio), 0);
  fd_close(fd);
  EXPECT_EQ(ReadFile(folder / "file"), text);

  ASSERT_EQ(fd_open_read(folder / "file", fd), 0);
  ASSERT_EQ(fd_bio_load(bio, fd, 64), 0);
  std::string read;
  while (read.size() < text.size()) {
    std::string part(std::min<std::size_t>(text.size() - read.size(), random() % 150), '\0');
    ASSERT_EQ(fd_bio_read(bio, part.data(), part.size()), 0);
    read += part;
  }
  EXPECT_EQ(read, text);
  EXPECT_EQ(fd_bio_read(bio, out, 1), -1);
  fd_close(fd);
}

}  // namespace
}  // namespace tolven::test
