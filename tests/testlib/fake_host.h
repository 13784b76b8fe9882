// An in-process fake host Address for unit tests: its requests answer from a
// programmable responder; it answers no SNMP.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "norvane/com.h"
#include "norvane/disposable.h"
#include "norvane/transport.h"

namespace NorvaneTest {

struct FakeExchange {
  std::u16string resource;
  uint32_t port = 0;
  std::string body;  // SetBody / SendBody, then every chunk as written
  std::map<std::u16string, std::u16string> headers;
  uint32_t securityFlags = 0;
};

struct FakeReply {
  uint32_t status = 200;
  std::string body;
  std::map<std::u16string, std::u16string> headers;
  HRESULT sendResult = S_OK;  // a failing Send models a refused connection
};

class FakeAddress : public Norvane::DisposableObject<Norvane::QxNetAddress> {
 public:
  static FakeAddress* Create(std::u16string host);  // one reference for the caller

  const char16_t* GetHost() override { return host_.c_str(); }
  HRESULT CreateRequest(Norvane::HTTPRequest** request, uint32_t port) override;
  HRESULT CreateRequestEx(Norvane::HTTPRequest** request, uint32_t port) override;
  HRESULT GetMIBConnection(Norvane::MIBConnection** connection) override;
  HRESULT SetPortText(const char16_t* port) override;
  const char16_t* GetPortText() override { return portText_.c_str(); }
  HRESULT SetSecure(bool) override { return S_OK; }

  // Held while a request is made, answered or destroyed, so that a provider's
  // polling threads may share the address; tests read the fields below once
  // those threads have stopped.
  std::recursive_mutex mutex;
  // Answers requests: given the finished exchange, returns the reply.
  std::function<FakeReply(const FakeExchange&)> responder;
  // Every exchange sent so far.
  std::vector<FakeExchange> exchanges;
  HRESULT createRequestResult = S_OK;
  HRESULT writeChunkResult = S_OK;  // what every WriteChunk answers
  int requestsCreated = 0;
  int requestsAlive = 0;  // requests not yet destroyed

 private:
  explicit FakeAddress(std::u16string host) : host_(std::move(host)) {}
  HRESULT MakeRequest(Norvane::HTTPRequest** request, uint32_t port);
  std::u16string host_;
  std::u16string portText_;
};

}  // namespace NorvaneTest
