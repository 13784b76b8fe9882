#include "collect.h"

#include <libxml/parser.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>

namespace NorvaneCli {

namespace {

struct XmlDocFree {
  void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};

// 100-ns units since 1601, as the caches stamp values.
uint64_t NowFileTime() {
  auto since1970 =
      std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch());
  return static_cast<uint64_t>(since1970.count() / 100) + 116444736000000000ull;
}

// The value a registry cache handed the collection is still valid when its
// read time plus the item's lifespan lies ahead.
bool CacheHolds(Norvane::ICacheProvider* cache, const DataMapKey& key, uint64_t now) {
  if (cache == nullptr) return false;
  Norvane::Variant value, expires;
  if (cache->GetDataValue(key.key.c_str(), value.Ptr()) != S_OK) return false;
  std::u16string expiresName = key.key + u".Expires";
  if (cache->GetDataValue(expiresName.c_str(), expires.Ptr()) != S_OK) return false;
  uint64_t stamp = 0;
  try {
    stamp = std::stoull(VariantText(expires.Get()));
  } catch (const std::exception&) {
    return false;
  }
  if (stamp == 0 || key.lifespan == 0) return true;
  return now >= stamp && now - stamp <= uint64_t{key.lifespan} * 1000000u;
}

bool Wanted(const std::vector<std::string>& only, const std::string& key) {
  if (only.empty()) return true;
  for (const auto& k : only) {
    if (k == key || key.rfind(k + ".", 0) == 0) return true;
  }
  return false;
}

// One registry key component: letters, digits, '-', '_' and '.' (not first) as
// they are, every other byte as %XX, so that ':' of a port, the brackets of an
// IPv6 literal or a path's '/' can never split or escape the key.
std::string KeyComponent(const std::string& text) {
  std::string out;
  for (unsigned char c : text) {
    bool plain = std::isalnum(c) || c == '-' || c == '_' || (c == '.' && !out.empty());
    if (plain) {
      out.push_back(static_cast<char>(c));
    } else {
      char escaped[4];
      std::snprintf(escaped, sizeof escaped, "%%%02X", c);
      out += escaped;
    }
  }
  return out;
}

// The host hands over an SNMP counter or gauge above 2^31 - 1 as its decimal
// text; JSON readers expect the counter as a number whatever its size.
nlohmann::json SnmpNumber(nlohmann::json value) {
  if (!value.is_string()) return value;
  const std::string& text = value.get_ref<const std::string&>();
  if (text.size() < 10 || text.size() > 20 || text[0] == '0' ||
      text.find_first_not_of("0123456789") != std::string::npos) {
    return value;
  }
  errno = 0;
  unsigned long long number = std::strtoull(text.c_str(), nullptr, 10);
  if (errno != 0 || number <= 0x7FFFFFFFull) return value;
  return static_cast<uint64_t>(number);
}

}  // namespace

std::string NamedIppResource(const std::string& text, const Target& target) {
  size_t scheme = text.find("://");
  const bool uriPath =
      text.rfind("ipp", 0) == 0 && scheme != std::string::npos && text.find('/', scheme + 3) != std::string::npos;
  return uriPath ? target.resource : std::string();
}

std::u16string CacheKeyPath(const Target& target, const std::string& file) {
  std::string printer = target.host + (target.port.empty() ? "" : ":" + target.port);
  std::string document = std::filesystem::path(file).filename().string();
  return ToUtf16("Software\\Norvane\\Cache\\" + KeyComponent(printer) + "\\" + KeyComponent(document));
}

