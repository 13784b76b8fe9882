// The two persistent caches of device values: one below HKLM in the registry
// store, one in a printer's own data ("UBidiData"). Both keep each value with a
// companion "<name>.Expires" holding its read time, "0" for never.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "norvane/com.h"
#include "norvane/disposable.h"
#include "norvane/interfaces.h"
#include "norvane/values.h"

namespace Norvane {

class DataMapSpec;

// Values as last read from a store, by value name in code-unit order.
using CacheDictionary = std::map<std::u16string, Variant>;

class NORVANE_API RegCacheProvider : public DisposableObject<ICacheProvider> {
 public:
  // keyPath below HKLM; null or empty gives a provider that stores nothing.
  // One reference for the caller.
  static RegCacheProvider* Create(const char16_t* keyPath);

  HRESULT GetDataValue(const char16_t* name, VARIANT* value) override;
  HRESULT SetDataValue(const char16_t* name, const VARIANT* value, int64_t time) override;
  HRESULT SetDataValues(const ValueTable& table) override;

  // Reloads the dictionary from the store, then fills the table with the
  // values still valid under the data map's lifespans.
  HRESULT PopulateFromRegistry(DataMapSpec* dataMap, ValueTable* table);

  // The data collection names the device and protocol before reading; the
  // store key is path\identity\protocol.
  void SetDeviceIdentity(std::u16string_view identity, std::u16string_view protocol);
  const std::u16string& GetPath() const { return path_; }
  bool HasPath() const { return !path_.empty(); }
  const std::u16string& GetDeviceIdentity() const { return identity_; }
  const std::u16string& GetProtocol() const { return protocol_; }
  std::u16string GetKeyName() const;

 private:
  explicit RegCacheProvider(const char16_t* keyPath);
  ~RegCacheProvider() override;

  CacheDictionary dictionary_;
  std::u16string path_;
  std::u16string identity_;
  std::u16string protocol_;
};

class NORVANE_API PrintDataCacheProvider : public DisposableObject<ICacheProvider> {
 public:
  static constexpr uintptr_t kNoPrinter = ~uintptr_t{0};

  // The handle stays the caller's (OpenPrinterDataHandle); the printer's data
  // is read once, here. One reference for the caller.
  static PrintDataCacheProvider* Create(uintptr_t printer);

  HRESULT GetDataValue(const char16_t* name, VARIANT* value) override;
  HRESULT SetDataValue(const char16_t* name, const VARIANT* value, int64_t time) override;
  HRESULT SetDataValues(const ValueTable& table) override;
  HRESULT PopulateFromRegistry(DataMapSpec* dataMap, ValueTable* table);

 private:
  explicit PrintDataCacheProvider(uintptr_t printer);
  ~PrintDataCacheProvider() override;
  void InitializeDictionary();

  CacheDictionary dictionary_;
  uintptr_t printer_;
};

}  // namespace Norvane
