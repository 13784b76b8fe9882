// IPP requests through the host transport to a real IPP printer (ippeveprinter):
// a hand-encoded Get-Printer-Attributes, and a 256 MiB Print-Job streamed in
// library-framed chunks with the process's memory staying small.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "../bench_env.h"
#include "host_test_util.h"

namespace NorvaneHostTest {
namespace {

using namespace NorvaneBench;

// Minimal IPP/2.0 request encoding, enough to talk to the printer.
class IppMessage {
 public:
  IppMessage(uint16_t operation, uint32_t requestId) {
    bytes_ = {0x02, 0x00, static_cast<char>(operation >> 8), static_cast<char>(operation & 0xFF),
              static_cast<char>(requestId >> 24), static_cast<char>(requestId >> 16),
              static_cast<char>(requestId >> 8), static_cast<char>(requestId)};
    bytes_.push_back(0x01);  // operation-attributes-tag
  }
  IppMessage& Add(uint8_t tag, const std::string& name, const std::string& value) {
    bytes_.push_back(static_cast<char>(tag));
    Short(name.size());
    bytes_ += name;
    Short(value.size());
    bytes_ += value;
    return *this;
  }
  std::string End() { return bytes_ + '\x03'; }

 private:
  void Short(size_t n) {
    bytes_.push_back(static_cast<char>(n >> 8));
    bytes_.push_back(static_cast<char>(n & 0xFF));
  }
  std::string bytes_;
};

uint16_t StatusOf(const std::string& body) {
  return body.size() < 8 ? 0xFFFF : static_cast<uint16_t>((static_cast<uint8_t>(body[2]) << 8) | static_cast<uint8_t>(body[3]));
}

// Peak resident memory of this process, from the kernel.
size_t PeakResidentKiB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stoul(line.substr(6));
  }
  return 0;
}

class HostIppPeer : public ::testing::Test {
 protected:
  void SetUp() override {
    NORVANE_REQUIRE_BENCH();
    address_ = CreateNetAddress(Wide(BenchValue("NORVANE_PRINTER_HOST", "127.0.0.1")).c_str());
    ASSERT_NE(nullptr, address_);
    // As the library does for a printer URI naming its port.
    address_->SetPortText(Wide(BenchValue("NORVANE_IPP_PORT", "631")).c_str());
    address_->SetSecure(false);
  }
  void TearDown() override {
    if (address_ != nullptr) address_->Dispose();
  }

  IppMessage Operation(uint16_t operation) {
    IppMessage message(operation, 100);
    message.Add(0x47, "attributes-charset", "utf-8")
        .Add(0x48, "attributes-natural-language", "en")
        .Add(0x45, "printer-uri", printerUri_);
    return message;
  }

  Norvane::QxNetAddress* address_ = nullptr;
  std::string printerUri_ = BenchValue("NORVANE_IPP_URI", "ipp://127.0.0.1:631/ipp/print");
};

TEST_F(HostIppPeer, PrintJobOf256MiBStreamsInBoundedMemory) {
  constexpr size_t kChunk = 64 * 1024;
  constexpr size_t kDocument = 256u << 20;
  Ref<Norvane::HTTPRequest> holder;
  ASSERT_EQ(S_OK, address_->CreateRequestEx(holder.Out(), 631));
  auto* stream = dynamic_cast<Norvane::QxHTTPRequestEx*>(holder.get());
  ASSERT_NE(nullptr, stream);
  stream->SetMethod(u"POST");
  stream->SetResource(u"/ipp/print");
  stream->SetContentType(u"application/ipp");
  stream->AddHeader(u"Transfer-Encoding", u"chunked");
  stream->AddHeader(u"Content-Type", u"application/ipp");
  stream->SetSecurityFlags(0x803100);
  ASSERT_EQ(S_OK, stream->Open(7));

  // First chunk: the request and the first piece of the document.
  std::string header = Operation(0x0002)
                           .Add(0x42, "requesting-user-name", "norvane")
                           .Add(0x42, "job-name", "host-stream-256")
                           .Add(0x49, "document-format", "image/pwg-raster")
                           .End();
  std::string piece = Pattern(kChunk, 3);
  std::memcpy(piece.data(), "RaS2", 4);
  const std::string first = Frame(header + piece);
  ASSERT_EQ(S_OK, stream->WriteChunk(Bytes(first), static_cast<uint32_t>(first.size()), 7));
  // The rest: one 64 KiB buffer framed once and written again and again, as
  // the library reuses its document buffer.
  std::memcpy(piece.data(), "\0\0\0\0", 4);
  const std::string framed = Frame(piece);
  auto start = std::chrono::steady_clock::now();
  for (size_t sent = kChunk; sent < kDocument; sent += kChunk) {
    ASSERT_EQ(S_OK, stream->WriteChunk(Bytes(framed), static_cast<uint32_t>(framed.size()), 7)) << sent;
  }
  ASSERT_EQ(S_OK, stream->WriteChunk(Bytes(kLastChunk), static_cast<uint32_t>(kLastChunk.size()), 7));
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(S_OK, stream->Send(&response));
  double seconds = SecondsSince(start);
  ASSERT_EQ(200u, response->GetStatus());
  std::string answer = BodyOf(response);
  EXPECT_LT(StatusOf(answer), 0x0100) << "IPP status " << std::hex << StatusOf(answer);
  EXPECT_NE(std::string::npos, answer.find("job-id"));
  std::printf("streamed %zu MiB in %.2f s (%.0f MiB/s)\n", kDocument >> 20, seconds,
              (kDocument >> 20) / seconds);

  // The printer kept the whole document.
  uintmax_t largest = 0;
  std::error_code error;
  for (const auto& entry :
       std::filesystem::recursive_directory_iterator(BenchValue("NORVANE_SPOOL_DIR", "/nonexistent"), error)) {
    if (entry.is_regular_file(error)) largest = std::max<uintmax_t>(largest, entry.file_size(error));
  }
  EXPECT_EQ(static_cast<uintmax_t>(kDocument), largest);

  size_t peakKiB = PeakResidentKiB();
  std::printf("peak resident memory %zu KiB\n", peakKiB);
  EXPECT_GT(peakKiB, 0u);
  EXPECT_LT(peakKiB, 64u * 1024);
}

}  // namespace
}  // namespace NorvaneHostTest
