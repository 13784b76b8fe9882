// Device answers as the XML providers read them: the bytes are the body of every
// document the device serves, and the providers' own queries (resource-type
// resolution through the discovery tree, serial numbers, the web-services
// device id) run on it with buffers of every size class.
#include <cstddef>
#include <cstdint>
#include <string>

#include "norvane/disposable.h"
#include "norvane/transport.h"
#include "providers/plsxml_provider_impl.h"
#include "providers/vexa_provider_impl.h"
#include "providers/ws_provider_impl.h"
#include "support/ref.h"

namespace {

using namespace Norvane;

class Response final : public DisposableObject<HTTPResponse> {
 public:
  explicit Response(const std::string* body) : body_(body) {}
  uint32_t GetStatus() override { return 200; }
  uint32_t GetBodyLength() override { return static_cast<uint32_t>(body_->size()); }
  const uint8_t* GetBody() override { return reinterpret_cast<const uint8_t*>(body_->data()); }
  const char16_t* GetHeader(const char16_t*) override { return nullptr; }

 private:
  const std::string* body_;
};

class Request final : public DisposableObject<QxHTTPRequestEx> {
 public:
  explicit Request(const std::string* body) : response_(new Response(body)) { response_->AddRef(); }
  ~Request() override { response_->Dispose(); }
  HRESULT SetResource(const char16_t*) override { return S_OK; }
  HRESULT SetUserName(const char16_t*) override { return S_OK; }
  HRESULT SetPassword(const char16_t*) override { return S_OK; }
  HRESULT SetMethod(const char16_t*) override { return S_OK; }
  HRESULT AddHeader(const char16_t*, const char16_t*) override { return S_OK; }
  HRESULT SetContentType(const char16_t*) override { return S_OK; }
  HRESULT SetBody(const uint8_t*, uint32_t) override { return S_OK; }
  HRESULT Send(HTTPResponse** response) override {
    *response = response_;
    return S_OK;
  }
  HRESULT SetSecurityFlags(uint32_t) override { return S_OK; }
  uint32_t GetErrorCode() override { return 0; }
  HRESULT SendBody(const uint8_t*, uint32_t) override { return S_OK; }
  HRESULT Open(uint64_t) override { return S_OK; }
  HRESULT WriteChunk(const uint8_t*, uint32_t, uint64_t) override { return S_OK; }

 private:
  Response* response_;
};

// Every resource of this device answers with the same body.
class Device final : public DisposableObject<Address> {
 public:
  explicit Device(std::string body) : body_(std::move(body)) {}
  const char16_t* GetHost() override { return u"printer.example"; }
  HRESULT CreateRequest(HTTPRequest** request, uint32_t) override {
    *request = new Request(&body_);
    (*request)->AddRef();
    return S_OK;
  }
  HRESULT CreateRequestEx(HTTPRequest** request, uint32_t port) override { return CreateRequest(request, port); }
  HRESULT GetMIBConnection(MIBConnection**) override { return E_FAIL; }
  HRESULT SetPortText(const char16_t*) override { return S_OK; }
  const char16_t* GetPortText() override { return u""; }
  HRESULT SetSecure(bool) override { return S_OK; }

 private:
  std::string body_;
};

void Query(IXMLProvider* provider, const char16_t* uri, const char16_t* xpath) {
  char16_t buffer[300];
  uint32_t needed = 0;
  for (uint32_t size : {0u, 1u, 256u, 300u}) {
    provider->GetValue(uri, xpath, size == 0 ? nullptr : buffer, size, &needed, 1, 0);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto* raw = new Device(std::string(reinterpret_cast<const char*>(data), size));
  raw->AddRef();
  auto device = QxUtils::AdoptRef(raw);
  if (auto vexa = QxUtils::AdoptRef(VEXAProviderImpl::Create(device.get()))) {
    Query(vexa.get(), VEXAProviderImpl::kProductConfigType, u"//dd:SerialNumber");
    Query(vexa.get(), u"vexa:qvVexaConsumableConfigDyn", u"//*[local-name()='MarkerColor'][1]");
  }
  if (auto info = QxUtils::AdoptRef(PLSXMLProviderImpl::Create(device.get()))) {
    Query(info.get(), PLSXMLProviderImpl::kProductInformationPath, u"/*/*[2]");
  }
  if (auto ws = QxUtils::AdoptRef(WSProviderImpl::Create(device.get()))) {
    Query(ws.get(), WSProviderImpl::kDeviceServiceUrn, u"//wprt:PrinterState");
  }
  return 0;
}
