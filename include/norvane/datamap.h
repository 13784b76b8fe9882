// The in-memory model of a data-map document: data items, data maps and the
// collection of data maps, and the value conversions an item applies.
//
// Ownership: data items are plain objects (deleted through their virtual
// destructor by their owner); a DataMapSpec owns the items stored in it and is
// itself reference-counted; a DataMapSpecCollection holds one reference on each
// of its data maps.
//
// Name comparison: element names (local names) and protocol texts ignore ASCII
// case; attribute names, item keys and value keys compare exactly, code unit by
// code unit.
//
// Texts: every text field is a wide (UTF-16) string owned by its object, null
// when absent. Accessors return the object's own text; the caller must not free
// it, and it lives as long as the object and the field are unchanged. Running out
// of memory while copying a text throws Norvane::ComError carrying E_OUTOFMEMORY.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "norvane/com.h"
#include "norvane/disposable.h"
#include "norvane/export.h"
#include "norvane/platform.h"

typedef struct _xmlNode xmlNode;
typedef struct _xmlAttr xmlAttr;

namespace Norvane {

// Raw text (lower-cased) to replacement text, ordered by code unit.
using ConversionTable = std::map<std::u16string, std::u16string, std::less<>>;

// ---- Data items ----------------------------------------------------------

// The common part of every item: the name the caller asks for, the source
// attribute id, the value-key prefix and the two conversion tables.
class NORVANE_API NvoDataItem {
 public:
  NvoDataItem();
  // Reads "Name", "AttributeID" and "Prefix"; without "Name" the name is the
  // "AttributeID" text. A null node or a non-element reads nothing.
  explicit NvoDataItem(const xmlNode* element);
  // The attribute id is a copy of the name.
  NvoDataItem(const char16_t* name, const char16_t* prefix);
  NvoDataItem(const NvoDataItem& other);
  NvoDataItem& operator=(const NvoDataItem& other);
  virtual ~NvoDataItem();

  // Resets the fields this class adds (name, attribute id, prefix, tables).
  virtual void Initialize();

  const char16_t* GetName() const { return name_.Get(); }
  const char16_t* GetAttributeID() const { return attributeId_.Get(); }
  const char16_t* GetPrefix() const { return prefix_.Get(); }

  // Translates a raw value through the conversion tables: an exact (equals)
  // match first, then a contains match, then a "default" entry, else the raw
  // value itself. The input is only read; the result belongs to the caller.
  VARIANT ConvertValue(VARIANT value) const;

  // Adds conversions as one Conversion element with these attributes would:
  // an equals entry when `equals` and `value` are given, a contains entry when
  // `contains` and `value` are given. Keys are lower-cased (ASCII); a later
  // entry with the same key replaces the earlier value.
  void AddConversion(const char16_t* equals, const char16_t* contains, const char16_t* value);
  const ConversionTable& GetContainsConversions() const { return contains_; }
  const ConversionTable& GetEqualsConversions() const { return equals_; }

 protected:
  // Attribute readers over an element's attribute list; names match exactly.
  // TextValueOf: a copy of the text, null when absent.
  static BStr TextValueOf(const xmlAttr* attributes, const char* name);
  // True when present and "true" ignoring ASCII case.
  static bool BoolValueOf(const xmlAttr* attributes, const char* name);
  // Unsigned base 10 from the leading digits; "-1" is 4294967295; 0 when absent.
  static uint32_t UlongValueOf(const xmlAttr* attributes, const char* name);
  // Signed base 10 from the leading digits; 0 when absent.
  static int32_t IntValueOf(const xmlAttr* attributes, const char* name);
  // Local name equals `name` ignoring ASCII case.
  static bool ElementNameIs(const xmlNode* node, const char* name);
  // The attribute list of an element; null for a null node or a non-element.
  static const xmlAttr* AttributesOf(const xmlNode* element);

 private:
  BStr name_;
  BStr attributeId_;
  BStr prefix_;
  ConversionTable contains_;
  ConversionTable equals_;
};

// An item read from a device: lifespan (tenths of a second, 0 never expires),
// transient (never stored in the value table) and a type text.
class NORVANE_API DataItemSpec : public NvoDataItem {
 public:
  DataItemSpec();
  // Also reads "Type", "Transient", "LifeSpan" and the Conversion children.
  explicit DataItemSpec(const xmlNode* element);
  // Stores the low 32 bits of `lifespan`.
  DataItemSpec(const char16_t* name, bool transient, const char16_t* prefix, uint64_t lifespan, const char16_t* type);
  DataItemSpec(const DataItemSpec& other);
  DataItemSpec& operator=(const DataItemSpec& other);
  ~DataItemSpec() override;

