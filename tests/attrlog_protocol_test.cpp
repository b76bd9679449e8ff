// The attribute-log frames: what the writer makes, the decoder reads back,
// and what the decoder refuses before it allocates anything.

#include <gtest/gtest.h>

#include <string>

#include "Zet/attrlog/AttrLogProtocol.h"

namespace Zet::NboAttrLog {
namespace {

std::vector<Message> decodeAll(std::string const& bytes) {
  std::vector<Message> out;
  std::string_view rest(bytes);
  std::string error;
  Message m;
  size_t used;
  while (decodeFrame(rest, m, used, error) == Decoded::frame) {
    out.push_back(m);
    rest.remove_prefix(used);
  }
  EXPECT_TRUE(rest.empty()) << error;
  return out;
}

TEST(AttrLogProtocol, EveryKindReadsBackAsWritten) {
  std::string bytes;
  FrameWriter w(bytes);
  w.hello();
  w.refused("no");
  w.subscribe(7, "/a/b");
  w.unsubscribe(7);
  w.notFound(8);
  w.entityOpen(1, 2, 0, "name", "Test::Gauge");
  w.attribute(0x102, "42");
  w.attribute(0x103, std::string("with\0nul", 8));
  w.close();
  w.updateOpen(1, 2);
  w.close();
  w.remove(1, 2);
  w.snapshotEnd(1);

  auto m = decodeAll(bytes);
  ASSERT_EQ(m.size(), 9u);
  EXPECT_EQ(m[0].kind, Kind::hello);
  EXPECT_EQ(m[0].version, kProtocolVersion);
  EXPECT_EQ(m[1].name, "no");
  EXPECT_EQ(m[2].subscription, 7u);
  EXPECT_EQ(m[2].name, "/a/b");
  EXPECT_EQ(m[3].kind, Kind::unsubscribe);
  EXPECT_EQ(m[4].subscription, 8u);
  EXPECT_EQ(m[5].id, 2u);
  EXPECT_EQ(m[5].parent, 0u);
  EXPECT_EQ(m[5].type, "Test::Gauge");
  ASSERT_EQ(m[5].attributes.size(), 2u);
  EXPECT_EQ(m[5].attributes[1].id, 0x103u);
  EXPECT_EQ(m[5].attributes[1].text, std::string_view("with\0nul", 8));
  EXPECT_TRUE(m[6].attributes.empty());
  EXPECT_EQ(m[7].kind, Kind::remove);
  EXPECT_EQ(m[8].kind, Kind::snapshotEnd);
}

TEST(AttrLogProtocol, PartialFramesWaitAndBadOnesAreRefused) {
  std::string frame;
  FrameWriter w(frame);
  w.entityOpen(1, 2, 1, "n", "t");
  w.attribute(0x102, "v");
  w.close();
  Message m;
  size_t used = 0;
  std::string error;
  for (size_t cut = 0; cut < frame.size(); ++cut)
    EXPECT_EQ(decodeFrame(std::string_view(frame).substr(0, cut), m, used, error), Decoded::needMore) << cut;

  auto refused = [&](std::string bytes, std::string const& why) {
    EXPECT_EQ(decodeFrame(bytes, m, used, error), Decoded::malformed) << why;
  };
  refused(std::string("\0\0\0\0", 4), "empty frame");
  refused(std::string("\0\x10\0\x01", 4), "larger than the bound, refused before it all came");
  refused(std::string("\0\0\0\x01\x0a", 5), "unknown kind");
  refused(std::string("\0\0\0\x07\x01ZATX\0\x01", 11), "wrong magic");
  refused(std::string("\0\0\0\x0d\x07\0\0\0\x01\0\0\0\x02\xff\xff\xff\xff", 17), "more attributes than bytes");
  refused(std::string("\0\0\0\x09\x03\0\0\0\x01\0\0\x10\0", 13), "text longer than its frame");
  refused(std::string("\0\0\0\x06\x05\0\0\0\x01\x00", 10), "junk after the body");
  EXPECT_FALSE(error.empty());
}

TEST(AttrLogProtocol, AnAttributeTooLargeForAFrameIsLeftOut) {
  std::string bytes;
  FrameWriter w(bytes);
  w.updateOpen(1, 1);
  w.attribute(0x102, std::string(kMaxFrameBytes, 'x'));
  w.attribute(0x103, "kept");
  w.close();
  EXPECT_EQ(w.droppedAttributes(), 1u);
  auto m = decodeAll(bytes);
  ASSERT_EQ(m.size(), 1u);
  ASSERT_EQ(m[0].attributes.size(), 1u);
  EXPECT_EQ(m[0].attributes[0].text, "kept");
}

}  // namespace
}  // namespace Zet::NboAttrLog
