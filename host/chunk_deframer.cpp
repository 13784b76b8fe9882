#include "chunk_deframer.h"

#include <algorithm>

namespace NorvaneHost {

namespace {

int HexValue(uint8_t c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

bool ChunkDeframer::Feed(const uint8_t* data, size_t length, const Sink& sink) {
  if (state_ == State::kError) return false;
  size_t pos = 0;
  while (pos < length) {
    uint8_t c = data[pos];
    switch (state_) {
      case State::kSize: {
        int digit = HexValue(c);
        if (digit >= 0) {
          size_ = size_ * 16 + static_cast<uint64_t>(digit);
          if (++sizeDigits_ > 16 || size_ > kMaxChunkSize) return Fail();
          ++pos;
        } else if (sizeDigits_ == 0) {
          return Fail();
        } else if (c == ';' || c == ' ' || c == '\t') {
          state_ = State::kExtension;
          ++pos;
        } else if (c == '\r') {
          state_ = State::kSizeLf;
          ++pos;
        } else {
          return Fail();
        }
        break;
      }
      case State::kExtension:
        if (c == '\r') state_ = State::kSizeLf;
        else if (c == '\n') return Fail();
        ++pos;
        break;
      case State::kSizeLf:
        if (c != '\n') return Fail();
        ++pos;
        remaining_ = size_;
        state_ = size_ == 0 ? State::kTrailerStart : State::kData;
        size_ = 0;
        sizeDigits_ = 0;
        break;
      case State::kData: {
        size_t take = static_cast<size_t>(std::min<uint64_t>(remaining_, length - pos));
        remaining_ -= take;
        if (remaining_ == 0) state_ = State::kDataCr;
        const uint8_t* piece = data + pos;
        pos += take;
        if (!sink(piece, take)) return false;
        break;
      }
      case State::kDataCr:
        if (c != '\r') return Fail();
        state_ = State::kDataLf;
        ++pos;
        break;
      case State::kDataLf:
        if (c != '\n') return Fail();
        state_ = State::kSize;
        ++pos;
        break;
      case State::kTrailerStart:
        if (c == '\r') state_ = State::kFinalLf;
        else if (c == '\n') return Fail();
        else state_ = State::kTrailer;
        ++pos;
        break;
      case State::kTrailer:
        if (c == '\r') state_ = State::kTrailerLf;
        else if (c == '\n') return Fail();
        ++pos;
        break;
      case State::kTrailerLf:
        if (c != '\n') return Fail();
        state_ = State::kTrailerStart;
        ++pos;
        break;
      case State::kFinalLf:
        if (c != '\n') return Fail();
        state_ = State::kDone;
        ++pos;
        break;
      case State::kDone:
        // Bytes after the end of the body would be taken for a second request.
        overran_ = true;
        return Fail();
      case State::kError:
        return false;
    }
  }
  return true;
}

}  // namespace NorvaneHost