  void Initialize() override;

  uint32_t GetLifespan() const { return lifespan_; }
  bool IsTransient() const { return transient_; }
  const char16_t* GetType() const { return type_.Get(); }

 protected:
  // Reads the Conversion children of an item element, in document order.
  void AddToConversionCollection(const xmlNode* element);

 private:
  uint32_t lifespan_ = 0;
  bool transient_ = false;
  BStr type_;
};

// A value selected by XPath from an XML resource of the device.
class NORVANE_API XMLDataItemSpec : public DataItemSpec {
 public:
  static XMLDataItemSpec* CreateXMLDataItem();
  static XMLDataItemSpec* CreateXMLDataItem(const xmlNode* element);
  static XMLDataItemSpec* CreateXMLDataItem(const char16_t* name, const char16_t* uri, const char16_t* xpath,
                                            const char16_t* prefix, bool transient, uint64_t lifespan,
                                            const char16_t* type);
  XMLDataItemSpec(const XMLDataItemSpec& other);
  XMLDataItemSpec& operator=(const XMLDataItemSpec& other);
  ~XMLDataItemSpec() override;

  void Initialize() override;

  const char16_t* GetUri() const { return uri_.Get(); }
  const char16_t* GetXPath() const { return xpath_.Get(); }

 protected:
  XMLDataItemSpec();
  explicit XMLDataItemSpec(const xmlNode* element);
  XMLDataItemSpec(const char16_t* name, const char16_t* uri, const char16_t* xpath, const char16_t* prefix,
                  bool transient, uint64_t lifespan, const char16_t* type);

 private:
  BStr uri_;
  BStr xpath_;
};

class NextOIDDataItemSpec;
class OIDGetDataItemsSpec;

// An SNMP object, alone or as part of a group.
class NORVANE_API OIDDataItemSpec : public DataItemSpec {
 public:
  static OIDDataItemSpec* CreateOIDDataItemSpec();
  static OIDDataItemSpec* CreateOIDDataItemSpec(const xmlNode* element);
  static OIDDataItemSpec* CreateOIDDataItemSpec(const char16_t* name, const char16_t* oid, const char16_t* group,
                                                bool transient, const char16_t* prefix, uint64_t lifespan,
                                                const char16_t* type);
  OIDDataItemSpec(const OIDDataItemSpec& other);
  OIDDataItemSpec& operator=(const OIDDataItemSpec& other);
  ~OIDDataItemSpec() override;

  void Initialize() override;
  // How a mapper tells the three OID kinds apart: each returns the object itself
  // for its own kind and null for the others.
  virtual NextOIDDataItemSpec* GetNextOIDDataItemSpec();
  virtual OIDGetDataItemsSpec* GetOIDGetDataItemsSpec();

  // The OID text as stored.
  const char16_t* GetOid() const { return oid_.Get(); }
  const char16_t* GetGroup() const { return group_.Get(); }

 protected:
  OIDDataItemSpec();
  explicit OIDDataItemSpec(const xmlNode* element);
  OIDDataItemSpec(const char16_t* name, const char16_t* oid, const char16_t* group, bool transient,
                  const char16_t* prefix, uint64_t lifespan, const char16_t* type);

 private:
  BStr group_;
  BStr oid_;
};

// A walk of get-next requests from an OID: `Count` objects, or until the end of
// the subtree.
class NORVANE_API NextOIDDataItemSpec : public OIDDataItemSpec {
 public:
  static NextOIDDataItemSpec* CreateNextOidDataItemSpec();
  static NextOIDDataItemSpec* CreateNextOidDataItemSpec(const xmlNode* element);
  static NextOIDDataItemSpec* CreateNextOidDataItemSpec(const char16_t* name, const char16_t* oid,
                                                        const char16_t* group, bool transient, const char16_t* prefix,
                                                        uint64_t lifespan, const char16_t* type, bool untilEnd,
                                                        int32_t count);
  NextOIDDataItemSpec(const NextOIDDataItemSpec& other);
  NextOIDDataItemSpec& operator=(const NextOIDDataItemSpec& other);
  ~NextOIDDataItemSpec() override;

  void Initialize() override;
  NextOIDDataItemSpec* GetNextOIDDataItemSpec() override;
  OIDGetDataItemsSpec* GetOIDGetDataItemsSpec() override;

  int32_t Count() const { return count_; }
  bool IsUntilEnd() const { return untilEnd_; }

