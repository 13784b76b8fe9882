#include "ipp/ipp_collection_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

#include "ipp/ipp_variant.h"
#include "platform/unique_fd.h"

namespace Norvane {

namespace {

bool IsWordChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

bool IsWordOrDash(char c) { return IsWordChar(c) || c == '-'; }

// End of the run of word characters and dashes starting at `from`.
size_t WordEnd(std::string_view text, size_t from) {
  while (from < text.size() && IsWordOrDash(text[from])) ++from;
  return from;
}

// First match of the pattern \w[-\w]* at or after `from`; npos when none.
// Written out rather than run through a regular-expression engine, whose
// backtracking recursion grows with the length of the text.
std::pair<size_t, size_t> FindName(std::string_view text, size_t from) {
  for (size_t i = from; i < text.size(); ++i) {
    if (IsWordChar(text[i])) return {i, WordEnd(text, i + 1)};
  }
  return {std::string_view::npos, std::string_view::npos};
}

struct Condition {
  std::string_view member;
  std::string_view value;
};

// Every match of \w[-\w]*=\w[-\w]* in `text`, left to right. A word that is not
// followed by "=" and a word cannot match from any of its characters either,
// so the search resumes after it.
std::vector<Condition> FindConditions(std::string_view text) {
  std::vector<Condition> conditions;
  size_t i = 0;
  while (i < text.size()) {
    if (!IsWordChar(text[i])) {
      ++i;
      continue;
    }
    size_t nameEnd = WordEnd(text, i + 1);
    if (nameEnd + 1 < text.size() && text[nameEnd] == '=' && IsWordChar(text[nameEnd + 1])) {
      size_t valueEnd = WordEnd(text, nameEnd + 2);
      conditions.push_back({text.substr(i, nameEnd - i), text.substr(nameEnd + 1, valueEnd - nameEnd - 1)});
      i = valueEnd;
    } else {
      i = nameEnd;
    }
  }
  return conditions;
}

// Leading decimal number of `text` (after blanks and an optional sign), 0 when
// there is none; clamped to the range of int64.
int64_t LeadingDecimal(std::string_view text) {
  size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || text[i] == '\t')) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  int64_t number = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    if (number > (INT64_MAX - 9) / 10) return negative ? INT64_MIN : INT64_MAX;
    number = number * 10 + (text[i] - '0');
  }
  return negative ? -number : number;
}

}  // namespace

std::string IppDumpFileName(std::string_view recordName) {
  constexpr size_t kMaxLength = 100;
  std::string name;
  for (char c : recordName.substr(0, kMaxLength)) name.push_back(IsWordOrDash(c) || c == '.' ? c : '_');
  if (name.empty() || name[0] == '.') name.insert(name.begin(), '_');
  return name;
}

void IppCollectionStore::Clear() {
  arena_.clear();
  records_.clear();
  members_.clear();
  list_.clear();
  stack_.clear();
  lastMemberSize_ = 0;
  lastMemberOffset_ = 0;
}

void IppCollectionStore::Reserve(size_t responseBytes) {
  // Many responses hold no collection at all; those that do spend most of
  // their bytes on them.
  arena_.reserve(responseBytes / 4 + 64);
  members_.reserve(responseBytes / 64 + 4);
  records_.reserve(responseBytes / 256 + 4);
}

uint32_t IppCollectionStore::Intern(std::string_view text) {
  auto offset = static_cast<uint32_t>(arena_.size());
  arena_.append(text);
  return offset;
}

void IppCollectionStore::Open(std::string_view name) {
  Record record;
  record.nameOffset = Intern(name);
  record.nameLength = static_cast<uint32_t>(name.size());
  records_.push_back(record);
  stack_.push_back(static_cast<int32_t>(records_.size() - 1));
}

bool IppCollectionStore::Close() {
  if (stack_.empty()) return false;
  int32_t index = stack_.back();
  stack_.pop_back();
  if (stack_.empty()) {
    list_.push_back(index);
    return true;
  }
  LinkChild(stack_.back(), index);
  return true;
}

void IppCollectionStore::AddValue(std::string_view member, IppValueMap::Kind kind, std::string_view data) {
  if (stack_.empty()) return;
  if (lastMemberSize_ != member.size() || Text(lastMemberOffset_, static_cast<uint32_t>(lastMemberSize_)) != member) {
    lastMemberOffset_ = Intern(member);
    lastMemberSize_ = member.size();
  }
  Member m;
  m.nameOffset = lastMemberOffset_;
  m.nameLength = static_cast<uint32_t>(member.size());
  m.valueOffset = Intern(data);
  m.valueLength = static_cast<uint32_t>(data.size());
  m.kind = kind;
  members_.push_back(m);
  LinkMember(stack_.back(), static_cast<int32_t>(members_.size() - 1));
}

