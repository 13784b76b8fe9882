// Lookups in the decoded values: the attribute name, the member notation of
// octet strings and collection sets, and the collection query.
#include <string>
#include <string_view>

#include "ipp/ipp_operations.h"
#include "ipp/ipp_variant.h"

namespace Norvane {

namespace {

constexpr std::string_view kSetStartSeparator = "IPP_Set_Start,";
constexpr std::string_view kSetEndSeparator = ",IPP_Set_End";

void EraseFirst(std::string* text, std::string_view what) {
  size_t at = text->find(what);
  if (at != std::string::npos) text->erase(at, what.size());
}

// Member lookup inside the set that encloses the key's selector: for
// "media-col-ready.COL2.media-type" the selector is COL2 and the member
// media-type; for "printer-alert.severity" both are severity. Returns false
// when the selector is absent or the member has no value between commas;
// otherwise `text` is the member's value, or stays whole when the set or the
// member cannot be placed.
bool SelectMember(std::string_view key, size_t firstDot, std::string* text) {
  size_t selectorEnd = key.find('.', firstDot + 1);
  std::string_view selector = key.substr(
      firstDot + 1, selectorEnd == std::string_view::npos ? std::string_view::npos : selectorEnd - firstDot - 1);
  size_t occurrence = text->find(selector);
  if (occurrence == std::string::npos) return false;

  // The marker pairs, from the start, until one encloses the occurrence.
  size_t setStart = std::string::npos;
  size_t from = 0;
  for (;;) {
    size_t start = text->find(kIppSetStart, from);
    if (start == std::string::npos) break;
    size_t end = text->find(kIppSetEnd, start);
    if (end == std::string::npos) break;
    if (start < occurrence && end > occurrence) {
      setStart = start;
      break;
    }
    from = end + kIppSetEnd.size();
  }
  if (setStart == std::string::npos) return true;

  std::string_view member = key.substr(key.rfind('.') + 1);
  size_t at = text->find(member, setStart);
  if (at == std::string::npos || at == 0) return true;
  size_t first = text->find(',', at + member.size());
  if (first == std::string::npos) return false;
  size_t second = text->find(',', first + 1);
  if (second == std::string::npos) return false;
  *text = text->substr(first + 1, second - first - 1);
  return true;
}

}  // namespace

std::string IPPOperations::ValuesByOccurrence(const char* name) const {
  std::string lines;
  bool first = true;
  valueMap_.ForEachOccurrence(name, [&](const std::vector<std::string_view>& values) {
    if (!first) lines.push_back('\n');
    first = false;
    for (size_t i = 0; i < values.size(); ++i) {
      if (i != 0) lines.push_back(',');
      lines.append(values[i]);
    }
  });
  return lines;
}

int IPPOperations::GetValueFromIPPMap(const char* key, VARIANT* value) const {
  if (key == nullptr || *key == 0 || value == nullptr) return 1;
  std::string_view k(key);
  size_t firstDot = k.find('.');
  std::string_view mapKey = firstDot == std::string_view::npos || firstDot == 0 ? k : k.substr(0, firstDot);

  // Texts are joined with "," (each followed by one); raw values go to the
  // variant directly, later ones appended to the first.
  std::string joined;
  bool haveBytes = false;
  valueMap_.ForEachValue(mapKey, [&](const IppValueMap::Value& v) {
    if (v.kind == IppValueMap::Kind::kText) {
      joined.append(v.data);
      joined.push_back(',');
    } else if (!haveBytes) {
      StoreIppValue(IppValueMap::Kind::kBytes, v.data, value);
      haveBytes = true;
    } else {
      AppendIppBytes(v.data, value);
    }
    return true;
  });
  if (joined.empty()) return 1;

  if (joined.compare(0, kIppSetStart.size(), kIppSetStart) == 0 && k.find('.', 1) != std::string_view::npos &&
      !SelectMember(k, firstDot, &joined)) {
    return 0;
  }
  EraseFirst(&joined, kSetStartSeparator);
  EraseFirst(&joined, kSetEndSeparator);
  size_t lastComma = joined.rfind(',');
  if (lastComma != std::string::npos) joined.resize(lastComma);
  if (!joined.empty()) StoreIppValue(IppValueMap::Kind::kText, joined, value);
  return 1;
}

bool IPPOperations::QueryCollection(const char* query, VARIANT* value) const {
  if (query == nullptr) return false;
  return collections_.Query(query, value);
}

}  // namespace Norvane
