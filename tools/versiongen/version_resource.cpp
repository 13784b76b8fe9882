#include "version_resource.h"

#include <cstring>

namespace NorvaneBuild {

namespace {

void PutWord(std::string* out, uint16_t w) {
  out->push_back(static_cast<char>(w & 0xFF));
  out->push_back(static_cast<char>(w >> 8));
}

void PutDword(std::string* out, uint32_t d) {
  PutWord(out, static_cast<uint16_t>(d & 0xFFFF));
  PutWord(out, static_cast<uint16_t>(d >> 16));
}

void Pad(std::string* out) {
  while (out->size() % 4 != 0) out->push_back('\0');
}

// ASCII and Latin text only: version strings never need more.
void PutText(std::string* out, const std::string& text) {
  for (unsigned char c : text) PutWord(out, c);
  PutWord(out, 0);
}

// Appends a block; `value` is raw bytes, or text when isText.
std::string Block(const std::string& key, const std::string& value, bool isText, uint16_t valueLength,
                  const std::string& children) {
  std::string b;
  PutWord(&b, 0);  // length, patched below
  PutWord(&b, valueLength);
  PutWord(&b, isText ? 1 : 0);
  PutText(&b, key);
  Pad(&b);
  b += value;
  if (!children.empty()) {
    Pad(&b);
    b += children;
  }
  uint16_t length = static_cast<uint16_t>(b.size());
  b[0] = static_cast<char>(length & 0xFF);
  b[1] = static_cast<char>(length >> 8);
  return b;
}

std::string Concat(const std::vector<std::string>& blocks) {
  std::string out;
  for (const auto& block : blocks) {
    Pad(&out);
    out += block;
  }
  return out;
}

}  // namespace

std::string WriteVersionResource(const VersionResource& r) {
  std::string fixed;
  PutDword(&fixed, 0xFEEF04BD);
  PutDword(&fixed, 0x00010000);
  PutDword(&fixed, (uint32_t{r.major} << 16) | r.minor);
  PutDword(&fixed, (uint32_t{r.patch} << 16) | r.build);
  PutDword(&fixed, (uint32_t{r.major} << 16) | r.minor);
  PutDword(&fixed, (uint32_t{r.patch} << 16) | r.build);
  for (int i = 0; i < 7; ++i) PutDword(&fixed, 0);

  std::vector<std::string> tables;
  for (const auto& table : r.tables) {
    std::vector<std::string> strings;
    for (const auto& [name, value] : table.strings) {
      std::string text;
      PutText(&text, value);
      strings.push_back(Block(name, text, true, static_cast<uint16_t>(value.size() + 1), {}));
    }
    char key[9];
    std::snprintf(key, sizeof key, "%04x%04x", table.language, table.codePage);
    tables.push_back(Block(key, {}, true, 0, Concat(strings)));
  }
  std::string translations;
  if (r.translations.empty()) {
    for (const auto& table : r.tables) {
      PutWord(&translations, table.language);
      PutWord(&translations, table.codePage);
    }
  } else {
    for (const auto& [language, codePage] : r.translations) {
      PutWord(&translations, language);
      PutWord(&translations, codePage);
    }
  }
  std::string var = Block("Translation", translations, false, static_cast<uint16_t>(translations.size()), {});
  std::vector<std::string> children;
  children.push_back(Block("StringFileInfo", {}, true, 0, Concat(tables)));
  children.push_back(Block("VarFileInfo", {}, true, 0, var));
  return Block("VS_VERSION_INFO", fixed, false, static_cast<uint16_t>(fixed.size()), Concat(children));
}

}  // namespace NorvaneBuild
