#include "testlib/fake_host.h"

#include <algorithm>
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
  HRESULT AddHeader(const char16_t*, const char16_t*) override { return S_OK; }
  HRESULT SetContentType(const char16_t*) override { return S_OK; }
  HRESULT SetBody(const uint8_t* body, uint32_t length) override {
    exchange_.body.assign(reinterpret_cast<const char*>(body), body == nullptr ? 0 : length);
    return S_OK;
  }
  HRESULT SendBody(const uint8_t* body, uint32_t length) override { return SetBody(body, length); }
  HRESULT Open(uint64_t) override { return S_OK; }
  HRESULT WriteChunk(const uint8_t* bytes, uint32_t length, uint64_t) override {
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

class FakeMibConnection : public Norvane::DisposableObject<Norvane::MIBConnection> {
 public:
  explicit FakeMibConnection(std::shared_ptr<FakeMib> mib) : mib_(std::move(mib)) { ++mib_->connectionsAlive; }
  ~FakeMibConnection() override { --mib_->connectionsAlive; }

  HRESULT GetValue(const char16_t* oid, VARIANT* value) override {
    if (oid == nullptr || value == nullptr) return E_FAIL;
    mib_->calls.push_back(u"get " + std::u16string(oid));
    VariantClear(value);
    auto it = mib_->objects.find(std::u16string_view(oid));
    if (it == mib_->objects.end()) return E_FAIL;
    return VariantCopy(value, &it->second.Get());
  }
  HRESULT GetMultipleValues(const char16_t** oids, VARIANT* values, uint32_t count) override {
    if (oids == nullptr || values == nullptr || count == 0) return E_FAIL;
    mib_->calls.push_back(u"multi " + Decimal(count));
    if (FAILED(mib_->multiResult)) return mib_->multiResult;
    for (uint32_t i = 0; i < count; ++i) {
      VariantClear(&values[i]);
      if (oids[i] == nullptr) continue;
      auto it = mib_->objects.find(std::u16string_view(oids[i]));
      if (it != mib_->objects.end()) VariantCopy(&values[i], &it->second.Get());
    }
    return S_OK;
  }
  HRESULT GetNextOidAndValue(const char16_t* oid, char16_t* nextOid, uint32_t nextOidSize,
                             VARIANT* value) override {
    if (oid == nullptr || nextOid == nullptr || nextOidSize == 0 || value == nullptr) return E_FAIL;
    mib_->calls.push_back(u"next " + std::u16string(oid));
    std::u16string answered;
    const Norvane::Variant* found = nullptr;
    auto jump = mib_->nextJumps.find(oid);
    if (jump != mib_->nextJumps.end()) {
      answered = jump->second;
      auto it = mib_->objects.find(std::u16string_view(answered));
      if (it != mib_->objects.end()) found = &it->second;
    } else {
      auto it = mib_->objects.upper_bound(std::u16string_view(oid));
      if (it == mib_->objects.end()) return E_FAIL;
      answered = it->first;
      found = &it->second;
    }
    if (answered.size() + 1 > nextOidSize) return E_OUTOFMEMORY;
    std::copy(answered.begin(), answered.end(), nextOid);
    nextOid[answered.size()] = u'\0';
    VariantClear(value);
    return found == nullptr ? S_OK : VariantCopy(value, &found->Get());
  }
  HRESULT SetValue(const char16_t* oid, const VARIANT* value) override {
    if (oid == nullptr || value == nullptr) return E_FAIL;
    mib_->calls.push_back(u"set " + std::u16string(oid));
    if (FAILED(mib_->setResult)) return mib_->setResult;
    mib_->written[oid] = Norvane::Variant(*value);
    return S_OK;
  }

 private:
  static std::u16string Decimal(uint32_t n) {
    std::string digits = std::to_string(n);
    return std::u16string(digits.begin(), digits.end());
  }
  std::shared_ptr<FakeMib> mib_;
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

HRESULT FakeAddress::CreateRequestEx(Norvane::HTTPRequest** request, uint32_t port) { return MakeRequest(request, port); }

HRESULT FakeAddress::GetMIBConnection(Norvane::MIBConnection** connection) {
  if (connection == nullptr) return E_POINTER;
  *connection = nullptr;
  if (!mib) return E_FAIL;
  auto* made = new FakeMibConnection(mib);
  made->AddRef();
  *connection = made;
  return S_OK;
}

bool OidLess::operator()(std::u16string_view a, std::u16string_view b) const {
  auto arcs = [](std::u16string_view text) {
    std::vector<uint64_t> out;
    uint64_t arc = 0;
    for (char16_t c : text) {
      if (c == u'.') {
        out.push_back(arc);
        arc = 0;
      } else {
        arc = arc * 10 + static_cast<uint64_t>(c - u'0');
      }
    }
    out.push_back(arc);
    return out;
  };
  return arcs(a) < arcs(b);
}

void FakeMib::Put(std::u16string oid, const VARIANT& value) { objects[std::move(oid)] = Norvane::Variant(value); }

void FakeMib::PutText(std::u16string oid, std::u16string_view text) {
  objects[std::move(oid)] = Norvane::Variant::FromString(text);
}

void FakeMib::PutInt(std::u16string oid, int32_t value) {
  objects[std::move(oid)] = Norvane::Variant::FromInt32(value);
}

HRESULT FakeAddress::SetPortText(const char16_t* port) {
  portText_ = port == nullptr ? u"" : port;
  return S_OK;
}

HRESULT FakeAddress::SetSecure(bool value) {
  std::lock_guard<std::recursive_mutex> lock(mutex);
  secure = value;
  return S_OK;
}

}  // namespace NorvaneTest
