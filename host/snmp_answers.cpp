#include "snmp_answers.h"

#include <algorithm>

namespace NorvaneHost {

namespace {

int Compare(const std::vector<oid>& a, const std::vector<oid>& b) {
  return snmp_oid_compare(a.data(), a.size(), b.data(), b.size());
}

}  // namespace

SnmpAnswers::Known SnmpAnswers::Find(const std::string& who, const std::vector<oid>& name, uint64_t nowMs,
                                     VARIANT* value) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto silent = silentSince_.find(who);
  if (silent != silentSince_.end() && Fresh(silent->second, nowMs)) return Known::kSilent;
  auto found = objects_.find({who, name});
  if (found != objects_.end() && Fresh(found->second.keptMs, nowMs)) {
    if (!found->second.present) return Known::kAbsent;
    VariantClear(value);
    return SUCCEEDED(VariantCopy(value, &found->second.value.Get())) ? Known::kPresent : Known::kUnknown;
  }
  auto spans = spans_.find(who);
  if (spans == spans_.end()) return Known::kUnknown;
  for (const Span& span : spans->second) {
    // Inside a span, an object the agent did not list does not exist.
    if (Fresh(span.keptMs, nowMs) && Compare(name, span.after) > 0 &&
        (span.last.empty() || Compare(name, span.last) <= 0)) {
      return Known::kAbsent;
    }
  }
  return Known::kUnknown;
}

void SnmpAnswers::Keep(const std::string& who, const std::vector<oid>& name, const VARIANT* value, uint64_t nowMs) {
  std::lock_guard<std::mutex> lock(mutex_);
  MakeRoomNoLock(1, nowMs);
  Object& object = objects_[{who, name}];
  object.present = value != nullptr;
  object.value = value != nullptr ? Norvane::Variant(*value) : Norvane::Variant();
  object.keptMs = nowMs;
}

void SnmpAnswers::KeepSpan(const std::string& who, const std::vector<oid>& after, const std::vector<Row>& rows,
                           bool toEnd, uint64_t nowMs) {
  if (rows.empty() && !toEnd) return;
  std::lock_guard<std::mutex> lock(mutex_);
  MakeRoomNoLock(rows.size(), nowMs);
  for (const Row& row : rows) objects_[{who, row.name}] = Object{true, row.value, nowMs};
  std::vector<oid> last = toEnd ? std::vector<oid>() : rows.back().name;
  std::vector<Span>& spans = spans_[who];
  std::erase_if(spans, [&](const Span& span) { return !Fresh(span.keptMs, nowMs); });
  // A collection reads a handful of tables; more spans than that are a walk gone wild.
  if (spans.size() >= 64) spans.clear();
  spans.push_back({after, std::move(last), nowMs});
}

void SnmpAnswers::KeepSilence(const std::string& who, uint64_t nowMs) {
  std::lock_guard<std::mutex> lock(mutex_);
  silentSince_[who] = nowMs;
}

void SnmpAnswers::Forget() {
  std::lock_guard<std::mutex> lock(mutex_);
  objects_.clear();
  spans_.clear();
  silentSince_.clear();
}

void SnmpAnswers::MakeRoomNoLock(size_t wanted, uint64_t nowMs) {
  if (objects_.size() + wanted <= kMaxObjects) return;
  std::erase_if(objects_, [&](const auto& entry) { return !Fresh(entry.second.keptMs, nowMs); });
  // A span vouches for the objects kept with it: they go together.
  if (objects_.size() + wanted > kMaxObjects) {
    objects_.clear();
    spans_.clear();
  }
}

}  // namespace NorvaneHost
