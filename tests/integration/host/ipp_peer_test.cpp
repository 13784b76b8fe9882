// A 256 MiB Print-Job streamed through the host transport to a real IPP printer
// (ippeveprinter) in library-framed chunks, with the process's memory staying small.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <sys/resource.h>

#include "../bench_env.h"
#include "host_test_util.h"

namespace NorvaneHostTest {
namespace {

using namespace NorvaneBench;

// An IPP/2.0 Print-Job, request id 100, with its operation attributes.
std::string PrintJobRequest() {
  std::string bytes("\x02\x00\x00\x02\x00\x00\x00\x64\x01", 9);
  const std::tuple<char, std::string, std::string> attributes[] = {
      {0x47, "attributes-charset", "utf-8"},
      {0x48, "attributes-natural-language", "en"},
      {0x45, "printer-uri", BenchValue("NORVANE_IPP_URI", "ipp://127.0.0.1:631/ipp/print")},
      {0x42, "requesting-user-name", "norvane"},
      {0x42, "job-name", "host-stream-256"},
      {0x49, "document-format", "image/pwg-raster"},
  };
  for (const auto& [tag, name, value] : attributes) {
    bytes += tag;
    for (const std::string* text : {&name, &value}) {
      bytes += static_cast<char>(text->size() >> 8);
      bytes += static_cast<char>(text->size() & 0xFF);
      bytes += *text;
    }
  }
  return bytes + '\x03';
}

TEST(HostIppPeer, PrintJobOf256MiBStreamsInBoundedMemory) {
  NORVANE_REQUIRE_BENCH();
  constexpr size_t kChunk = 64 * 1024;
  constexpr size_t kDocument = 256u << 20;
  auto address = Ref<Norvane::QxNetAddress>::Adopt(
      CreateNetAddress(Wide(BenchValue("NORVANE_PRINTER_HOST", "127.0.0.1")).c_str()));
  // As the library does for a printer URI naming its port.
  address->SetPortText(Wide(BenchValue("NORVANE_IPP_PORT", "631")).c_str());
  Ref<Norvane::HTTPRequest> holder;
  ASSERT_EQ(S_OK, address->CreateRequestEx(holder.Out(), 631));
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
  std::string piece = Pattern(kChunk, 3);
  std::memcpy(piece.data(), "RaS2", 4);
  const std::string first = Frame(PrintJobRequest() + piece);
  ASSERT_EQ(S_OK, stream->WriteChunk(Bytes(first), static_cast<uint32_t>(first.size()), 0));
  // The rest: one 64 KiB buffer framed once and written again and again, as
  // the library reuses its document buffer.
  std::memcpy(piece.data(), "\0\0\0\0", 4);
  const std::string framed = Frame(piece);
  auto start = std::chrono::steady_clock::now();
  for (size_t sent = kChunk; sent < kDocument; sent += kChunk) {
    ASSERT_EQ(S_OK, stream->WriteChunk(Bytes(framed), static_cast<uint32_t>(framed.size()), 0)) << sent;
  }
  ASSERT_EQ(S_OK, stream->WriteChunk(Bytes(kLastChunk), static_cast<uint32_t>(kLastChunk.size()), 0));
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(S_OK, stream->Send(&response));
  ASSERT_EQ(200u, response->GetStatus());
  std::string answer = BodyOf(response);
  ASSERT_GE(answer.size(), 8u);
  EXPECT_EQ(0, answer[2]) << "IPP status " << int(answer[2]) << "," << int(answer[3]);
  EXPECT_NE(std::string::npos, answer.find("job-id"));

  // The printer kept the whole document.
  uintmax_t largest = 0;
  std::error_code error;
  for (const auto& entry :
       std::filesystem::recursive_directory_iterator(BenchValue("NORVANE_SPOOL_DIR", "/nonexistent"), error)) {
    if (entry.is_regular_file(error)) largest = std::max<uintmax_t>(largest, entry.file_size(error));
  }
  EXPECT_EQ(static_cast<uintmax_t>(kDocument), largest);
  // The peak resident memory of this process, in KiB.
  rusage usage{};
  ASSERT_EQ(0, getrusage(RUSAGE_SELF, &usage));
  EXPECT_GT(usage.ru_maxrss, 0);
  EXPECT_LT(usage.ru_maxrss, 64 * 1024) << "seconds streaming: " << SecondsSince(start);
}

}  // namespace
}  // namespace NorvaneHostTest
