// Removing the library's chunk framing, whatever the write boundaries.
#include "chunk_deframer.h"

#include <gtest/gtest.h>

#include <string>

namespace NorvaneHost {
namespace {

const uint8_t* Bytes(const std::string& text) { return reinterpret_cast<const uint8_t*>(text.data()); }

struct Outcome {
  bool accepted = true;
  bool finished = false;
  bool failed = false;
  std::string payload;
};

// Feeds text in pieces ending at the given cuts and collects the payload.
Outcome Deframe(const std::string& framed, std::vector<size_t> cuts = {}) {
  ChunkDeframer deframer;
  Outcome outcome;
  size_t start = 0;
  cuts.push_back(framed.size());
  for (size_t end : cuts) {
    outcome.accepted &= deframer.Feed(Bytes(framed) + start, end - start, [&](const uint8_t* data, size_t length) {
      outcome.payload.append(reinterpret_cast<const char*>(data), length);
      return true;
    });
    start = end;
  }
  outcome.finished = deframer.Finished();
  // Once broken, nothing more is taken.
  outcome.failed =
      deframer.Failed() && !deframer.Feed(Bytes("1\r\na\r\n"), 6, [](const uint8_t*, size_t) { return true; });
  return outcome;
}

TEST(ChunkDeframerTest, PayloadSurvivesEverySplitPoint) {
  std::string payload(300, '\0');
  for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>(i * 7);  // includes CR, LF, 0
  // Chunks as the library writes them (upper-case hex, no leading zeros), one
  // with an extension and one with a lower-case size as other writers send.
  const std::string framed = "FF\r\n" + payload.substr(0, 255) + "\r\n" + "a;name=value\r\n" + payload.substr(255, 10) +
                             "\r\n" + "23\r\n" + payload.substr(265) + "\r\n" + "0\r\n\r\n";
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

TEST(ChunkDeframerTest, EndsTrailersAndMalformedFraming) {
  struct Case {
    std::string framed;
    bool accepted;
    bool finished = false;
    const char* payload = "";
  } const cases[] = {
      {"3\r\nabc\r\n0\r\nX-Sum: 1\r\n\r\n", true, true, "abc"},  // a trailer
      {"3\r\nabc\r\n", true, false, "abc"},
      {"0\r\n\r", true, false, ""},
      {"FFFFFFFF\r\nab", true, false, "ab"},  // largest chunk size still accepted
      {"\r\nabc", false},                     // no size
      {"3\nabc\r\n", false},                  // bare LF after the size
      {"3\r\nabcd\r\n", false},               // data longer than announced
      {"3\r\nabc\n", false},                  // LF without CR after data
      {"100000000\r\n", false},               // beyond 4 GiB - 1
      {"00000000000000001\r\n", false},       // more than 16 digits
      {"0\r\n\r\n3\r\nabc\r\n", false},       // bytes after the last chunk
      {"3;ext\nabc\r\n", false},              // LF inside an extension
  };
  for (const Case& c : cases) {
    Outcome outcome = Deframe(c.framed);
    EXPECT_EQ(c.accepted, outcome.accepted) << c.framed;
    EXPECT_EQ(!c.accepted, outcome.failed) << c.framed;
    if (c.accepted) {
      EXPECT_EQ(c.finished, outcome.finished) << c.framed;
      EXPECT_EQ(c.payload, outcome.payload) << c.framed;
    }
  }
}

TEST(ChunkDeframerTest, ASinkThatStopsStopsFeedingWithoutAFramingError) {
  ChunkDeframer deframer;
  const std::string framed = "3\r\nabc\r\n3\r\ndef\r\n";
  int pieces = 0;
  EXPECT_FALSE(deframer.Feed(Bytes(framed), framed.size(), [&](const uint8_t*, size_t) { return ++pieces < 1; }));
  EXPECT_EQ(1, pieces);
  EXPECT_FALSE(deframer.Failed());
}

}  // namespace
}  // namespace NorvaneHost
