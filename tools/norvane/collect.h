// One data collection over one data-map document, as `collect`, fleet mode and
// the demo run it.
#pragma once

#include <string>
#include <vector>

#include "cli.h"

namespace NorvaneCli {

// What a data-map document offers: every key a caller can ask for.
struct DataMapKey {
  std::u16string key;
  std::string protocol;  // of the data map holding the item
  bool isStatic = false;
  bool isWalk = false;    // answers "KEY.###" and the elements KEY.000, KEY.001, ...
  uint32_t lifespan = 0;  // tenths of a second, 0 never expires
  // A static item's text in each data map that has it: the text the collection
  // answers tells which data map (so which protocol) the device answered.
  std::vector<std::pair<std::string, std::u16string>> staticTexts;
  // The SNMP objects the key reads first: its object, or a row walk's first two rows.
  std::vector<std::u16string> oids;
};
// Reads the document; a missing, unreadable or malformed file is a Failure.
std::vector<DataMapKey> ReadDataMapKeys(const std::string& file);

struct CollectedValue {
  std::string key;
  nlohmann::json value;
  std::string text;
  std::string source;  // device, cache or static
};

struct Collection {
  size_t answered = 0;  // values the printer (or the cache) gave
  std::string file;
  std::string protocol;  // of the data map that answered
  std::vector<CollectedValue> values;
  std::string error;  // why nothing was collected
};

// keys: only these (empty: all). cacheKey: the registry cache key path, empty for
// none. ippResource: the IPP items' resource path instead of the data map's
// (the path of the printer URI the user gave), empty to keep the data map's.
Collection CollectOnce(Norvane::QxNetAddress* address, const std::string& file, const std::vector<DataMapKey>& keys,
                       const std::vector<std::string>& only, const std::u16string& cacheKey,
                       const std::string& ippResource = {});

nlohmann::json CollectionJson(const Collection& collection);
void PrintCollection(const Collection& collection, const std::string& address);

// The IPP resource that the text naming a printer gives (the path of an ipp or
// ipps URI), for CollectOnce; empty when the text names none.
std::string NamedIppResource(const std::string& text, const Target& target);

// The registry cache key path of one printer and data-map document: below
// Software\Norvane\Cache, the printer's address and the document's file name, each
// one key. The library adds the device's identity below it, but a printer that
// reports none would otherwise share its values with every other such printer.
std::u16string CacheKeyPath(const Target& target, const std::string& file);

}  // namespace NorvaneCli
