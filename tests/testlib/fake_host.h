// In-process fake host objects for unit tests: an Address whose requests answer
// from a programmable table, with fault injection, and an SNMP connection over
// an in-memory object table.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "norvane/com.h"
#include "norvane/disposable.h"
#include "norvane/transport.h"

namespace NorvaneTest {

struct FakeExchange {
  std::u16string resource;
  uint32_t port = 0;
  uint32_t securityFlags = 0;
  std::string body;  // SetBody / SendBody, then every chunk as written
};

struct FakeReply {
  uint32_t status = 200;
  std::string body;
  std::map<std::u16string, std::u16string> headers;
  HRESULT sendResult = S_OK;  // a failing Send models a refused connection
};

// Orders dotted-decimal OIDs arc by arc, numerically, as an agent walks them.
struct OidLess {
  using is_transparent = void;
  bool operator()(std::u16string_view a, std::u16string_view b) const;
};

// An SNMP agent's objects in memory, shared by an address and every connection
// it hands out. Connections answer as the reference host does: a missing object
// fails a single get (E_FAIL) and leaves its variant empty in a multiple get;
// get-next answers the first object after the one asked about (E_FAIL past the
// last) and E_OUTOFMEMORY when the buffer cannot hold that OID.
struct FakeMib {
  void Put(std::u16string oid, const VARIANT& value);
  void PutText(std::u16string oid, std::u16string_view text);
  void PutInt(std::u16string oid, int32_t value);

  std::map<std::u16string, Norvane::Variant, OidLess> objects;
  // Get-next answers that override the object order: asked OID -> answered OID
  // (its value from `objects`, empty when absent). Models agents that loop.
  std::map<std::u16string, std::u16string> nextJumps;
  // Every call, in order: "get OID", "multi N", "next OID", "set OID".
  std::vector<std::u16string> calls;
  // Values written by SetValue, by OID.
  std::map<std::u16string, Norvane::Variant> written;
  HRESULT setResult = S_OK;
  HRESULT multiResult = S_OK;
  int connectionsAlive = 0;
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
  HRESULT SetSecure(bool secure) override;

  // Held while a request is made, answered or destroyed, so that a provider's
  // polling threads may share the address; tests read the fields below once
  // those threads have stopped.
  std::recursive_mutex mutex;
  // Answers requests: given the finished exchange, returns the reply.
  std::function<FakeReply(const FakeExchange&)> responder;
  // Every exchange sent so far.
  std::vector<FakeExchange> exchanges;
  HRESULT createRequestResult = S_OK;
  bool secure = false;
  int requestsCreated = 0;
  int requestsAlive = 0;  // requests not yet destroyed
  // The device's SNMP agent; without one GetMIBConnection fails, as for a
  // device that does not answer SNMP.
  std::shared_ptr<FakeMib> mib;

 private:
  explicit FakeAddress(std::u16string host) : host_(std::move(host)) {}
  HRESULT MakeRequest(Norvane::HTTPRequest** request, uint32_t port);
  std::u16string host_;
  std::u16string portText_;
};

}  // namespace NorvaneTest
