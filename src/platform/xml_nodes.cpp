// Node reads: names, attributes and text content (see xml.h).
#include <libxml/entities.h>

#include <cstring>
#include <string>

#include "platform/utf.h"
#include "platform/xml.h"

namespace Norvane::Xml {

namespace {

std::string_view View(const xmlChar* text) {
  return text == nullptr ? std::string_view() : std::string_view(reinterpret_cast<const char*>(text));
}

char AsciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// A document the caller parsed without substituting entities keeps entity
// references as nodes; their text is the entity's replacement text, as a DOM's
// text reads report it. Only entities declared inside the document are
// expanded (an external one would mean reading a file or the network), and
// nesting and size are bounded so that a caller's entity bomb costs little.
constexpr int kMaxEntityDepth = 8;
constexpr size_t kMaxExpandedBytes = 8u << 20;

void AppendEntityText(const xmlNode* reference, std::string* out, int depth);

void AppendNodeText(const xmlNode* node, std::string* out, int depth) {
  for (; node != nullptr && out->size() <= kMaxExpandedBytes; node = node->next) {
    if (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) {
      out->append(View(node->content));
    } else if (node->type == XML_ENTITY_REF_NODE) {
      AppendEntityText(node, out, depth + 1);
    } else if (node->type == XML_ELEMENT_NODE && depth < kMaxEntityDepth) {
      AppendNodeText(node->children, out, depth + 1);
    }
  }
}

void AppendEntityText(const xmlNode* reference, std::string* out, int depth) {
  if (depth > kMaxEntityDepth || out->size() > kMaxExpandedBytes || reference->doc == nullptr) return;
  const xmlEntity* entity = xmlGetDocEntity(reference->doc, reference->name);
  if (entity == nullptr ||
      (entity->etype != XML_INTERNAL_GENERAL_ENTITY && entity->etype != XML_INTERNAL_PREDEFINED_ENTITY)) {
    return;
  }
  if (entity->children != nullptr) {
    AppendNodeText(entity->children, out, depth);
  } else {
    out->append(View(entity->content));
  }
}

void AppendDescendantText(const xmlNode* parent, std::string* out) {
  const xmlNode* node = parent->children;
  while (node != nullptr) {
    if (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) {
      out->append(View(node->content));
    } else if (node->type == XML_ENTITY_REF_NODE) {
      AppendEntityText(node, out, 0);
    } else if (node->type == XML_ELEMENT_NODE && node->children != nullptr) {
      node = node->children;
      continue;
    }
    while (node != nullptr && node->next == nullptr) {
      node = node->parent;
      if (node == parent) node = nullptr;
    }
    if (node != nullptr) node = node->next;
  }
}

}  // namespace

bool IsElement(const xmlNode* node) { return node != nullptr && node->type == XML_ELEMENT_NODE; }

std::string_view LocalName(const xmlNode* node) {
  if (node == nullptr || (node->type != XML_ELEMENT_NODE && node->type != XML_ATTRIBUTE_NODE)) return {};
  return View(node->name);
}

bool LocalNameIs(const xmlNode* node, std::string_view name) {
  std::string_view local = LocalName(node);
  if (local.size() != name.size() || local.empty()) return false;
  for (size_t i = 0; i < local.size(); ++i) {
    if (AsciiLower(local[i]) != AsciiLower(name[i])) return false;
  }
  return true;
}

// Attribute names compare exactly, prefix included: "x:Name" is not "Name".
const xmlAttr* FindAttribute(const xmlAttr* attributes, std::string_view name) {
  for (const xmlAttr* attribute = attributes; attribute != nullptr; attribute = attribute->next) {
    std::string_view local = View(attribute->name);
    std::string_view prefix = attribute->ns != nullptr ? View(attribute->ns->prefix) : std::string_view();
    if (prefix.empty()) {
      if (local == name) return attribute;
    } else if (name.size() == prefix.size() + 1 + local.size() && name.starts_with(prefix) &&
               name[prefix.size()] == ':' && name.ends_with(local)) {
      return attribute;
    }
  }
  return nullptr;
}

const xmlAttr* FindAttribute(const xmlNode* element, std::string_view name) {
  if (!IsElement(element)) return nullptr;
  return FindAttribute(element->properties, name);
}

std::string_view AttributeText(const xmlAttr* attribute, std::string* storage) {
  storage->clear();
  if (attribute == nullptr) return {};
  const xmlNode* first = attribute->children;
  if (first != nullptr && first->next == nullptr && first->type == XML_TEXT_NODE) return View(first->content);
  AppendNodeText(first, storage, 0);
  return *storage;
}

std::string AttributeText(const xmlAttr* attribute) {
  std::string storage;
  std::string_view text = AttributeText(attribute, &storage);
  return text.data() == storage.data() ? storage : std::string(text);
}

std::optional<std::string> AttributeText(const xmlNode* element, std::string_view name) {
  const xmlAttr* attribute = FindAttribute(element, name);
  if (attribute == nullptr) return std::nullopt;
  return AttributeText(attribute);
}

std::string TextContentUtf8(const xmlNode* node) {
  if (node == nullptr) return {};
  switch (node->type) {
    case XML_TEXT_NODE:
    case XML_CDATA_SECTION_NODE:
    case XML_COMMENT_NODE:
    case XML_PI_NODE:
      return std::string(View(node->content));
    case XML_ATTRIBUTE_NODE:
      return AttributeText(reinterpret_cast<const xmlAttr*>(node));
    case XML_ELEMENT_NODE:
    case XML_DOCUMENT_NODE:
    case XML_HTML_DOCUMENT_NODE:
    case XML_DOCUMENT_FRAG_NODE: {
      std::string text;
      AppendDescendantText(node, &text);
      return text;
    }
    default:
      return {};
  }
}

std::u16string TextContent(const xmlNode* node) { return QxUtils::Utf8ToWide(TextContentUtf8(node)); }

}  // namespace Norvane::Xml
