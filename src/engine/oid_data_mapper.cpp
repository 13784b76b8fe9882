#include "engine/oid_data_mapper.h"

#include <new>
#include <string>
#include <vector>

#include "support/log.h"
#include "support/string_utils.h"

QX_LOG_SOURCE_FILE()

namespace Norvane {

namespace {

// The text every walk stores under its plain key: the key followed by this.
constexpr std::u16string_view kSequenceMarker = u".###";

// Get-next answers may be longer than the OID asked about: the first buffer
// leaves this much room, a too-small buffer grows by kRetryGrowth up to
// kMaxRetries times, and after each step the buffer grows by kStepGrowth so that
// a table whose OIDs lengthen as it goes rarely needs a retry.
constexpr uint32_t kInitialRoom = 5;
constexpr uint32_t kRetryGrowth = 2;
constexpr int kMaxRetries = 5;
constexpr uint32_t kStepGrowth = 4;

// A request index is the decimal value of its text as the platform's
// text-to-integer conversion reads it: leading blanks, a sign, then digits up to
// the first other character ("x1" is 0, "3a" is 3), saturating at the 32-bit
// limits. A negative index names no element.
int32_t ParseSequence(std::u16string_view text) {
  size_t at = 0;
  while (at < text.size() && (text[at] == u' ' || (text[at] >= u'\t' && text[at] <= u'\r'))) ++at;
  bool negative = false;
  if (at < text.size() && (text[at] == u'-' || text[at] == u'+')) negative = text[at++] == u'-';
  int64_t n = 0;
  for (; at < text.size() && text[at] >= u'0' && text[at] <= u'9'; ++at) {
    n = n * 10 + (text[at] - u'0');
    if (n > INT32_MAX) break;
  }
  if (negative) return n > INT32_MAX ? INT32_MIN : static_cast<int32_t>(-n);
  return n > INT32_MAX ? INT32_MAX : static_cast<int32_t>(n);
}

// Caller-owned variants for a request that fills several at once.
class VariantArray {
 public:
  explicit VariantArray(size_t count) : values_(count) {
    for (VARIANT& v : values_) VariantInit(&v);
  }
  ~VariantArray() {
    for (VARIANT& v : values_) VariantClear(&v);
  }
  VariantArray(const VariantArray&) = delete;
  VariantArray& operator=(const VariantArray&) = delete;
  VARIANT* Data() { return values_.data(); }

 private:
  std::vector<VARIANT> values_;
};

std::u16string Decimal(int32_t number) {
  std::string digits = std::to_string(number);
  return std::u16string(digits.begin(), digits.end());
}

}  // namespace

OIDDataMapper::OIDDataMapper(OIDProvider* provider, DataMapSpec* dataMap)
    : provider_(QxUtils::ShareRef(provider)), dataMap_(QxUtils::ShareRef(dataMap)) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::OIDDataMapper::OIDDataMapper");
  runtime_.emplace(&qxLog_);
}

OIDDataMapper::~OIDDataMapper() {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::OIDDataMapper::~OIDDataMapper");
  dataMap_.Reset();
  runtime_.reset();
  provider_.Reset();
}

OIDDataMapper* OIDDataMapper::Create(OIDProvider* provider, DataMapSpec* dataMap) {
  auto* mapper = new (std::nothrow) OIDDataMapper(provider, dataMap);
  if (mapper != nullptr) mapper->AddRef();
  return mapper;
}

std::u16string OIDDataMapper::GetSequenceString(uint32_t number) {
  std::string digits = std::to_string(number);
  if (digits.size() < 3) digits.insert(0, 3 - digits.size(), '0');
  return std::u16string(digits.begin(), digits.end());
}

HRESULT OIDDataMapper::ConstructKey(std::u16string_view prefix, std::u16string_view name,
                                    const std::u16string_view* sequence, std::u16string* key) {
  if (key == nullptr || name.empty()) return E_FAIL;
  std::u16string built;
  if (!prefix.empty()) {
    built.append(prefix);
    built.push_back(u':');
  }
  built.append(name);
  if (sequence != nullptr) {
    built.push_back(u'.');
    built.append(*sequence);
  }
  *key = std::move(built);
  return S_OK;
}

Variant OIDDataMapper::Converted(const NvoDataItem& item, const VARIANT& raw) {
  VARIANT converted = item.ConvertValue(raw);
  Variant owned(converted);
  VariantClear(&converted);
  return owned;
}

void OIDDataMapper::Store(const std::u16string& key, const Variant& value, const DataItemSpec& item) {
  StoreValue(key.c_str(), &value.Get(), item.GetLifespan());
}

void OIDDataMapper::GetDataNode(std::u16string_view name, DataNode* node) {
  std::u16string_view rest = name;
  size_t colon = rest.find(u':');
  if (colon != std::u16string_view::npos) {
    node->prefix = std::u16string(rest.substr(0, colon));
    rest = rest.substr(colon + 1);
  }
  size_t dot = rest.find(u'.');
  node->itemName = std::u16string(rest.substr(0, dot));
  if (dot != std::u16string_view::npos) node->sequence = std::u16string(rest.substr(dot + 1));
  node->item = dynamic_cast<OIDDataItemSpec*>(dataMap_->GetDataItemSpec(node->itemName));
}