std::string_view IppCollectionStore::NameOf(int32_t record) const {
  const Record& r = records_[static_cast<size_t>(record)];
  return Text(r.nameOffset, r.nameLength);
}

void IppCollectionStore::LinkMember(int32_t record, int32_t member) {
  Record& r = records_[static_cast<size_t>(record)];
  if (r.lastMember < 0) {
    r.firstMember = member;
  } else {
    members_[static_cast<size_t>(r.lastMember)].next = member;
  }
  r.lastMember = member;
}

void IppCollectionStore::LinkChild(int32_t parent, int32_t child) {
  Record& r = records_[static_cast<size_t>(parent)];
  if (r.lastChild < 0) {
    r.firstChild = child;
  } else {
    records_[static_cast<size_t>(r.lastChild)].nextSibling = child;
  }
  r.lastChild = child;
}

int32_t IppCollectionStore::FindMember(const Record& record, std::string_view name) const {
  int32_t found = -1;
  for (int32_t m = record.firstMember; m >= 0; m = members_[static_cast<size_t>(m)].next) {
    const Member& member = members_[static_cast<size_t>(m)];
    if (Text(member.nameOffset, member.nameLength) == name) found = m;
  }
  return found;
}

bool IppCollectionStore::Resolve(int32_t record, std::string_view path, VARIANT* value) const {
  // Each step goes one record deeper, so the recursion is bounded by the
  // nesting depth the decoder allows.
  const Record& r = records_[static_cast<size_t>(record)];
  size_t dot = path.find('.');
  std::string_view head = path.substr(0, dot);
  int32_t m = FindMember(r, head);
  if (m >= 0) {
    const Member& member = members_[static_cast<size_t>(m)];
    StoreIppValue(member.kind, Text(member.valueOffset, member.valueLength), value);
    return true;
  }
  std::string_view rest = dot == std::string_view::npos ? std::string_view() : path.substr(dot + 1);
  for (int32_t c = r.firstChild; c >= 0; c = records_[static_cast<size_t>(c)].nextSibling) {
    const Record& child = records_[static_cast<size_t>(c)];
    if (Text(child.nameOffset, child.nameLength) == head) return Resolve(c, rest, value);
  }
  return false;
}

bool IppCollectionStore::Query(std::string_view query, VARIANT* value) const {
  if (value == nullptr) return false;
  auto [nameBegin, nameEnd] = FindName(query, 0);
  if (nameBegin == std::string_view::npos) return false;
  std::string_view name = query.substr(nameBegin, nameEnd - nameBegin);
  std::string_view rest = query.substr(nameEnd);
  std::vector<Condition> conditions = FindConditions(rest);
  size_t dot = query.find('.');
  std::string_view path = dot == std::string_view::npos ? std::string_view() : query.substr(dot + 1);

  int32_t chosen = -1;
  if (!conditions.empty()) {
    for (int32_t index : list_) {
      const Record& record = records_[static_cast<size_t>(index)];
      if (Text(record.nameOffset, record.nameLength) != name) continue;
      bool all = std::all_of(conditions.begin(), conditions.end(), [&](const Condition& condition) {
        int32_t m = FindMember(record, condition.member);
        std::string_view text;
        if (m >= 0)
          text = Text(members_[static_cast<size_t>(m)].valueOffset, members_[static_cast<size_t>(m)].valueLength);
        return text == condition.value;
      });
      if (all) {
        chosen = index;
        break;
      }
    }
  } else {
    int64_t position = 0;
    size_t open = rest.find('[');
    size_t close = rest.find(']');
    if (open != std::string_view::npos && close != std::string_view::npos && close > open) {
      position = LeadingDecimal(rest.substr(open + 1, close - open - 1));
    }
    for (size_t i = 0; i < list_.size(); ++i) {
      const Record& record = records_[static_cast<size_t>(list_[i])];
      if (Text(record.nameOffset, record.nameLength) != name) continue;
      // Records are counted from the first of the name whatever their names:
      // the collections of one attribute arrive one after another.
      if (position >= 0 && static_cast<uint64_t>(position) < list_.size() - i) {
        chosen = list_[i + static_cast<size_t>(position)];
      }
      break;
    }
  }
  if (chosen < 0) return false;
  return Resolve(chosen, path, value);
}

