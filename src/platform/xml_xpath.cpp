// XPath 1.0 selection with the document's own namespace prefixes.
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <set>
#include <string>

#include "platform/utf.h"
#include "platform/xml.h"
#include "platform/xml_errors.h"

namespace Norvane::Xml {

namespace {

// Bounds the work of one query; a selection on a device document takes a few
// thousand operations, a hostile expression on a large document is cut off.
constexpr unsigned long kOperationLimit = 20'000'000;

// Expressions a selector keeps compiled; a caller with more distinct ones than
// this compiles the rest each time.
constexpr size_t kCompiledLimit = 256;

constexpr std::string_view kDotPredicate = "//.[";
constexpr std::string_view kDescendantOrSelf = "/descendant-or-self::node()[";

}  // namespace

std::string RewriteXPath(std::string_view xpath) {
  size_t start = xpath.find_first_not_of(" \t\r\n");
  if (start != std::string_view::npos && xpath.substr(start, kDotPredicate.size()) == kDotPredicate) {
    std::string rewritten(kDescendantOrSelf);
    rewritten.append(xpath.substr(start + kDotPredicate.size()));
    return rewritten;
  }
  return std::string(xpath);
}

Selector::Selector(const xmlDoc* document) : document_(document) {
  if (document == nullptr) return;
  std::set<std::string_view> seen;
  const xmlNode* top = reinterpret_cast<const xmlNode*>(document);
  const xmlNode* node = document->children;
  // Pre-order walk without recursion: depth is whatever the parser allowed.
  while (node != nullptr) {
    if (node->type == XML_ELEMENT_NODE) {
      for (const xmlNs* ns = node->nsDef; ns != nullptr; ns = ns->next) {
        if (ns->prefix == nullptr || ns->href == nullptr) continue;
        std::string_view prefix(reinterpret_cast<const char*>(ns->prefix));
        if (seen.insert(prefix).second) {
          namespaces_.emplace_back(std::string(prefix), reinterpret_cast<const char*>(ns->href));
        }
      }
      if (node->children != nullptr) {
        node = node->children;
        continue;
      }
    }
    while (node != nullptr && node->next == nullptr) {
      node = node->parent;
      if (node == top) node = nullptr;
    }
    if (node != nullptr) node = node->next;
  }
}

HRESULT Selector::PrepareQuery() {
  if (query_ != nullptr) return S_OK;
  EnsureXmlInitialized();
  XPathContextPtr query(xmlXPathNewContext(const_cast<xmlDoc*>(document_)));
  if (query == nullptr) return E_OUTOFMEMORY;
  query->error = &IgnoreStructuredError;
  query->userData = nullptr;
  query->opLimit = kOperationLimit;
  for (const auto& [prefix, uri] : namespaces_) {
    if (xmlXPathRegisterNs(query.get(), BAD_CAST prefix.c_str(), BAD_CAST uri.c_str()) != 0) return E_OUTOFMEMORY;
  }
  query_ = std::move(query);
  return S_OK;
}

xmlXPathCompExpr* Selector::Compiled(std::string_view xpath, XPathCompiledPtr* uncached) {
  auto known = compiled_.find(xpath);
  if (known != compiled_.end()) return known->second.get();
  // Compiled against the selector's context, so prefixes resolve as they will at
  // evaluation.
  XPathCompiledPtr expression(xmlXPathCtxtCompile(query_.get(), BAD_CAST RewriteXPath(xpath).c_str()));
  if (expression == nullptr) return nullptr;
  if (compiled_.size() >= kCompiledLimit) {
    *uncached = std::move(expression);
    return uncached->get();
  }
  return compiled_.emplace(std::string(xpath), std::move(expression)).first->second.get();
}

HRESULT Selector::SelectFirst(const xmlNode* context, std::string_view xpath, xmlNode** found) {
  if (found != nullptr) *found = nullptr;
  if (context == nullptr || found == nullptr) return E_INVALIDARG;
  // The prefixes were collected from one document; they mean nothing in another.
  if (context->doc != document_) return E_INVALIDARG;
  if (xpath.find('\0') != std::string_view::npos) return E_FAIL;

  HRESULT hr = PrepareQuery();
  if (FAILED(hr)) return hr;
  SilentErrors silence;
  XPathCompiledPtr uncached;
  xmlXPathCompExpr* expression = Compiled(xpath, &uncached);
  if (expression == nullptr) return E_FAIL;
  // What one evaluation leaves behind must not reach the next.
  query_->node = const_cast<xmlNode*>(context);
  query_->opCount = 0;
  query_->contextSize = -1;
  query_->proximityPosition = -1;

  XPathObjectPtr result(xmlXPathCompiledEval(expression, query_.get()));
  if (result == nullptr || result->type != XPATH_NODESET) return E_FAIL;
  const xmlNodeSet* nodes = result->nodesetval;
  if (nodes == nullptr) return S_FALSE;
  for (int i = 0; i < nodes->nodeNr; ++i) {
    // Namespace nodes are copies owned by the result; they die with it.
    if (nodes->nodeTab[i] != nullptr && nodes->nodeTab[i]->type != XML_NAMESPACE_DECL) {
      *found = nodes->nodeTab[i];
      return S_OK;
    }
  }
  return S_FALSE;
}

HRESULT SelectFirstNode(const xmlNode* context, std::string_view xpath, xmlNode** found) {
  if (context == nullptr) {
    if (found != nullptr) *found = nullptr;
    return E_INVALIDARG;
  }
  return Selector(context->doc).SelectFirst(context, xpath, found);
}

HRESULT SelectFirstNode(const xmlNode* context, std::u16string_view xpath, xmlNode** found) {
  return SelectFirstNode(context, std::string_view(QxUtils::WideToUtf8(xpath)), found);
}

}  // namespace Norvane::Xml
