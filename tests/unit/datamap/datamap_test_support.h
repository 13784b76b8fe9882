// Shared helpers of the data-map tests: documents from literal text, owned
// results of ConvertValue, fixture paths.
#pragma once

#include <gtest/gtest.h>
#include <libxml/tree.h>

#include <memory>
#include <string>
#include <string_view>

#include "norvane/com.h"
#include "norvane/datamap.h"
#include "platform/xml.h"
#include "support/ref.h"

namespace DataMapTest {

inline Norvane::Xml::DocumentPtr Parse(std::string_view xml) {
  Norvane::Xml::DocumentPtr document;
  EXPECT_EQ(Norvane::Xml::LoadBytes(xml, &document), S_OK) << xml;
  return document;
}

inline xmlNode* Root(const Norvane::Xml::DocumentPtr& document) {
  return document ? xmlDocGetRootElement(document.get()) : nullptr;
}

// Text of a nullable wide field, with null told apart from empty.
inline std::string Show(const char16_t* text) {
  if (text == nullptr) return "<null>";
  std::string out;
  for (const char16_t* p = text; *p != 0; ++p) out.push_back(*p < 0x80 ? static_cast<char>(*p) : '?');
  return out;
}

// Takes ownership of a VARIANT the library returned.
inline Norvane::Variant Adopt(VARIANT value) {
  Norvane::Variant owned;
  *owned.Ptr() = value;
  return owned;
}

inline std::string ShowVariant(const Norvane::Variant& value) {
  const VARIANT& v = value.Get();
  switch (v.vt) {
    case VT_EMPTY:
      return "empty";
    case VT_I4:
      return "i4:" + std::to_string(v.lVal);
    case VT_BSTR:
      return "str:" + Show(v.bstrVal);
    default:
      return "vt" + std::to_string(v.vt);
  }
}

inline std::string FixturePath(const char* name) {
  return std::string(NORVANE_SOURCE_DIR) + "/tests/fixtures/datamaps/" + name;
}

using DataMapRef = QxUtils::Ref<Norvane::DataMapSpec>;

struct DisposeCollection {
  void operator()(Norvane::DataMapSpecCollection* c) const { Norvane::DataMapSpecCollection::Dispose(c); }
};
using CollectionRef = std::unique_ptr<Norvane::DataMapSpecCollection, DisposeCollection>;

}  // namespace DataMapTest