int32_t IppCollectionStore::CopyTree(const IppCollectionStore& from, int32_t index) {
  // One level of recursion per nesting level, which the decoder bounds.
  const Record& source = from.records_[static_cast<size_t>(index)];
  Record record;
  record.nameOffset = Intern(from.NameOf(index));
  record.nameLength = source.nameLength;
  records_.push_back(record);
  auto copy = static_cast<int32_t>(records_.size() - 1);
  for (int32_t m = source.firstMember; m >= 0; m = from.members_[static_cast<size_t>(m)].next) {
    const Member& member = from.members_[static_cast<size_t>(m)];
    Member c;
    c.nameOffset = Intern(from.Text(member.nameOffset, member.nameLength));
    c.nameLength = member.nameLength;
    c.valueOffset = Intern(from.Text(member.valueOffset, member.valueLength));
    c.valueLength = member.valueLength;
    c.kind = member.kind;
    members_.push_back(c);
    LinkMember(copy, static_cast<int32_t>(members_.size() - 1));
  }
  for (int32_t child = source.firstChild; child >= 0; child = from.records_[static_cast<size_t>(child)].nextSibling) {
    LinkChild(copy, CopyTree(from, child));
  }
  return copy;
}

void IppCollectionStore::ReplaceRecords(const IppCollectionStore& fresh, std::string_view attribute) {
  if (&fresh == this) return;
  std::vector<std::string_view> replaced{attribute};
  for (int32_t index : fresh.list_) {
    // The collections of one attribute arrive together: one name per run.
    if (replaced.back() != fresh.NameOf(index)) replaced.push_back(fresh.NameOf(index));
  }
  IppCollectionStore rebuilt;
  for (int32_t index : list_) {
    if (std::find(replaced.begin(), replaced.end(), NameOf(index)) == replaced.end()) {
      rebuilt.list_.push_back(rebuilt.CopyTree(*this, index));
    }
  }
  for (int32_t index : fresh.list_) rebuilt.list_.push_back(rebuilt.CopyTree(fresh, index));
  *this = std::move(rebuilt);
}

void IppCollectionStore::DumpRecord(int32_t index, std::string* out) const {
  const Record& record = records_[static_cast<size_t>(index)];
  std::string_view name = Text(record.nameOffset, record.nameLength);
  out->append("<").append(name).append(">\n");
  // One line per member name, its last value, in name order.
  std::vector<std::pair<std::string_view, int32_t>> members;
  for (int32_t m = record.firstMember; m >= 0; m = members_[static_cast<size_t>(m)].next) {
    const Member& member = members_[static_cast<size_t>(m)];
    std::string_view memberName = Text(member.nameOffset, member.nameLength);
    auto it = std::find_if(members.begin(), members.end(), [&](const auto& p) { return p.first == memberName; });
    if (it == members.end()) {
      members.emplace_back(memberName, m);
    } else {
      it->second = m;
    }
  }
  std::stable_sort(members.begin(), members.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  for (const auto& [memberName, m] : members) {
    const Member& member = members_[static_cast<size_t>(m)];
    out->append("<").append(memberName).append(">");
    if (member.kind == IppValueMap::Kind::kText) {
      out->append(Text(member.valueOffset, member.valueLength));
    } else {
      out->append("Range");
    }
    out->append("</").append(memberName).append(">\n");
  }
  for (int32_t c = record.firstChild; c >= 0; c = records_[static_cast<size_t>(c)].nextSibling) DumpRecord(c, out);
  out->append("</").append(name).append(">\n");
}

void IppCollectionStore::Dump(const std::string& directory) const {
  for (int32_t index : list_) {
    const Record& record = records_[static_cast<size_t>(index)];
    std::string path = directory + "/" + IppDumpFileName(Text(record.nameOffset, record.nameLength)) + ".xml";
    UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!fd.valid()) continue;
    struct stat info;
    std::string text;
    if (::fstat(fd.get(), &info) == 0 && info.st_size == 0) text = "<SOC>";
    DumpRecord(index, &text);
    WriteAll(fd.get(), text);
  }
}

size_t IppCollectionStore::MemoryUsage() const {
  return arena_.capacity() + records_.capacity() * sizeof(Record) + members_.capacity() * sizeof(Member) +
         (list_.capacity() + stack_.capacity()) * sizeof(int32_t);
}

}  // namespace Norvane
