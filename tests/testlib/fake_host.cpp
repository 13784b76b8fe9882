#include "testlib/fake_host.h"

#include <string>

#include "norvane/com.h"

namespace NorvaneTest {

namespace {

class FakeResponse : public Norvane::DisposableObject<Norvane::HTTPResponse> {
 public:
  explicit FakeResponse(FakeReply reply) : reply_(std::move(reply)) {}
  uint32_t GetStatus() override { return reply_.status; }
  uint32_t GetBodyLength() override { return static_cast<uint32_t>(reply_.body.size()); }
  const uint8_t* GetBody() override {
    return reply_.body.empty() ? nullptr : reinterpret_cast<const uint8_t*>(reply_.body.c_str());
  }
  const char16_t* GetHeader(const char16_t* name) override {
    if (name == nullptr) return nullptr;
    auto it = reply_.headers.find(name);
    return it == reply_.headers.end() ? nullptr : it->second.c_str();
  }

 private:
  FakeReply reply_;
};

class FakeRequest : public Norvane::DisposableObject<Norvane::QxHTTPRequestEx> {
 public:
  FakeRequest(FakeAddress* address, uint32_t port) : address_(address) {
    address_->AddRef();
    ++address_->requestsAlive;
    exchange_.port = port;
  }
  ~FakeRequest() override {
    {
      std::lock_guard<std::recursive_mutex> lock(address_->mutex);
      if (response_ != nullptr) response_->Dispose();
      --address_->requestsAlive;
    }
    address_->Dispose();
  }
  HRESULT SetResource(const char16_t* path) override {
    if (path == nullptr) return E_INVALIDARG;
    exchange_.resource = path;
    return S_OK;
  }
  HRESULT SetUserName(const char16_t*) override { return S_OK; }
  HRESULT SetPassword(const char16_t*) override { return S_OK; }
  HRESULT SetMethod(const char16_t*) override { return S_OK; }
  HRESULT AddHeader(const char16_t* name, const char16_t* value) override {
    if (name == nullptr || value == nullptr) return E_INVALIDARG;
    exchange_.headers[name] = value;
    return S_OK;
  }
  HRESULT SetContentType(const char16_t*) override { return S_OK; }
  HRESULT SetBody(const uint8_t* body, uint32_t length) override {
    exchange_.body.assign(reinterpret_cast<const char*>(body), body == nullptr ? 0 : length);
    return S_OK;
  }
  HRESULT SendBody(const uint8_t* body, uint32_t length) override { return SetBody(body, length); }
  HRESULT Open(uint64_t) override { return S_OK; }
  HRESULT WriteChunk(const uint8_t* bytes, uint32_t length, uint64_t) override {
    {
      std::lock_guard<std::recursive_mutex> lock(address_->mutex);
      if (FAILED(address_->writeChunkResult)) return address_->writeChunkResult;
    }
    exchange_.body.append(reinterpret_cast<const char*>(bytes), length);
    return S_OK;
  }
  HRESULT Send(Norvane::HTTPResponse** response) override {
    if (response == nullptr) return E_POINTER;
    std::lock_guard<std::recursive_mutex> lock(address_->mutex);
    FakeReply reply = address_->responder ? address_->responder(exchange_) : FakeReply{404, {}, {}, S_OK};
    address_->exchanges.push_back(exchange_);
    if (FAILED(reply.sendResult)) return reply.sendResult;
    if (response_ != nullptr) response_->Dispose();
    response_ = new FakeResponse(std::move(reply));
    response_->AddRef();
    *response = response_;
    return S_OK;
  }
  HRESULT SetSecurityFlags(uint32_t flags) override {
    exchange_.securityFlags = flags;
    return S_OK;
  }
  uint32_t GetErrorCode() override { return 0; }

 private:
  FakeAddress* address_;
  FakeExchange exchange_;
  FakeResponse* response_ = nullptr;
};

}  // namespace

FakeAddress* FakeAddress::Create(std::u16string host) {
  auto* address = new FakeAddress(std::move(host));
  address->AddRef();
  return address;
}

HRESULT FakeAddress::MakeRequest(Norvane::HTTPRequest** request, uint32_t port) {
  if (request == nullptr) return E_POINTER;
  std::lock_guard<std::recursive_mutex> lock(mutex);
  if (FAILED(createRequestResult)) return createRequestResult;
  auto* r = new FakeRequest(this, port);
  r->AddRef();
  ++requestsCreated;
  *request = r;
  return S_OK;
}

HRESULT FakeAddress::CreateRequest(Norvane::HTTPRequest** request, uint32_t port) { return MakeRequest(request, port); }

HRESULT FakeAddress::CreateRequestEx(Norvane::HTTPRequest** request, uint32_t port) {
  return MakeRequest(request, port);
}

HRESULT FakeAddress::GetMIBConnection(Norvane::MIBConnection** connection) {
  if (connection == nullptr) return E_POINTER;
  *connection = nullptr;
  return E_FAIL;
}

HRESULT FakeAddress::SetPortText(const char16_t* port) {
  portText_ = port == nullptr ? u"" : port;
  return S_OK;
}

}  // namespace NorvaneTest
