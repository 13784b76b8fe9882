// The host transport against the simulated printer's web ports, through the
// Address interface alone.
#include <curl/curl.h>
#include <gtest/gtest.h>

#include "../bench_env.h"
#include "host_test_util.h"

namespace NorvaneHostTest {
namespace {

using namespace NorvaneBench;

class HostHttpPeers : public ::testing::Test {
 protected:
  void SetUp() override {
    NORVANE_REQUIRE_BENCH();
    address_ = CreateNetAddress(Wide(BenchValue("NORVANE_PRINTER_HOST", "127.0.0.1")).c_str());
    ASSERT_NE(nullptr, address_);
  }
  void TearDown() override {
    if (address_ != nullptr) address_->Dispose();
  }

  // GET through CreateRequestEx, as the XML providers do: resource only.
  HRESULT Get(uint32_t port, const std::u16string& resource, Ref<Norvane::HTTPRequest>& request,
              Norvane::HTTPResponse** response) {
    HRESULT hr = address_->CreateRequestEx(request.Out(), port);
    if (FAILED(hr)) return hr;
    request->SetResource(resource.c_str());
    return request->Send(response);
  }

  Norvane::QxNetAddress* address_ = nullptr;
  uint32_t webPort_ = BenchPort("NORVANE_SIM_HTTP_PORT", 80);
  uint32_t altPort_ = BenchPort("NORVANE_SIM_ALT_PORT", 8080);
  uint32_t soapPort_ = BenchPort("NORVANE_SIM_SOAP_PORT", 3910);
};

TEST_F(HostHttpPeers, ReadsTheDeviceXmlResourcesOnBothWebPorts) {
  Ref<Norvane::HTTPRequest> request;
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(S_OK, Get(altPort_, u"/DevMgmt/DiscoveryTree.xml", request, &response));
  EXPECT_EQ(200u, response->GetStatus());
  std::string tree = BodyOf(response);
  EXPECT_NE(std::string::npos, tree.find("/DevMgmt/ProductConfigDyn.xml"));
  EXPECT_EQ(0, response->GetBody()[response->GetBodyLength()]);

  ASSERT_EQ(S_OK, Get(webPort_, u"/qv/device/product_information.xml", request, &response));
  EXPECT_EQ(200u, response->GetStatus());
  EXPECT_NE(std::string::npos, BodyOf(response).find("NV42A17Q9X"));

  // The same document in chunked framing reads the same.
  ASSERT_EQ(S_OK, Get(altPort_, u"/DevMgmt/DiscoveryTree.xml?sim-fault=chunked", request, &response));
  EXPECT_EQ(u"chunked", std::u16string(response->GetHeader(u"Transfer-Encoding")));
  EXPECT_EQ(tree, BodyOf(response));
}

TEST_F(HostHttpPeers, PostsTheWebServicesRequestAsGuest) {
  const std::string id = "6f1c0b52-3d8e-4a71-9c2f-0e5b7d4a1c94";
  const std::string host = BenchValue("NORVANE_PRINTER_HOST", "127.0.0.1");
  const std::string envelope =
      "<?xml version=\"1.0\" encoding=\"utf-8\"?><soap:Envelope"
      " xmlns:soap=\"http://www.w3.org/2003/05/soap-envelope\""
      " xmlns:wsa=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\""
      " xmlns:pri=\"http://schemas.microsoft.com/windows/2006/08/wdp/print\"><soap:Header>"
      "<wsa:To>" + host + ":" + std::to_string(soapPort_) + "</wsa:To>"
      "<wsa:Action>http://schemas.microsoft.com/windows/2006/08/wdp/print/GetPrinterElements</wsa:Action>"
      "<wsa:MessageID>urn:uuid:" + id + "</wsa:MessageID></soap:Header><soap:Body>"
      "<pri:GetPrinterElementsRequest><pri:RequestedElements><pri:Name>pri:PrinterDescription</pri:Name>"
      "</pri:RequestedElements></pri:GetPrinterElementsRequest></soap:Body></soap:Envelope>";
  Ref<Norvane::HTTPRequest> request;
  ASSERT_EQ(S_OK, address_->CreateRequest(request.Out(), soapPort_));
  request->SetMethod(u"POST");
  request->SetResource(u"/device");
  request->SetUserName(u"guest");
  request->SetBody(Bytes(envelope), static_cast<uint32_t>(envelope.size()));
  request->SetContentType(u"application/soap+xml");
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(S_OK, request->Send(&response));
  // The simulator refuses "Expect: 100-continue" with 417, as printers do.
  ASSERT_EQ(200u, response->GetStatus()) << BodyOf(response);
  EXPECT_NE(std::string::npos, BodyOf(response).find("urn:uuid:" + id));
}

TEST_F(HostHttpPeers, ErrorStatusesAreAnswersAndDeadPeersFailInBoundedTime) {
  Ref<Norvane::HTTPRequest> request;
  Norvane::HTTPResponse* response = nullptr;
  ASSERT_EQ(S_OK, Get(altPort_, u"/DevMgmt/ProductConfigDyn.xml?sim-fault=404", request, &response));
  EXPECT_EQ(404u, response->GetStatus());
  ASSERT_EQ(S_OK, Get(altPort_, u"/DevMgmt/ProductConfigDyn.xml?sim-fault=500", request, &response));
  EXPECT_EQ(500u, response->GetStatus());

  // Nothing listens on port 9 of the bench.
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(E_FAIL, Get(9, u"/", request, &response));
  EXPECT_EQ(static_cast<uint32_t>(CURLE_COULDNT_CONNECT), request->GetErrorCode());
  EXPECT_LT(SecondsSince(start), 2.0);

  // A device that takes 4 s to answer, read with a 1 s read time-out.
  ASSERT_EQ(S_OK, NetAddressSetHttpTimeouts(address_, 2000, 1000));
  start = std::chrono::steady_clock::now();
  EXPECT_EQ(E_FAIL, Get(altPort_, u"/DevMgmt/ProductConfigDyn.xml?sim-fault=delay:4000", request, &response));
  EXPECT_EQ(static_cast<uint32_t>(CURLE_OPERATION_TIMEDOUT), request->GetErrorCode());
  double waited = SecondsSince(start);
  EXPECT_GT(waited, 0.9);
  EXPECT_LT(waited, 2.5);
  // A truncated body is a failure, not a short answer.
  EXPECT_EQ(E_FAIL, Get(webPort_, u"/qv/device/product_information.xml?sim-fault=truncate:40", request, &response));
  EXPECT_EQ(static_cast<uint32_t>(CURLE_PARTIAL_FILE), request->GetErrorCode());
}

}  // namespace
}  // namespace NorvaneHostTest
