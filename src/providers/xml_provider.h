// The document machinery the three XML-speaking providers share: fetch a device
// resource over HTTP through the host's Address, parse it once, keep it per URI
// with its fetch time, and answer "the text of the first node this XPath selects".
//
// The per-URI cache is the point: a data map with many items on one resource
// costs one request and one parse per lifespan period. Documents live until the
// provider dies or the same URI is fetched again; nothing else evicts them.
//
// A provider is used by one thread at a time (no lock). It holds one reference
// on its Address for its whole life; a null Address makes every fetch fail.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "norvane/disposable.h"
#include "norvane/interfaces.h"
#include "norvane/transport.h"
#include "platform/xml.h"
#include "support/ref.h"
#include "support/runtime_scope.h"

namespace Norvane {

// Device documents are a few hundred kilobytes at most; anything far larger is
// refused before it is parsed, which bounds what a hostile device can make the
// library hold.
inline constexpr size_t kMaxDeviceDocumentBytes = 8u << 20;

class XMLProvider {
 public:
  XMLProvider(const XMLProvider&) = delete;
  XMLProvider& operator=(const XMLProvider&) = delete;

  // Buffer protocol: *requiredSize gets the text length plus the terminator (0
  // when nothing was selected); the text is copied only when it fits, else
  // E_OUTOFMEMORY. S_FALSE when the XPath selects nothing. A document that did
  // not parse answers S_OK with *requiredSize 0 and the buffer untouched.
  HRESULT GetValue(const char16_t* uri, const char16_t* xpath, char16_t* buffer, uint32_t bufferSize,
                   uint32_t* requiredSize, uint32_t useCache, uint32_t lifespan);

  // Fetches the resource by plain GET on this provider's port. Overridden by
  // providers that fetch differently; GetDOM always calls it virtually.
  virtual HRESULT GetContent(const char16_t* uri, std::string* content);

  // The parsed document for `uri`, from the cache when allowed and fresh, else
  // fetched and cached (also when useCache is 0, so a later caching call can
  // use it). The document stays owned by the cache. S_OK with a null document
  // when the parse itself failed (nothing is cached then).
  virtual HRESULT GetDOM(const char16_t* uri, xmlDoc** document, uint32_t useCache, uint32_t lifespan);

  uint32_t GetProviderPort() const { return port_; }
  Address* GetAddress() const { return address_.get(); }

 protected:
  // Takes a reference on `address` when non-null.
  XMLProvider(Address* address, uint32_t port);
  virtual ~XMLProvider();

 private:
  struct CachedDocument {
    Xml::DocumentPtr document;
    // Built on the first query: the document's prefixes do not change.
    std::unique_ptr<Xml::Selector> selector;
    uint64_t stamp = 0;
  };

  // The selector for the document GetDOM just handed out; a document it did not
  // cache (an override may return its own) gets a one-off.
  Xml::Selector& SelectorFor(const xmlDoc* document, std::unique_ptr<Xml::Selector>* oneOff);
  QxUtils::Ref<Address> address_;
  uint32_t port_;
  // Keyed by the URI exactly as passed, compared code unit by code unit.
  std::map<std::u16string, CachedDocument, std::less<>> documents_;
  // The entry GetDOM handed out last, so the query that follows finds its
  // selector without a second lookup; null when GetDOM cached nothing.
  CachedDocument* lastServed_ = nullptr;
  std::optional<ComponentRuntimeScope> runtime_;
};

// Joins the shared machinery to one of the exported provider interfaces.
template <class Interface>
class XMLProviderObject : public DisposableObject<Interface>, public XMLProvider {
 public:
  HRESULT GetValue(const char16_t* uri, const char16_t* xpath, char16_t* buffer, uint32_t bufferSize,
                   uint32_t* requiredSize, uint32_t useCache, uint32_t lifespan) override {
    return XMLProvider::GetValue(uri, xpath, buffer, bufferSize, requiredSize, useCache, lifespan);
  }
  uint32_t GetPort() override { return GetProviderPort(); }

 protected:
  XMLProviderObject(Address* address, uint32_t port) : XMLProvider(address, port) {}
};

// Creation is detection: a new `provider` (no reference yet, may be null) gets
// the caller's reference and is kept when the document at `uri` has a node at
// `xpath` (asked with a null buffer, which answers E_OUTOFMEMORY exactly then),
// and released otherwise.
template <class Provider>
Provider* KeepWhenNodeExists(Provider* provider, const char16_t* uri, const char16_t* xpath, uint32_t bufferSize) {
  auto held = QxUtils::ShareRef(provider);
  uint32_t required = 0;
  if (held && held->GetValue(uri, xpath, nullptr, bufferSize, &required, 1, 0) == E_OUTOFMEMORY) return held.Release();
  return nullptr;
}

}  // namespace Norvane