std::vector<DataMapKey> ReadDataMapKeys(const std::string& file) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(file, error)) {
    throw Failure(kExitUsage, "data map '" + file + "': no such file");
  }
  xmlResetLastError();
  std::unique_ptr<xmlDoc, XmlDocFree> doc(xmlReadFile(
      file.c_str(), nullptr, XML_PARSE_NOBLANKS | XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
  if (!doc) {
    const xmlError* last = xmlGetLastError();
    std::string why = last != nullptr && last->message != nullptr ? last->message : "cannot be read";
    while (!why.empty() && (why.back() == '\n' || why.back() == ' ')) why.pop_back();
    std::string line = last != nullptr && last->line > 0 ? " (line " + std::to_string(last->line) + ")" : "";
    throw Failure(kExitUsage, "data map '" + file + "' is not well-formed XML" + line + ": " + why);
  }
  xmlNode* root = xmlDocGetRootElement(doc.get());
  if (root == nullptr || xmlStrcmp(root->name, BAD_CAST "DataMaps") != 0) {
    throw Failure(kExitUsage, "data map '" + file + "' has no DataMaps root element");
  }
  auto* specs = Norvane::DataMapSpecCollection::CreateDataMapSpecCollection(root);
  std::vector<DataMapKey> keys;
  // Several data maps of one document usually offer the same keys (one per
  // protocol); only one of them answers, so each key is asked for once.
  std::map<std::u16string, size_t> seen;
  for (int32_t m = 0; specs != nullptr && m < specs->GetCount(); ++m) {
    Norvane::DataMapSpec* map = specs->GetDataMapSpec(m);
    if (map == nullptr || map->GetDataMapType() == Norvane::DataMapTypeNone) continue;
    std::string protocol = ToUtf8(map->GetProtocolType());
    if (protocol.empty()) protocol = map->GetDataMapType() == Norvane::DataMapTypeOID ? "SNMP" : "IPP";
    // The request parameters of an IPP data map are an item, but no value.
    Norvane::NvoDataItem* params = map->GetDataItemSpec(u"IPPParams");
    map->Begin();
    while (Norvane::NvoDataItem* item = map->GetNextDataItemSpec()) {
      if (item == params || item->GetName() == nullptr) continue;
      DataMapKey key;
      key.protocol = protocol;
      if (item->GetPrefix() != nullptr && *item->GetPrefix() != 0) key.key = std::u16string(item->GetPrefix()) + u":";
      key.key += item->GetName();
      key.isStatic = dynamic_cast<Norvane::StaticDataItemSpec*>(item) != nullptr;
      if (auto* oid = dynamic_cast<Norvane::OIDDataItemSpec*>(item)) {
        key.isWalk = oid->GetNextOIDDataItemSpec() != nullptr || oid->GetOIDGetDataItemsSpec() != nullptr;
        if (auto* rows = oid->GetOIDGetDataItemsSpec()) {
          // This copy of the item is thrown away: advancing its row counter
          // leaves the collection's own copy alone.
          key.oids = {rows->GetOid(), rows->GetNextOid()};
        } else if (!key.isWalk && oid->GetOid() != nullptr && (oid->GetGroup() == nullptr || *oid->GetGroup() == 0)) {
          key.oids = {oid->GetOid()};
        }
      }
      if (auto* device = dynamic_cast<Norvane::DataItemSpec*>(item)) key.lifespan = device->GetLifespan();
      auto [at, added] = seen.emplace(key.key, keys.size());
      if (added) keys.push_back(std::move(key));
      if (auto* fixed = dynamic_cast<Norvane::StaticDataItemSpec*>(item)) {
        const char16_t* text = fixed->GetStaticDataItemValue();
        keys[at->second].staticTexts.emplace_back(protocol, text != nullptr ? text : u"");
      }
    }
  }
  Norvane::DataMapSpecCollection::Dispose(specs);
  if (keys.empty()) throw Failure(kExitUsage, "data map '" + file + "' names no values");
  return keys;
}

namespace {

// Reads the SNMP objects the collection is about to ask for one at a time in one
// get-several first: the host answers the library's GETs of the next second from
// that answer, and reads a table's further rows with one GETBULK once the
// library walks it row by row. The library's calls stay as they are; a printer
// costs a handful of requests instead of one per object. Nothing is lost when
// the printer does not answer: the library then finds that out itself.
void ReadSnmpObjectsAhead(Norvane::QxNetAddress* address, const std::vector<DataMapKey>& keys,
                          const std::vector<std::string>& only, bool cached) {
  // The object the library detects an SNMP printer by, and the identity it
  // reads for a cache.
  std::vector<std::u16string> oids = {kSnmpDetectionOid};
  if (cached) oids.push_back(u"1.3.6.1.4.1.32473.2.3.9.4.2.1.1.3.3.0");
  const size_t before = oids.size();
  for (const auto& key : keys) {
    if (Wanted(only, ToUtf8(key.key))) oids.insert(oids.end(), key.oids.begin(), key.oids.end());
  }
  if (oids.size() == before) return;
  Norvane::MIBConnection* made = nullptr;
  if (FAILED(address->GetMIBConnection(&made)) || made == nullptr) return;
  Owned<Norvane::MIBConnection> connection(made);
  std::vector<const char16_t*> texts;
  for (const auto& oid : oids) texts.push_back(oid.c_str());
  std::vector<VARIANT> values(oids.size());
  for (auto& value : values) VariantInit(&value);
  connection->GetMultipleValues(texts.data(), values.data(), static_cast<uint32_t>(values.size()));
  for (auto& value : values) VariantClear(&value);
}

}  // namespace

Collection CollectOnce(Norvane::QxNetAddress* address, const std::string& file, const std::vector<DataMapKey>& keys,
                       const std::vector<std::string>& only, const std::u16string& cacheKey,
                       const std::string& ippResource) {
  Collection result;
  result.file = file;
  Owned<Norvane::ICacheProvider> cache;
  if (!cacheKey.empty()) cache.reset(CreateRegCacheProvider(cacheKey.c_str()));
  Norvane::DataCollection* made = nullptr;
  ReadSnmpObjectsAhead(address, keys, only, cache != nullptr);
  SetLastError(0);
  HRESULT status;
  if (ippResource.empty()) {
    status = CreateDataCollectionFromFile(address, ToUtf16(file).c_str(), &made, cache.get());
  } else {
    // The printer's queue is where the user's URI points, not where the data
    // map's sample printer had it.
    std::ifstream in(file, std::ios::binary);
    std::string xml((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    static const std::regex kIppResource(R"((<IPPParams\b[^>]*\bResourceURI=")[^"]*")");
    xml = std::regex_replace(xml, kIppResource, "$1" + ippResource + "\"");
    status = CreateDataCollectionFromXML(address, ToUtf16(xml).c_str(), &made, cache.get());
  }
  if (status != S_OK || made == nullptr) {
    uint32_t lastError = GetLastError();
    bool snmp = std::any_of(keys.begin(), keys.end(),
                            [](const DataMapKey& k) { return k.protocol == "OID" || k.protocol == "SNMP"; });
    std::string hint = snmp ? SnmpDetectionHint(address) : std::string();
    result.error = "no protocol of " + std::filesystem::path(file).filename().string() +
                   " answered: " + (hint.empty() ? DescribeStatus(status, lastError) : hint);
    return result;
  }
  Owned<Norvane::DataCollection> collection(made);
  std::string identified;
  const uint64_t now = NowFileTime();

  auto read = [&](const std::u16string& key, const DataMapKey& spec, const char* source) {
    Norvane::Variant value;
    if (collection->GetValue(key.c_str(), value.Ptr()) != S_OK) return false;
    if (!spec.isStatic) ++result.answered;
    nlohmann::json json = VariantJson(value.Get());
    if (!spec.isStatic && (spec.protocol == "OID" || spec.protocol == "SNMP")) json = SnmpNumber(std::move(json));
    result.values.push_back({ToUtf8(key), std::move(json), VariantText(value.Get()), source});
    if (!spec.isStatic && result.protocol.empty()) result.protocol = spec.protocol;
    const VARIANT& raw = value.Get();
    if (spec.isStatic && spec.staticTexts.size() > 1 && raw.vt == VT_BSTR && raw.bstrVal != nullptr) {
      std::u16string text(raw.bstrVal, SysStringLen(raw.bstrVal));
      std::string only;
      int matches = 0;
      for (const auto& [protocol, candidate] : spec.staticTexts) {
        if (candidate == text) only = protocol, ++matches;
      }
      if (matches == 1) identified = only;
    }
    return true;
  };
  for (const auto& spec : keys) {
    if (!Wanted(only, ToUtf8(spec.key))) continue;
    const char* source = spec.isStatic ? "static" : CacheHolds(cache.get(), spec, now) ? "cache" : "device";
    // What the printer lacks is listed, so that a reader sees it was asked for.
    auto notReported = [&](const std::u16string& key) {
      result.values.push_back({ToUtf8(key), nullptr, VariantText(VARIANT{}), "device"});
    };
    if (!spec.isWalk) {
      if (!read(spec.key, spec, source)) notReported(spec.key);
      continue;
    }
    // A walk answers its elements under KEY.000 (the base object), KEY.001, ...
    // Asking for KEY runs it; a walk that ends on a missing row reports that
    // row's failure although it stored every element before it.
    Norvane::Variant marker;
    collection->GetValue(spec.key.c_str(), marker.Ptr());
    for (uint32_t i = 0; i < 1000; ++i) {
      char suffix[16];
      std::snprintf(suffix, sizeof suffix, ".%03u", i);
      if (!read(spec.key + ToUtf16(suffix), spec, source) && i > 0) break;
    }
  }
  if (!identified.empty()) result.protocol = identified;
  if (result.answered == 0) result.error = "the printer answered none of the values";
  return result;
}

nlohmann::json CollectionJson(const Collection& collection) {
  nlohmann::json out = {{"datamap", std::filesystem::path(collection.file).filename().string()}};
  if (!collection.protocol.empty()) out["protocol"] = collection.protocol;
  nlohmann::json values = nlohmann::json::array();
  for (const auto& v : collection.values) values.push_back({{"key", v.key}, {"value", v.value}, {"source", v.source}});
  out["values"] = std::move(values);
  if (!collection.error.empty()) out["error"] = collection.error;
  return out;
}

void PrintCollection(const Collection& collection, const std::string& address) {
  std::string name = std::filesystem::path(collection.file).filename().string();
  std::printf("%s at %s%s\n", name.c_str(), address.c_str(),
              collection.protocol.empty() ? "" : (" over " + collection.protocol).c_str());
  if (collection.answered == 0) {
    std::printf("  %s\n\n", collection.error.c_str());
    return;
  }
  Table table({"  KEY", "VALUE", "SOURCE"});
  for (const auto& v : collection.values) table.Add({"  " + v.key, v.text, v.source});
  table.Print(stdout);
  std::printf("\n");
}

}  // namespace NorvaneCli
