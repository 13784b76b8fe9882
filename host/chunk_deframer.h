// Removes the chunked-transfer framing the library writes around a streamed
// body ("%X\r\n" data "\r\n" ... "0\r\n\r\n"), so that the payload can be
// framed again by the HTTP client on the wire. Incremental: a frame may be split
// across any number of writes, and one write may hold many frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace NorvaneHost {

class ChunkDeframer {
 public:
  // Receives payload pieces, each a span inside the bytes passed to Feed; a
  // false answer stops Feed (which then answers false without marking an error).
  using Sink = std::function<bool(const uint8_t* data, size_t length)>;

  // Largest chunk size accepted: the library frames at most 4 GiB - 1 at a time.
  static constexpr uint64_t kMaxChunkSize = 0xFFFFFFFFu;

  // False when the bytes break the framing (the deframer then stays failed),
  // when they continue past the last chunk, or when the sink stops.
  bool Feed(const uint8_t* data, size_t length, const Sink& sink);

  // The last chunk and the trailer section have been read.
  bool Finished() const { return state_ == State::kDone; }
  bool Failed() const { return state_ == State::kError; }
  // Failed because bytes came after the last chunk, the payload being whole.
  bool Overran() const { return overran_; }

 private:
  enum class State {
    kSize,          // hex digits of the chunk size
    kExtension,     // ";..." after the size, up to CR
    kSizeLf,        // LF ending the size line
    kData,          // payload bytes still to come: remaining_
    kDataCr,        // CR after the payload
    kDataLf,        // LF after the payload
    kTrailerStart,  // start of a trailer line, or CR of the final empty line
    kTrailer,       // inside a trailer field line, up to CR
    kTrailerLf,     // LF ending a trailer field line
    kFinalLf,       // LF of the final empty line
    kDone,
    kError,
  };

  bool Fail() {
    state_ = State::kError;
    return false;
  }

  State state_ = State::kSize;
  uint64_t size_ = 0;
  int sizeDigits_ = 0;
  uint64_t remaining_ = 0;
  bool overran_ = false;
};

}  // namespace NorvaneHost
