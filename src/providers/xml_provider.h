// The document machinery the three XML-speaking providers share: fetch a device
// resource over HTTP through the host's Address, parse it once, keep it per URI
// with its fetch time, and answer "the text of the first node this XPath selects".
//
// The per-URI cache is the point: a data map with many items on one resource
// costs one request and one parse per lifespan period. Documents live until the
// provider dies, the same URI is fetched again, or the cache is over one of its
// bounds (kMaxCachedDocuments, kMaxCachedNodes): then the documents used least
// recently go first. A data map reads a handful of resources, so the bounds only
// bite on a device that keeps naming new resources (a discovery tree whose URIs
// change on every read), which would otherwise grow the cache without end.
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
#include "support/log.h"
#include "support/ref.h"
#include "support/runtime_scope.h"

namespace Norvane {

// What a device can make the library hold. Device documents are small: the
// discovery tree and its resources are 1 to 60 KiB with a few hundred to 2,000
// nodes, a web-services printer description with its capabilities up to about
// 300 KiB and 15,000 nodes. A body over 1 MiB is refused before it is parsed, and
// a parse stops after 60,000 nodes: a DOM node takes about 130 bytes, so 1 MiB of
// tiny elements ("<a/>", 262,144 of them, about 33 MiB as a DOM) is refused
// rather than kept, and no document the cache keeps exceeds about 8 MiB of DOM.
// A provider's cache holds at most 32 documents and 240,000 nodes in all (about
// 31 MiB of DOM), enough for four documents at the node limit.
inline constexpr size_t kMaxDeviceDocumentBytes = 1u << 20;
inline constexpr size_t kMaxDeviceDocumentNodes = 60000;
inline constexpr size_t kMaxCachedDocuments = 32;
inline constexpr size_t kMaxCachedNodes = 4 * kMaxDeviceDocumentNodes;

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

  // While Create probes, a device without the document or node is an answer (the
  // protocol is absent), not a failure: what the device answered is then logged
  // as a detail (kInfo) instead of a failure (kStandout).
  void SetProbing(bool probing) { probing_ = probing; }
  uint32_t AnswerCategory() const { return probing_ ? QxLogging::kInfo : QxLogging::kStandout; }

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
    size_t nodes = 0;
    uint64_t lastUse = 0;  // of useCounter_, for eviction
  };

  // The selector for the document GetDOM just handed out; a document it did not
  // cache (an override may return its own) gets a one-off.
  Xml::Selector& SelectorFor(const xmlDoc* document, std::unique_ptr<Xml::Selector>* oneOff);
  // Drops the least recently used documents, never `keep`, until the cache is
  // within its bounds.
  void Evict(const CachedDocument* keep);
  QxUtils::Ref<Address> address_;
  uint32_t port_;
  // Keyed by the URI exactly as passed, compared code unit by code unit.
  std::map<std::u16string, CachedDocument, std::less<>> documents_;
  // The entry GetDOM handed out last, so the query that follows finds its
  // selector without a second lookup; null when GetDOM cached nothing.
  CachedDocument* lastServed_ = nullptr;
  size_t cachedNodes_ = 0;
  uint64_t useCounter_ = 0;
  bool probing_ = false;
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
  if (!held) return nullptr;
  uint32_t required = 0;
  held->SetProbing(true);
  HRESULT hr = held->GetValue(uri, xpath, nullptr, bufferSize, &required, 1, 0);
  held->SetProbing(false);
  return hr == E_OUTOFMEMORY ? held.Release() : nullptr;
}

}  // namespace Norvane
