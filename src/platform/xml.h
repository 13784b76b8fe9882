// The XML layer every XML user of the library shares: loading documents, XPath
// selection and the few node reads the data-map model and the XML providers need.
//
// Hostile input is the normal case here (device answers, caller documents), so
// every load is locked down the same way:
//  - whitespace-only text nodes are dropped (XML_PARSE_NOBLANKS, then a pass for
//    the blanks that option keeps), except under xml:space="preserve";
//  - no network (XML_PARSE_NONET), no DTD loading, no entity substitution, and a
//    document that declares any entity is refused outright, which rules out
//    external-entity reads and entity-expansion bombs alike;
//  - libxml2's default size and depth limits stay in force (never XML_PARSE_HUGE);
//  - a load may be given a node budget: a document of tiny elements costs about
//    30 times its size as a DOM, so a byte limit alone does not bound memory;
//  - parser and XPath errors go to a per-call silent handler, never to stderr.
//
// Status convention of the load and select functions: S_OK with a result,
// S_FALSE without one (not well-formed, unreadable, or nothing selected), a
// negative code for a failure of the call itself (E_INVALIDARG, E_OUTOFMEMORY,
// E_FAIL for an expression that does not compile or select nodes).
#pragma once

#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "norvane/platform.h"

namespace Norvane::Xml {

struct DocumentDeleter {
  void operator()(xmlDoc* document) const noexcept;
};
struct XPathContextDeleter {
  void operator()(xmlXPathContext* context) const noexcept;
};
struct XPathObjectDeleter {
  void operator()(xmlXPathObject* object) const noexcept;
};
struct XPathCompiledDeleter {
  void operator()(xmlXPathCompExpr* expression) const noexcept;
};
using DocumentPtr = std::unique_ptr<xmlDoc, DocumentDeleter>;
using XPathContextPtr = std::unique_ptr<xmlXPathContext, XPathContextDeleter>;
using XPathObjectPtr = std::unique_ptr<xmlXPathObject, XPathObjectDeleter>;
using XPathCompiledPtr = std::unique_ptr<xmlXPathCompExpr, XPathCompiledDeleter>;

// ---- Loading -------------------------------------------------------------

// An empty document (no root), as a DOM reports a body that did not parse.
DocumentPtr CreateDocument();

// Bytes as given: the encoding comes from a byte-order mark or the XML
// declaration, UTF-8 otherwise.
HRESULT LoadBytes(std::string_view bytes, DocumentPtr* document);
// The same with at most `maxNodes` nodes built: elements, text and comment pieces,
// and each attribute and namespace declaration counting two (the attribute and its
// text). A document over the budget is not loaded (S_FALSE), and the parse stops
// where the budget ran out. *nodes (optional) gets what a loaded document spent.
HRESULT LoadBytes(std::string_view bytes, size_t maxNodes, DocumentPtr* document, size_t* nodes);
// Text the caller holds as UTF-16: converted to UTF-8 and parsed as such, so an
// encoding="UTF-16" declaration in it does not mislead the parser.
HRESULT LoadText(std::u16string_view text, DocumentPtr* document);
// A local file (path in UTF-8, or UTF-16 converted to UTF-8). Read by the library
// itself, never through libxml2's URL loaders; files over 64 MiB are refused.
HRESULT LoadFile(const char* path, DocumentPtr* document);
HRESULT LoadFile(const char16_t* path, DocumentPtr* document);

// The document a node belongs to (a document node cast to xmlNode* is its own).
xmlDoc* DocumentOf(const xmlNode* node);

// ---- XPath ---------------------------------------------------------------

// Rewrites a leading "//.[" (a predicate on the abbreviated step ".", which
// XPath 1.0 does not allow) to "/descendant-or-self::node()[", which selects the
// same nodes. Any other expression is returned unchanged.
std::string RewriteXPath(std::string_view xpath);

// Selects with the namespace prefixes that the document itself declares, each
// registered under its own prefix (the first declaration of a prefix in document
// order wins), so "dd:" and "wprt:" resolve as the device's document wrote them.
// The prefixes are collected, and one XPath context is built with them, once per
// selector, and each distinct expression is compiled once: keep one selector per
// document when many queries run against the same (unchanging) document. A
// selector is used by one thread at a time.
class Selector {
 public:
  explicit Selector(const xmlDoc* document);