HRESULT OIDDataMapper::GetValue(const char16_t* name, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::OIDDataMapper::GetValue");
  if (name == nullptr || value == nullptr || dataMap_ == nullptr) return E_FAIL;
  HRESULT hr = DataCollectionImpl::GetValue(name, value);
  if (hr == S_OK) return S_OK;

  DataNode node;
  GetDataNode(name, &node);
  if (node.item == nullptr) {
    if (qxLog_.Enabled(QxLogging::kInfo)) {
      QX_LOG(QxLogging::kInfo, "No OID item for %s", QxUtils::WideToUtf8(name).c_str());
    }
    return hr;
  }
  if (node.item->GetOIDGetDataItemsSpec() != nullptr) return GetDataItemsInSequnce(node, value);
  if (node.item->GetNextOIDDataItemSpec() != nullptr) return GetNextDataItem(node, value);
  return GetDataItem(name, node.item, value);
}

HRESULT OIDDataMapper::GetDataItem(const char16_t* name, OIDDataItemSpec* item, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::OIDDataMapper::GetDataItem");
  if (item == nullptr || item->GetOid() == nullptr) return E_FAIL;
  const char16_t* group = item->GetGroup();

  if (group == nullptr || *group == u'\0') {
    Variant raw;
    HRESULT hr = provider_->GetValue(item->GetOid(), raw.Ptr());
    if (FAILED(hr)) {
      if (qxLog_.Enabled(QxLogging::kStandout)) {
        QX_LOG(QxLogging::kStandout, "Reading %s failed (0x%08x)", QxUtils::WideToUtf8(item->GetOid()).c_str(),
               static_cast<unsigned>(hr));
      }
      return hr;
    }
    Variant converted = Converted(*item, raw.Get());
    if (!item->IsTransient()) Store(name, converted, *item);
    *value = converted.Detach();
    return hr;
  }

  // A group is read in one request and answered as one text; every member asks
  // for the same text, each through its own conversions.
  std::vector<std::u16string> oids = PopulateOidListForGroupID(group);
  if (oids.empty()) return E_FAIL;
  std::vector<const char16_t*> oidTexts;
  oidTexts.reserve(oids.size());
  bool ownOidListed = false;
  for (const std::u16string& oid : oids) {
    oidTexts.push_back(oid.c_str());
    if (oid == item->GetOid()) ownOidListed = true;
  }
  VariantArray values(oids.size());
  HRESULT hr = provider_->GetMultipleValues(oidTexts.data(), values.Data(), static_cast<uint32_t>(oids.size()));
  if (FAILED(hr)) {
    QX_LOG(QxLogging::kStandout, "Reading the group failed (0x%08x)", static_cast<unsigned>(hr));
    return E_FAIL;
  }
  std::u16string joined;
  for (size_t i = 0; i < oids.size(); ++i) {
    if (i != 0) joined.push_back(u',');
    const VARIANT& v = values.Data()[i];
    if (v.vt == VT_I4) {
      joined.append(Decimal(v.lVal));
    } else if (v.vt == VT_BSTR && v.bstrVal != nullptr) {
      joined.append(v.bstrVal, SysStringLen(v.bstrVal));
    }
  }
  Variant text = Variant::FromString(joined);
  Variant converted = Converted(*item, text.Get());
  if (!item->IsTransient()) Store(name, converted, *item);
  *value = converted.Detach();
  return ownOidListed ? S_OK : E_FAIL;
}

std::vector<std::u16string> OIDDataMapper::PopulateOidListForGroupID(std::u16string_view group) {
  std::vector<std::u16string> oids;
  dataMap_->Begin();
  while (NvoDataItem* candidate = dataMap_->GetNextDataItemSpec()) {
    auto* item = dynamic_cast<OIDDataItemSpec*>(candidate);
    if (item == nullptr || item->GetGroup() == nullptr || item->GetOid() == nullptr || item->GetName() == nullptr) {
      continue;
    }
    if (group == item->GetGroup()) oids.emplace_back(item->GetOid());
  }
  return oids;
}

