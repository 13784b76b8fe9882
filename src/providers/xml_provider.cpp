#include "providers/xml_provider.h"

#include <cstring>

#include "platform/clock.h"
#include "providers/xml_response_body.h"
#include "support/expiry.h"
#include "support/log.h"
#include "support/ref.h"
#include "support/runtime_scope.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

bool IsXmlBlank(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }

// Device values are single tokens; the whitespace around them is layout.
std::u16string_view Trimmed(std::u16string_view text) {
  while (!text.empty() && IsXmlBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsXmlBlank(text.back())) text.remove_suffix(1);
  return text;
}

}  // namespace

XMLProvider::XMLProvider(Address* address, uint32_t port) : address_(QxUtils::ShareRef(address)), port_(port) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::XMLProvider::XMLProvider");
  runtime_.emplace(&qxLog_);
}

XMLProvider::~XMLProvider() {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::XMLProvider::~XMLProvider");
  documents_.clear();
  runtime_.reset();
  address_.Reset();
}

HRESULT XMLProvider::GetContent(const char16_t* uri, std::string* content) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::XMLProvider::GetContent");
  if (address_ == nullptr || uri == nullptr || content == nullptr) return E_FAIL;
  QxUtils::Ref<HTTPRequest> request;
  HRESULT hr = address_->CreateRequestEx(request.Out(), port_);
  if (hr != S_OK) {
    QX_LOG(AnswerCategory(), "The host made no request for port %u (0x%08x)", port_, static_cast<unsigned>(hr));
    return hr;
  }
  if (!request) return S_OK;
  hr = request->SetResource(uri);
  if (FAILED(hr)) return E_FAIL;
  HTTPResponse* response = nullptr;
  hr = request->Send(&response);
  return ReadDocumentBody(qxLog_, AnswerCategory(), hr, response, content);
}

HRESULT XMLProvider::GetDOM(const char16_t* uri, xmlDoc** document, uint32_t useCache, uint32_t lifespan) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::XMLProvider::GetDOM");
  if (document == nullptr) return E_FAIL;
  *document = nullptr;
  lastServed_ = nullptr;
  if (uri == nullptr) return E_FAIL;
  std::u16string_view key(uri);
  if (useCache != 0) {
    auto cached = documents_.find(key);
    if (cached != documents_.end() && !IsExpired(cached->second.stamp, lifespan)) {
      cached->second.lastUse = ++useCounter_;
      lastServed_ = &cached->second;
      *document = cached->second.document.get();
      return S_OK;
    }
  }

  std::string content;
  HRESULT hr = GetContent(uri, &content);
  if (hr != S_OK) return hr;

  Xml::DocumentPtr parsed;
  size_t nodes = 0;
  hr = Xml::LoadBytes(content, kMaxDeviceDocumentNodes, &parsed, &nodes);
  if (FAILED(hr)) {
    QX_LOG(AnswerCategory(), "Parsing the document failed (0x%08x)", static_cast<unsigned>(hr));
    return S_OK;
  }
  if (hr != S_OK) {
    // Not well-formed, or over the node limit: cached as an empty document, on
    // which every selection finds nothing until the entry is refetched.
    QX_LOG(AnswerCategory(), "The device's document is not well-formed or has over %zu nodes (%zu bytes)",
           kMaxDeviceDocumentNodes, content.size());
    parsed = Xml::CreateDocument();
    if (parsed == nullptr) return S_OK;
  }

  uint64_t stamp = 0;
  if (GetCurrentFileTime(&stamp) == 0) stamp = 0;
  *document = parsed.get();
  auto [at, added] = documents_.try_emplace(std::u16string(key));
  CachedDocument& entry = at->second;
  entry.selector.reset();
  entry.document = std::move(parsed);
  entry.stamp = stamp;
  cachedNodes_ = cachedNodes_ - entry.nodes + nodes;
  entry.nodes = nodes;
  entry.lastUse = ++useCounter_;
  Evict(&entry);
  lastServed_ = &entry;
  return S_OK;
}

void XMLProvider::Evict(const CachedDocument* keep) {
  while (documents_.size() > kMaxCachedDocuments || cachedNodes_ > kMaxCachedNodes) {
    auto oldest = documents_.end();
    for (auto it = documents_.begin(); it != documents_.end(); ++it) {
      if (&it->second != keep && (oldest == documents_.end() || it->second.lastUse < oldest->second.lastUse)) {
        oldest = it;
      }
    }
    if (oldest == documents_.end()) return;
    cachedNodes_ -= oldest->second.nodes;
    documents_.erase(oldest);
  }
}

Xml::Selector& XMLProvider::SelectorFor(const xmlDoc* document, std::unique_ptr<Xml::Selector>* oneOff) {
  if (lastServed_ != nullptr && lastServed_->document.get() == document) {
    if (lastServed_->selector == nullptr) lastServed_->selector = std::make_unique<Xml::Selector>(document);
    return *lastServed_->selector;
  }
  *oneOff = std::make_unique<Xml::Selector>(document);
  return **oneOff;
}

HRESULT XMLProvider::GetValue(const char16_t* uri, const char16_t* xpath, char16_t* buffer, uint32_t bufferSize,
                              uint32_t* requiredSize, uint32_t useCache, uint32_t lifespan) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::XMLProvider::GetValue");
  if (requiredSize != nullptr) *requiredSize = 0;
  xmlDoc* document = nullptr;
  HRESULT hr = GetDOM(uri, &document, useCache, lifespan);
  if (hr != S_OK || document == nullptr) return hr;
  if (xpath == nullptr) return E_FAIL;

  std::unique_ptr<Xml::Selector> oneOff;
  Xml::Selector& selector = SelectorFor(document, &oneOff);
  xmlNode* node = nullptr;
  hr = selector.SelectFirst(reinterpret_cast<xmlNode*>(document), QxUtils::WideToUtf8(xpath), &node);
  if (FAILED(hr)) {
    QX_LOG(AnswerCategory(), "The expression %s did not evaluate (0x%08x)", QxUtils::WideToUtf8(xpath).c_str(),
           static_cast<unsigned>(hr));
    return hr;
  }
  if (node == nullptr) return S_FALSE;

  std::u16string whole = Xml::TextContent(node);
  std::u16string_view text = Trimmed(whole);
  if (text.size() >= UINT32_MAX) return E_OUTOFMEMORY;
  uint32_t needed = static_cast<uint32_t>(text.size()) + 1;
  if (requiredSize != nullptr) *requiredSize = needed;
  if (buffer == nullptr || needed > bufferSize) return E_OUTOFMEMORY;
  std::memcpy(buffer, text.data(), text.size() * sizeof(char16_t));
  buffer[text.size()] = u'\0';
  return S_OK;
}

}  // namespace Norvane