 protected:
  NextOIDDataItemSpec();
  explicit NextOIDDataItemSpec(const xmlNode* element);
  NextOIDDataItemSpec(const char16_t* name, const char16_t* oid, const char16_t* group, bool transient,
                      const char16_t* prefix, uint64_t lifespan, const char16_t* type, bool untilEnd, int32_t count);

 private:
  int32_t count_ = 0;
  bool untilEnd_ = false;
};

// Several objects from an OID template whose first "N" stands for a row index:
// each generated OID puts the current N counter there and advances it.
class NORVANE_API OIDGetDataItemsSpec : public OIDDataItemSpec {
 public:
  static OIDGetDataItemsSpec* CreateOIDGetDataItemsSpec();
  static OIDGetDataItemsSpec* CreateOIDGetDataItemsSpec(const xmlNode* element);
  // The N counter starts at 0 whatever `n` says.
  static OIDGetDataItemsSpec* CreateOIDGetDataItemsSpec(const char16_t* name, const char16_t* oid,
                                                        const char16_t* group, bool transient, const char16_t* prefix,
                                                        uint64_t lifespan, const char16_t* type, bool untilEnd,
                                                        int32_t count, const char16_t* n);
  OIDGetDataItemsSpec(const OIDGetDataItemsSpec& other);
  OIDGetDataItemsSpec& operator=(const OIDGetDataItemsSpec& other);
  ~OIDGetDataItemsSpec() override;

  void Initialize() override;
  NextOIDDataItemSpec* GetNextOIDDataItemSpec() override;
  OIDGetDataItemsSpec* GetOIDGetDataItemsSpec() override;

  int32_t Count() const { return count_; }
  bool IsUntilEnd() const { return untilEnd_; }
  // The N text as given (null when the element had no "N").
  const char16_t* GetN() const { return n_.Get(); }
  // The next generated OID; empty when the N text is null. Hides the inherited
  // GetOid, which still returns the template.
  std::u16string GetOid();
  // The next generated OID, whatever the N text. A template without "N" comes
  // back unchanged (the counter still advances).
  std::u16string GetNextOid();
  int32_t GetNCounter() const { return nCounter_; }

 protected:
  OIDGetDataItemsSpec();
  explicit OIDGetDataItemsSpec(const xmlNode* element);
  OIDGetDataItemsSpec(const char16_t* name, const char16_t* oid, const char16_t* group, bool transient,
                      const char16_t* prefix, uint64_t lifespan, const char16_t* type, bool untilEnd, int32_t count,
                      const char16_t* n);

 private:
  std::u16string FindAndReplaceNInOID();

  BStr n_;
  int32_t nCounter_ = 0;
  int32_t count_ = 0;
  bool untilEnd_ = false;
};

// A constant: the element's text content. Reads no lifespan, type or
// conversions; its tables stay empty unless AddConversion fills them.
class NORVANE_API StaticDataItemSpec : public NvoDataItem {
 public:
  static StaticDataItemSpec* CreateStaticDataItemSpec();
  static StaticDataItemSpec* CreateStaticDataItemSpec(const xmlNode* element);
  static StaticDataItemSpec* CreateStaticDataItemSpec(const char16_t* name, const char16_t* value,
                                                      const char16_t* prefix);
  StaticDataItemSpec(const StaticDataItemSpec& other);
  StaticDataItemSpec& operator=(const StaticDataItemSpec& other);
  ~StaticDataItemSpec() override;

  void Initialize() override;

  const char16_t* GetStaticDataItemValue() const { return value_.Get(); }

 protected:
  StaticDataItemSpec();
  explicit StaticDataItemSpec(const xmlNode* element);
  StaticDataItemSpec(const char16_t* name, const char16_t* value, const char16_t* prefix);

 private:
  BStr value_;
};

// An IPP attribute (the attribute id), with the request parameters to reach it.
class NORVANE_API IPPDataItemSpec : public DataItemSpec {
 public:
  static IPPDataItemSpec* CreateIPPDataItemSpec();
  static IPPDataItemSpec* CreateIPPDataItemSpec(const xmlNode* element);
  // Resource URI, charset and language stay null; the job URI is kept only
  // together with a (non-null) command.
  static IPPDataItemSpec* CreateIPPDataItemSpec(const char16_t* name, const char16_t* command, bool transient,
                                                const char16_t* prefix, const char16_t* jobUri, uint64_t lifespan,
                                                const char16_t* type);
  IPPDataItemSpec(const IPPDataItemSpec& other);
  IPPDataItemSpec& operator=(const IPPDataItemSpec& other);
  ~IPPDataItemSpec() override;

