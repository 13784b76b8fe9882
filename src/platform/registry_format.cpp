#include "platform/registry_format.h"

#include <locale.h>
#include <wctype.h>

#include <algorithm>
#include <cstdio>
#include <unordered_map>

#include "platform/utf.h"

namespace Norvane::Registry {

namespace {

// Upper case of one UTF-16 unit, by the Unicode simple mapping when the C.UTF-8
// locale is at hand (glibc builds it in) and by ASCII otherwise; surrogates and
// units whose upper case is outside the BMP stay as they are.
char16_t Upper(char16_t c) {
  if (c < 0x80) return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - 0x20) : c;
  static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
  if (utf8 == static_cast<locale_t>(0) || (c >= 0xD800 && c <= 0xDFFF)) return c;
  wint_t up = towupper_l(static_cast<wint_t>(c), utf8);
  return up <= 0xFFFF ? static_cast<char16_t>(up) : c;
}

bool ByName(const Value& a, const Value& b) { return a.name < b.name; }

void AppendQuoted(std::string* out, std::u16string_view text) {
  out->push_back('"');
  size_t runStart = 0;
  auto flush = [&](size_t end) {
    if (end > runStart) out->append(QxUtils::WideToUtf8(text.substr(runStart, end - runStart)));
  };
  for (size_t i = 0; i < text.size(); ++i) {
    char16_t c = text[i];
    const char* escape = nullptr;
    char hex[8];
    bool surrogate = c >= 0xD800 && c <= 0xDFFF;
    bool paired = surrogate && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF;
    if (paired) {
      ++i;
      continue;
    }
    if (c == u'\\') escape = "\\\\";
    else if (c == u'"') escape = "\\\"";
    else if (c == u'\n') escape = "\\n";
    else if (c == u'\r') escape = "\\r";
    else if (c == u'\t') escape = "\\t";
    else if (c < 0x20 || c == 0x7F || surrogate) {
      std::snprintf(hex, sizeof hex, "\\u%04X", static_cast<unsigned>(c));
      escape = hex;
    }
    if (escape != nullptr) {
      flush(i);
      out->append(escape);
      runStart = i + 1;
    }
  }
  flush(text.size());
  out->push_back('"');
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Reads a quoted string starting at line[*at] == '"'.
bool ReadQuoted(std::string_view line, size_t* at, std::u16string* out) {
  if (*at >= line.size() || line[*at] != '"') return false;
  ++*at;
  out->clear();
  std::string run;
  auto flush = [&] {
    if (!run.empty()) {
      out->append(QxUtils::Utf8ToWide(std::string_view(run)));
      run.clear();
    }
  };
  while (*at < line.size()) {
    char c = line[*at];
    ++*at;
    if (c == '"') {
      flush();
      return true;
    }
    if (c != '\\') {
      run.push_back(c);
      continue;
    }
    if (*at >= line.size()) return false;
    char e = line[*at];
    ++*at;
    switch (e) {
      case '\\':
        run.push_back('\\');
        break;
      case '"':
        run.push_back('"');
        break;
      case 'n':
        run.push_back('\n');
        break;
      case 'r':
        run.push_back('\r');
        break;
      case 't':
        run.push_back('\t');
        break;
      case 'u': {
        if (line.size() - *at < 4) return false;
        unsigned v = 0;
        for (int k = 0; k < 4; ++k) {
          int d = HexDigit(line[*at + k]);
          if (d < 0) return false;
          v = v * 16 + static_cast<unsigned>(d);
        }
        *at += 4;
        flush();
        out->push_back(static_cast<char16_t>(v));
        break;
      }
      default:
        return false;
    }
  }
  return false;
}

bool ParseLine(std::string_view line, Value* value) {
  size_t at = 0;
  if (!ReadQuoted(line, &at, &value->name) || value->name.empty()) return false;
  if (at >= line.size() || line[at] != '=') return false;
  ++at;
  std::string_view rest = line.substr(at);
  if (rest.rfind("dword:", 0) == 0) {
    std::string_view digits = rest.substr(6);
    if (digits.size() != 8) return false;
    uint32_t v = 0;
    for (char c : digits) {
      int d = HexDigit(c);
      if (d < 0) return false;
      v = (v << 4) | static_cast<uint32_t>(d);
    }
    value->type = ValueType::Dword;
    value->dword = v;
    value->text.clear();
    return true;
  }
  value->type = ValueType::String;
  value->dword = 0;
  if (!ReadQuoted(line, &at, &value->text)) return false;
  return at == line.size();
}

}  // namespace

bool ParseValues(std::string_view text, ValueList* out, size_t* errorLine) {
  out->clear();
  ValueList lines;
  size_t lineNo = 0;
  size_t pos = 0;
  while (pos < text.size()) {
    size_t end = text.find('\n', pos);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(pos, end - pos);
    pos = end + 1;
    ++lineNo;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    size_t first = line.find_first_not_of(" \t");
    if (first == std::string_view::npos || line[first] == ';' || line[first] == '#') continue;
    Value value;
    if (line.size() > kMaxLineBytes || !ParseLine(line.substr(first), &value) || !WithinLimits(value)) {
      if (errorLine != nullptr) *errorLine = lineNo;
      return false;
    }
    lines.push_back(std::move(value));
  }
  PutValues(out, std::move(lines));
  return true;
}

std::string FormatValues(const ValueList& values) {
  std::string out = "; norvane registry key: one value a line, \"Name\"=dword:XXXXXXXX or \"Name\"=\"text\"\n";
  for (const auto& v : values) {
    AppendQuoted(&out, v.name);
    out.push_back('=');
    if (v.type == ValueType::Dword) {
      char hex[16];
      std::snprintf(hex, sizeof hex, "dword:%08x", v.dword);
      out.append(hex);
    } else {
      AppendQuoted(&out, v.text);
    }
    out.push_back('\n');
  }
  return out;
}

bool WithinLimits(const Value& value) {
  return !value.name.empty() && value.name.size() <= kMaxNameChars &&
         (value.type != ValueType::String || value.text.size() <= kMaxTextChars);
}

std::u16string FoldName(std::u16string_view name) {
  std::u16string folded(name);
  for (auto& c : folded) c = Upper(c);
  return folded;
}

bool SameName(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (a[i] != b[i] && Upper(a[i]) != Upper(b[i])) return false;
  }
  return true;
}

