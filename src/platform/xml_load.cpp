// Loading documents with one locked-down parser configuration (see xml.h).
#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <memory>
#include <string>

#include "platform/utf.h"
#include "platform/xml.h"
#include "platform/xml_errors.h"

namespace Norvane::Xml {

namespace {

constexpr int kParseOptions = XML_PARSE_NOBLANKS | XML_PARSE_NONET;
constexpr long long kMaxFileBytes = 64LL * 1024 * 1024;

struct ParserContextDeleter {
  void operator()(xmlParserCtxt* context) const noexcept { xmlFreeParserCtxt(context); }
};
using ParserContextPtr = std::unique_ptr<xmlParserCtxt, ParserContextDeleter>;

struct FileCloser {
  void operator()(FILE* file) const noexcept { std::fclose(file); }
};

// Any entity declaration ends the parse: without entities there is nothing to
// expand and no external resource to reach.
void RefuseEntityDeclaration(void* userData, const xmlChar*, int, const xmlChar*, const xmlChar*, xmlChar*) {
  auto* context = static_cast<xmlParserCtxt*>(userData);
  context->wellFormed = 0;
  xmlStopParser(context);
}

bool IsBlank(const xmlChar* text) {
  if (text == nullptr) return true;
  for (; *text != 0; ++text) {
    if (*text != ' ' && *text != '\t' && *text != '\n' && *text != '\r') return false;
  }
  return true;
}

// XML_PARSE_NOBLANKS keeps the blank text it cannot prove ignorable (the only
// content of an element, or blanks beside other text). Documents are read as if
// no whitespace-only text existed at all, except under xml:space="preserve".
void RemoveBlankText(xmlDoc* document) {
  xmlNode* top = reinterpret_cast<xmlNode*>(document);
  xmlNode* node = document->children;
  while (node != nullptr) {
    if (node->type == XML_ELEMENT_NODE && node->children != nullptr) {
      node = node->children;
      continue;
    }
    xmlNode* blank =
        (node->type == XML_TEXT_NODE && IsBlank(node->content) && xmlNodeGetSpacePreserve(node->parent) != 1) ? node
                                                                                                              : nullptr;
    while (node != nullptr && node->next == nullptr) {
      node = node->parent;
      if (node == top) node = nullptr;
    }
    if (node != nullptr) node = node->next;
    if (blank != nullptr) {
      xmlUnlinkNode(blank);
      xmlFreeNode(blank);
    }
  }
}

xmlParserInputPtr RefuseExternalResource(void*, const xmlChar*, const xmlChar*) { return nullptr; }

// What a parse may still build; the SAX handlers reach it through the parser
// context's user slot and stop the parse, as not well-formed, when it runs out.
struct NodeBudget {
  size_t left;
  size_t spent = 0;
};

bool Spend(void* userData, size_t nodes) {
  auto* context = static_cast<xmlParserCtxt*>(userData);
  auto* budget = static_cast<NodeBudget*>(context->_private);
  if (budget == nullptr) return true;
  if (nodes <= budget->left) {
    budget->left -= nodes;
    budget->spent += nodes;
    return true;
  }
  context->wellFormed = 0;
  xmlStopParser(context);
  return false;
}

void CountedStartElement(void* userData, const xmlChar* localName, const xmlChar* prefix, const xmlChar* uri,
                         int namespaceCount, const xmlChar** namespaces, int attributeCount, int defaultedCount,
                         const xmlChar** attributes) {
  size_t cost =
      1 + 2 * static_cast<size_t>(std::max(namespaceCount, 0)) + 2 * static_cast<size_t>(std::max(attributeCount, 0));
  if (!Spend(userData, cost)) return;
  xmlSAX2StartElementNs(userData, localName, prefix, uri, namespaceCount, namespaces, attributeCount, defaultedCount,
                        attributes);
}

// Text arrives in pieces of a few hundred bytes that may join one node; counting
// each piece overstates long texts a little, never tiny ones.
void CountedCharacters(void* userData, const xmlChar* text, int length) {
  if (Spend(userData, 1)) xmlSAX2Characters(userData, text, length);
}

void CountedCData(void* userData, const xmlChar* text, int length) {
  if (Spend(userData, 1)) xmlSAX2CDataBlock(userData, text, length);
}

void CountedComment(void* userData, const xmlChar* text) {
  if (Spend(userData, 1)) xmlSAX2Comment(userData, text);
}

void CountedProcessingInstruction(void* userData, const xmlChar* target, const xmlChar* data) {
  if (Spend(userData, 1)) xmlSAX2ProcessingInstruction(userData, target, data);
}

HRESULT Parse(const char* data, size_t size, const char* encoding, int options, DocumentPtr* document,
              NodeBudget* budget = nullptr) {
  if (document == nullptr) return E_INVALIDARG;
  document->reset();
  if (size > static_cast<size_t>(INT_MAX)) return S_FALSE;
  EnsureXmlInitialized();
  SilentErrors silence;
  ParserContextPtr context(xmlNewParserCtxt());
  if (context == nullptr || context->sax == nullptr) return E_OUTOFMEMORY;
  context->sax->serror = &IgnoreStructuredError;
  context->sax->entityDecl = &RefuseEntityDeclaration;
  context->sax->resolveEntity = &RefuseExternalResource;
  if (budget != nullptr) {
    context->_private = budget;
    context->sax->startElementNs = &CountedStartElement;
    context->sax->characters = &CountedCharacters;
    context->sax->cdataBlock = &CountedCData;
    context->sax->comment = &CountedComment;
    context->sax->processingInstruction = &CountedProcessingInstruction;
  }
  xmlDoc* parsed =
      xmlCtxtReadMemory(context.get(), data != nullptr ? data : "", static_cast<int>(size), nullptr, encoding, options);
  if (parsed == nullptr) return S_FALSE;
  DocumentPtr result(parsed);
  if (!context->wellFormed) return S_FALSE;
  RemoveBlankText(result.get());
  *document = std::move(result);
  return S_OK;
}

}  // namespace

void DocumentDeleter::operator()(xmlDoc* document) const noexcept { xmlFreeDoc(document); }
void XPathContextDeleter::operator()(xmlXPathContext* context) const noexcept { xmlXPathFreeContext(context); }
void XPathObjectDeleter::operator()(xmlXPathObject* object) const noexcept { xmlXPathFreeObject(object); }
void XPathCompiledDeleter::operator()(xmlXPathCompExpr* expression) const noexcept { xmlXPathFreeCompExpr(expression); }

DocumentPtr CreateDocument() {
  EnsureXmlInitialized();
  return DocumentPtr(xmlNewDoc(BAD_CAST "1.0"));
}

HRESULT LoadBytes(std::string_view bytes, DocumentPtr* document) {
  return Parse(bytes.data(), bytes.size(), nullptr, kParseOptions, document);
}

HRESULT LoadBytes(std::string_view bytes, size_t maxNodes, DocumentPtr* document, size_t* nodes) {
  NodeBudget budget{maxNodes};
  HRESULT hr = Parse(bytes.data(), bytes.size(), nullptr, kParseOptions, document, &budget);
  if (nodes != nullptr) *nodes = hr == S_OK ? budget.spent : 0;
  return hr;
}

HRESULT LoadText(std::u16string_view text, DocumentPtr* document) {
  std::string utf8 = QxUtils::WideToUtf8(text);
  return Parse(utf8.data(), utf8.size(), "UTF-8", kParseOptions | XML_PARSE_IGNORE_ENC, document);
}

HRESULT LoadFile(const char* path, DocumentPtr* document) {
  if (document == nullptr) return E_INVALIDARG;
  document->reset();
  if (path == nullptr) return E_INVALIDARG;
  std::unique_ptr<FILE, FileCloser> file(std::fopen(path, "rb"));
  if (file == nullptr) return S_FALSE;
  struct stat info {};
  if (fstat(fileno(file.get()), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > kMaxFileBytes) {
    return S_FALSE;
  }
  std::string bytes;
  bytes.resize(static_cast<size_t>(info.st_size));
  size_t got = bytes.empty() ? 0 : std::fread(bytes.data(), 1, bytes.size(), file.get());
  bytes.resize(got);
  return LoadBytes(bytes, document);
}

HRESULT LoadFile(const char16_t* path, DocumentPtr* document) {
  if (path == nullptr) {
    if (document != nullptr) document->reset();
    return E_INVALIDARG;
  }
  return LoadFile(QxUtils::WideToUtf8(path).c_str(), document);
}

xmlDoc* DocumentOf(const xmlNode* node) { return node != nullptr ? node->doc : nullptr; }

}  // namespace Norvane::Xml
