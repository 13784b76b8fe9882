// Removing the library's chunk framing, whatever the write boundaries.
#include <gtest/gtest.h>

#include <string>

#include "chunk_deframer.h"

namespace NorvaneHost {
namespace {

struct Outcome {
  bool accepted = true;
  bool finished = false;
  std::string payload;
};

// Feeds text in the given pieces and collects the payload.
Outcome Deframe(const std::string& framed, const std::vector<size_t>& cuts = {}) {
  ChunkDeframer deframer;
  Outcome outcome;
  size_t start = 0;
  std::vector<size_t> ends = cuts;
  ends.push_back(framed.size());
  for (size_t end : ends) {
    bool ok = deframer.Feed(reinterpret_cast<const uint8_t*>(framed.data()) + start, end - start,
                            [&](const uint8_t* data, size_t length) {
                              outcome.payload.append(reinterpret_cast<const char*>(data), length);
                              return true;
                            });
    outcome.accepted = outcome.accepted && ok;
    start = end;
  }
  outcome.finished = deframer.Finished();
  return outcome;
}

TEST(ChunkDeframerTest, PayloadSurvivesEverySplitPoint) {
  std::string payload(300, '\0');
  for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>(i * 7);  // includes CR, LF, 0
  // Chunks as the library writes them (upper-case hex, no leading zeros), one
  // with an extension and one with a lower-case size as other writers send.
  const std::string framed = "FF\r\n" + payload.substr(0, 255) + "\r\n" + "a;name=value\r\n" +
                             payload.substr(255, 10) + "\r\n" + "23\r\n" + payload.substr(265) + "\r\n" +
                             "0\r\n\r\n";
  for (size_t cut = 0; cut <= framed.size(); ++cut) {
    Outcome outcome = Deframe(framed, {cut});
    ASSERT_TRUE(outcome.accepted) << "cut at " << cut;
    ASSERT_TRUE(outcome.finished) << "cut at " << cut;
    ASSERT_EQ(payload, outcome.payload) << "cut at " << cut;
  }
  // Byte by byte.
  std::vector<size_t> everyByte;
  for (size_t i = 1; i < framed.size(); ++i) everyByte.push_back(i);
  EXPECT_EQ(payload, Deframe(framed, everyByte).payload);
}

TEST(ChunkDeframerTest, TrailersAndUnfinishedBodies) {
  Outcome trailer = Deframe("3\r\nabc\r\n0\r\nX-Sum: 1\r\n\r\n");
  EXPECT_TRUE(trailer.accepted);
  EXPECT_TRUE(trailer.finished);
  EXPECT_EQ("abc", trailer.payload);

  Outcome open = Deframe("3\r\nabc\r\n");
  EXPECT_TRUE(open.accepted);
  EXPECT_FALSE(open.finished);
  Outcome almost = Deframe("0\r\n\r");
  EXPECT_TRUE(almost.accepted);
  EXPECT_FALSE(almost.finished);
}

TEST(ChunkDeframerTest, MalformedFramingIsRefusedForGood) {
  for (const std::string& bad : {
           std::string("\r\nabc"),               // no size
           std::string("g\r\n"),                 // not hex
           std::string("3\nabc\r\n"),            // bare LF after the size
           std::string("3\r\nabcd\r\n"),         // data longer than announced
           std::string("3\r\nab\r\n\r\n"),       // shorter than announced
           std::string("3\r\nabc\n"),            // LF without CR after data
           std::string("100000000\r\n"),         // beyond 4 GiB - 1
           std::string("00000000000000001\r\n"), // more than 16 digits
           std::string("0\r\n\r\n3\r\nabc\r\n"), // bytes after the last chunk
           std::string("3;ext\nabc\r\n"),        // LF inside an extension
       }) {
    ChunkDeframer deframer;
    bool ok = deframer.Feed(reinterpret_cast<const uint8_t*>(bad.data()), bad.size(),
                            [](const uint8_t*, size_t) { return true; });
    EXPECT_FALSE(ok) << bad;
    EXPECT_TRUE(deframer.Failed()) << bad;
    // Once broken, nothing more is taken.
    const std::string good = "1\r\na\r\n";
    EXPECT_FALSE(deframer.Feed(reinterpret_cast<const uint8_t*>(good.data()), good.size(),
                               [](const uint8_t*, size_t) { return true; }));
  }
  // Largest chunk size still accepted: its size line parses.
  EXPECT_TRUE(Deframe("FFFFFFFF\r\nab").accepted);
}

TEST(ChunkDeframerTest, ASinkThatStopsStopsFeedingWithoutAFramingError) {
  ChunkDeframer deframer;
  const std::string framed = "3\r\nabc\r\n3\r\ndef\r\n";
  int pieces = 0;
  EXPECT_FALSE(deframer.Feed(reinterpret_cast<const uint8_t*>(framed.data()), framed.size(),
                             [&](const uint8_t*, size_t) { return ++pieces < 1; }));
  EXPECT_EQ(1, pieces);
  EXPECT_FALSE(deframer.Failed());
}

}  // namespace
}  // namespace NorvaneHost