void PutValue(ValueList* values, Value value) {
  ValueList one;
  one.push_back(std::move(value));
  PutValues(values, std::move(one));
}

void PutValues(ValueList* values, ValueList updates) {
  // One pass with an index of the folded names, so a large update costs
  // n log n rather than a search of the whole list per value.
  std::unordered_map<std::u16string, size_t> index;
  index.reserve(values->size() + updates.size());
  for (size_t i = 0; i < values->size(); ++i) index.emplace(FoldName((*values)[i].name), i);
  bool added = false;
  for (auto& update : updates) {
    auto [it, inserted] = index.try_emplace(FoldName(update.name), values->size());
    if (inserted) {
      values->push_back(std::move(update));
      added = true;
    } else {
      Value& existing = (*values)[it->second];
      update.name = std::move(existing.name);
      existing = std::move(update);
    }
  }
  if (added) std::sort(values->begin(), values->end(), ByName);
}

const Value* FindValue(const ValueList& values, std::u16string_view name) {
  auto it = std::lower_bound(values.begin(), values.end(), name,
                             [](const Value& v, std::u16string_view n) { return v.name < n; });
  if (it != values.end() && it->name == name) return &*it;
  for (const auto& v : values) {
    if (SameName(v.name, name)) return &v;
  }
  return nullptr;
}

}  // namespace Norvane::Registry
