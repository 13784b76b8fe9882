// Node reads: names, attributes and text content, none of which expands entity
// references (see xml.h).
#include <cstring>
#include <string>

#include "platform/xml.h"
#include "support/string_utils.h"

namespace Norvane::Xml {

namespace {

std::string_view View(const xmlChar* text) {
  return text == nullptr ? std::string_view() : std::string_view(reinterpret_cast<const char*>(text));
}

char AsciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

void AppendDescendantText(const xmlNode* parent, std::string* out) {
  const xmlNode* node = parent->children;
  while (node != nullptr) {
    if (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) {
      out->append(View(node->content));
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

const xmlAttr* FindAttribute(const xmlAttr* attributes, std::string_view name) {
  for (const xmlAttr* attribute = attributes; attribute != nullptr; attribute = attribute->next) {
    if (View(attribute->name) == name) return attribute;
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
  for (const xmlNode* part = first; part != nullptr; part = part->next) {
    if (part->type == XML_TEXT_NODE) storage->append(View(part->content));
  }
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