  // The first node (document order) that `xpath` (UTF-8) selects relative to
  // `context`, which must belong to the selector's document (E_INVALIDARG
  // otherwise). Namespace nodes are never returned (they do not outlive the
  // query). S_OK and *found set; S_FALSE and *found null when nothing matches.
  HRESULT SelectFirst(const xmlNode* context, std::string_view xpath, xmlNode** found);

  const std::vector<std::pair<std::string, std::string>>& Namespaces() const { return namespaces_; }

 private:
  // The context every query of this selector reuses; null until the first.
  HRESULT PrepareQuery();
  // The compiled form of an expression; null when it does not compile.
  xmlXPathCompExpr* Compiled(std::string_view xpath, XPathCompiledPtr* uncached);

  const xmlDoc* document_;
  std::vector<std::pair<std::string, std::string>> namespaces_;  // prefix, URI
  XPathContextPtr query_;
  struct TextHash {
    using is_transparent = void;
    size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>{}(text); }
  };
  std::unordered_map<std::string, XPathCompiledPtr, TextHash, std::equal_to<>> compiled_;
};

// One-off selection: builds a Selector for the node's document for this query.
HRESULT SelectFirstNode(const xmlNode* context, std::string_view xpath, xmlNode** found);
HRESULT SelectFirstNode(const xmlNode* context, std::u16string_view xpath, xmlNode** found);

// ---- Node reads ------------------------------------------------------------

// Child nodes of every kind (elements, comments, text...), in document order:
//   for (xmlNode* child : Children(node)) ...
class ChildRange {
 public:
  class Iterator {
   public:
    explicit Iterator(xmlNode* node) : node_(node) {}
    xmlNode* operator*() const { return node_; }
    Iterator& operator++() {
      node_ = node_->next;
      return *this;
    }
    bool operator!=(const Iterator& other) const { return node_ != other.node_; }

   private:
    xmlNode* node_;
  };
  explicit ChildRange(const xmlNode* parent) : first_(parent != nullptr ? parent->children : nullptr) {}
  Iterator begin() const { return Iterator(first_); }
  Iterator end() const { return Iterator(nullptr); }

 private:
  xmlNode* first_;
};
inline ChildRange Children(const xmlNode* parent) { return ChildRange(parent); }

bool IsElement(const xmlNode* node);

// Local name (without prefix) of an element or attribute node, UTF-8; empty for
// every other kind of node.
std::string_view LocalName(const xmlNode* node);
// Local name equals `name` ignoring the case of ASCII letters.
bool LocalNameIs(const xmlNode* node, std::string_view name);

// The attribute of an element whose name, with its prefix if it has one, is
// exactly `name`; null when absent or when the node is not an element.
const xmlAttr* FindAttribute(const xmlNode* element, std::string_view name);
const xmlAttr* FindAttribute(const xmlAttr* attributes, std::string_view name);
// An attribute's text, UTF-8. References to entities the document declares
// itself are replaced by their text (only a DOM the caller parsed has them).
std::string AttributeText(const xmlAttr* attribute);
// The same without a copy when the text is stored in one piece (the usual case);
// otherwise the text is assembled in *storage and the view points there. The view
// lives as long as the document and *storage are unchanged.
std::string_view AttributeText(const xmlAttr* attribute, std::string* storage);
// The named attribute's text, or nothing when the attribute is absent.
std::optional<std::string> AttributeText(const xmlNode* element, std::string_view name);

// Text content as the DOM reports it: the node's own text for text, CDATA,
// comment and processing-instruction nodes; otherwise the concatenated text and
// CDATA of all descendants (attribute nodes: their value), with references to
// entities the document declares itself replaced by their text.
std::string TextContentUtf8(const xmlNode* node);
std::u16string TextContent(const xmlNode* node);

}  // namespace Norvane::Xml
