#include "platform/registry_format.h"

#include <algorithm>
#include <cstdio>

#include "support/string_utils.h"

namespace Norvane::Registry {

namespace {

constexpr size_t kMaxLineBytes = 1u << 20;

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
      case '\\': run.push_back('\\'); break;
      case '"': run.push_back('"'); break;
      case 'n': run.push_back('\n'); break;
      case 'r': run.push_back('\r'); break;
      case 't': run.push_back('\t'); break;
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
    if (line.size() > kMaxLineBytes || !ParseLine(line.substr(first), &value)) {
      if (errorLine != nullptr) *errorLine = lineNo;
      return false;
    }
    PutValue(out, std::move(value));
  }
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

void PutValue(ValueList* values, Value value) {
  auto it = std::lower_bound(values->begin(), values->end(), value.name,
                             [](const Value& v, const std::u16string& name) { return v.name < name; });
  if (it != values->end() && it->name == value.name) {
    *it = std::move(value);
  } else {
    values->insert(it, std::move(value));
  }
}

const Value* FindValue(const ValueList& values, std::u16string_view name) {
  auto it = std::lower_bound(values.begin(), values.end(), name,
                             [](const Value& v, std::u16string_view n) { return v.name < n; });
  return it != values.end() && it->name == name ? &*it : nullptr;
}

}  // namespace Norvane::Registry