HRESULT OIDDataMapper::GetNextDataItem(const DataNode& node, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::OIDDataMapper::GetNextDataItem");
  NextOIDDataItemSpec* item = node.item == nullptr ? nullptr : node.item->GetNextOIDDataItemSpec();
  if (item == nullptr || item->GetOid() == nullptr || *item->GetOid() == u'\0') return E_FAIL;

  std::u16string current(item->GetOid());
  uint32_t size = static_cast<uint32_t>(current.size()) + kInitialRoom;
  std::vector<char16_t> next;

  Walk walk;
  walk.count = item->Count();
  walk.untilEnd = item->IsUntilEnd();
  walk.readBase = [&](Variant* base) { return provider_->GetValue(current.c_str(), base->Ptr()); };
  walk.next = [&](Variant* element, bool* repeated) {
    next.assign(size, u'\0');
    element->Clear();
    HRESULT hr = provider_->GetNextOidAndValue(current.c_str(), next.data(), size, element->Ptr());
    for (int retry = 0; hr == E_OUTOFMEMORY && retry < kMaxRetries; ++retry) {
      size += kRetryGrowth;
      next.assign(size, u'\0');
      element->Clear();
      hr = provider_->GetNextOidAndValue(current.c_str(), next.data(), size, element->Ptr());
    }
    if (FAILED(hr)) return hr;
    next.back() = u'\0';  // whatever the connection wrote, the text ends inside the buffer
    std::u16string answered(next.data());
    *repeated = answered == current;
    current = std::move(answered);
    size += kStepGrowth;
    return hr;
  };
  return RunWalk(node, &walk, value);
}

HRESULT OIDDataMapper::GetDataItemsInSequnce(const DataNode& node, VARIANT* value) {
  QX_LOG_FUNCTION(QxLogging::NorvaneDM(), "Norvane::OIDDataMapper::GetDataItemsInSequnce");
  OIDGetDataItemsSpec* item = node.item == nullptr ? nullptr : node.item->GetOIDGetDataItemsSpec();
  if (item == nullptr) return E_FAIL;
  // The item's own OID generator: every OID it hands out advances it and
  // nothing winds it back, so a later walk of the same item goes on from the
  // row where this one stopped (docs/oid-walks.md).
  OIDGetDataItemsSpec& generator = *item;
  std::u16string baseOid = generator.GetOid();
  if (baseOid.empty()) return E_FAIL;
  std::u16string current = generator.GetNextOid();

  Walk walk;
  walk.count = item->Count();
  walk.untilEnd = item->IsUntilEnd();
  walk.readBase = [&](Variant* base) { return provider_->GetValue(baseOid.c_str(), base->Ptr()); };
  walk.next = [&](Variant* element, bool* repeated) {
    element->Clear();
    HRESULT hr = provider_->GetValue(current.c_str(), element->Ptr());
    if (FAILED(hr)) return hr;
    std::u16string following = generator.GetNextOid();
    *repeated = following == current;
    current = std::move(following);
    return hr;
  };
  return RunWalk(node, &walk, value);
}

HRESULT OIDDataMapper::RunWalk(const DataNode& node, Walk* walk, VARIANT* value) {
  OIDDataItemSpec& item = *node.item;
  const bool transient = item.IsTransient();

  // No index asks for the whole table: the answer is the marker.
  std::optional<int32_t> wanted;
  if (!node.sequence.empty()) wanted = ParseSequence(node.sequence);

  Variant answer;
  bool answered = false;
  std::u16string key;
  if (ConstructKey(node.prefix, node.itemName, nullptr, &key) == S_OK) {
    std::u16string marker = key;
    marker.append(kSequenceMarker);
    Variant markerValue = Variant::FromString(marker);
    if (!transient) Store(key, markerValue, item);
    if (!wanted.has_value()) {
      answer = std::move(markerValue);
      answered = true;
    }
  }

  auto elementKey = [&](uint32_t index) {
    std::u16string sequence = GetSequenceString(index);
    std::u16string_view view(sequence);
    std::u16string built;
    ConstructKey(node.prefix, node.itemName, &view, &built);
    return built;
  };
  auto deliver = [&](const Variant& raw) {
    answer = transient ? raw : Converted(item, raw.Get());
    answered = true;
  };

  Variant element;
  HRESULT last = walk->readBase(&element);
  if (SUCCEEDED(last) && !transient) Store(elementKey(0), Converted(item, element.Get()), item);

  const int32_t count = walk->count < 0 ? 0 : walk->count;
  bool finished = false;
  if (!walk->untilEnd && wanted.has_value() && *wanted > count) {
    // Beyond the table's declared size: nothing to walk.
    finished = true;
  } else if (wanted.has_value() && *wanted == 0) {
    // The base of a walk is often a table column, which has no value of its
    // own: what the read gave is still the answer, and the rows are still read.
    deliver(element);
    if (transient) finished = true;
  }

  // A failed step ends the walk in both modes: its OID is unknown, so there is
  // no sound place to continue from.
  for (uint32_t i = 1; !finished && (walk->untilEnd || i <= static_cast<uint32_t>(count)); ++i) {
    bool repeated = false;
    HRESULT hr = walk->next(&element, &repeated);
    if (FAILED(hr)) {
      last = hr;
      break;
    }
    if (walk->untilEnd && repeated) break;
    last = hr;
    if (!transient) Store(elementKey(i), Converted(item, element.Get()), item);
    if (wanted.has_value() && *wanted > 0 && static_cast<uint32_t>(*wanted) == i) {
      deliver(element);
      if (transient) finished = true;
    }
    if (i == UINT32_MAX) break;
  }

  if (!answered) return E_FAIL;
  *value = answer.Detach();
  return last;
}

}  // namespace Norvane