  void Initialize() override;

  const char16_t* GetCommand() const { return command_.Get(); }
  const char16_t* GetJobUri() const { return jobUri_.Get(); }
  const char16_t* GetResourceUri() const { return resourceUri_.Get(); }
  const char16_t* GetCharSet() const { return charset_.Get(); }
  const char16_t* GetLang() const { return lang_.Get(); }

 protected:
  IPPDataItemSpec();
  explicit IPPDataItemSpec(const xmlNode* element);
  IPPDataItemSpec(const char16_t* name, const char16_t* command, bool transient, const char16_t* prefix,
                  const char16_t* jobUri, uint64_t lifespan, const char16_t* type);

 private:
  BStr command_;
  BStr jobUri_;
  BStr resourceUri_;
  BStr charset_;
  BStr lang_;
};

// ---- Data maps -------------------------------------------------------------

// The kind of a data map, from its protocol text (ASCII case ignored).
enum DataMapTypeEnum : int32_t {
  DataMapTypeNone = 0,
  DataMapTypeVEXA = 1,
  DataMapTypeWS = 2,
  DataMapTypePLSXML = 3,
  DataMapTypeIPP = 4,
  DataMapTypeOID = 5,
};

// The data items of one protocol, by key in code-unit order. Reference-counted:
// created with one reference, destroyed (with its items) by the last Dispose.
// One walk (Begin / GetNextDataItemSpec / RemoveFromMap) at a time; not
// thread-safe.
class NORVANE_API DataMapSpec : public IDisposableImpl {
 public:
  static DataMapSpec* CreateDataMapSpec();
  // From an XMLDataMap, OIDDataMap or IPPDataMap element; anything else (a
  // comment, an unknown element, null) gives an empty data map without protocol.
  static DataMapSpec* CreateDataMapSpec(const xmlNode* element);
  // Empty, with the protocol text of `type` (empty outside 1 to 5).
  static DataMapSpec* CreateDataMapSpec(DataMapTypeEnum type);

  // Stores the item under `name` and takes ownership; an item already stored
  // under that key is destroyed. A null item is ignored.
  void AddDataItemSpec(std::u16string name, NvoDataItem* item);
  // The item stored under exactly this key, or null. The map keeps ownership.
  NvoDataItem* GetDataItemSpec(std::u16string_view name) const;

  DataMapTypeEnum GetDataMapType() const;
  std::u16string GetProtocolType() const { return protocol_; }
  int32_t SizeOf() const;

  // The walk. A new data map's cursor stands past the end: call Begin first.
  void Begin();
  // The item at the cursor, moving on; null past the last item.
  NvoDataItem* GetNextDataItemSpec();
  // Destroys the item the last GetNextDataItemSpec returned; the cursor stays on
  // the item after it. Does nothing when the cursor is past the last item (so
  // the last item cannot be removed this way) or when nothing has been returned
  // since Begin or the previous removal.
  void RemoveFromMap();

 protected:
  DataMapSpec();
  ~DataMapSpec() override;

 private:
  using ItemTable = std::map<std::u16string, NvoDataItem*, std::less<>>;

  void Build(const xmlNode* element);

  ItemTable items_;
  ItemTable::iterator cursor_;
  bool returnedSinceBegin_ = false;
  std::u16string protocol_;
};

// The data maps of one document, in document order.
class NORVANE_API DataMapSpecCollection {
 public:
  static DataMapSpecCollection* CreateDataMapSpecCollection();
  // One data map per child node of the DataMaps element (comments and unknown
  // elements give empty data maps). A null node gives an empty collection.
  static DataMapSpecCollection* CreateDataMapSpecCollection(const xmlNode* dataMaps);

  // Appends; takes over the caller's reference (adds none). Null is ignored.
  void AddDataMapSpec(DataMapSpec* spec);
  int32_t GetCount() const;
  // The data map at a 0-based index without adding a reference; null outside
  // 0 to GetCount() - 1.
  DataMapSpec* GetDataMapSpec(int32_t index) const;

  // Destroys the collection (dropping its references).
  void Dispose();
  // The same, doing nothing for a null collection.
  static void Dispose(DataMapSpecCollection* collection);

  virtual ~DataMapSpecCollection();
  DataMapSpecCollection(const DataMapSpecCollection&) = delete;
  DataMapSpecCollection& operator=(const DataMapSpecCollection&) = delete;

 protected:
  DataMapSpecCollection();

 private:
  std::vector<DataMapSpec*> maps_;
};

}  // namespace Norvane
