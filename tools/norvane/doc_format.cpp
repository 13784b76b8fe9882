#include "doc_format.h"

#include <magic.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <memory>
#include <string_view>
#include <vector>

#include "cli.h"

namespace NorvaneCli {

namespace {

// Enough for a PJL header and a label's first commands, and for libmagic's tests.
constexpr size_t kSniffBytes = 64 * 1024;

std::string Lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
  return out;
}

bool StartsWith(std::string_view text, std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; }

// The language a PJL job header switches to, as a document-format.
std::string PjlLanguage(std::string_view text) {
  std::string lower = Lower(text.substr(0, 4096));
  size_t enter = lower.find("@pjl enter language");
  if (enter == std::string::npos) return "application/vnd.hp-pcl";
  size_t equals = lower.find('=', enter);
  if (equals == std::string::npos) return "application/vnd.hp-pcl";
  size_t start = lower.find_first_not_of(" \t", equals + 1);
  std::string language =
      start == std::string::npos ? "" : lower.substr(start, lower.find_first_of(" \t\r\n", start) - start);
  if (language == "postscript") return "application/postscript";
  if (language == "pdf") return "application/pdf";
  if (language == "zpl") return "application/vnd.zebra-zpl";
  return "application/vnd.hp-pcl";
}

}  // namespace

std::string SniffPrintFormat(const uint8_t* data, size_t length) {
  std::string_view text(reinterpret_cast<const char*>(data), length);
  if (StartsWith(text, "RaS2")) return "image/pwg-raster";
  if (StartsWith(text, std::string_view("UNIRAST\0", 8))) return "image/urf";
  // Universal Exit Language, then PJL: the header names the language that follows.
  if (StartsWith(text, "\x1b%-12345X")) return PjlLanguage(text);
  // A PCL printer reset ("ESC E") opens every PCL job.
  if (StartsWith(text,
                 "\x1b"
                 "E"))
    return "application/vnd.hp-pcl";
  // A ZPL label: ^XA (start of format) first, ^XZ (end of format) later; both
  // carets may be changed by the label itself, which leaves such labels to
  // --format.
  size_t first = text.find_first_not_of(" \t\r\n");
  if (first != std::string_view::npos && StartsWith(text.substr(first), "^XA") &&
      text.find("^XZ", first + 3) != std::string_view::npos) {
    return "application/vnd.zebra-zpl";
  }
  return {};
}

std::string DetectDocumentFormat(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw Failure(kExitUsage, "document '" + path + "': cannot be read");
  std::vector<uint8_t> head(kSniffBytes);
  in.read(reinterpret_cast<char*>(head.data()), static_cast<std::streamsize>(head.size()));
  head.resize(static_cast<size_t>(in.gcount()));
  std::string format = SniffPrintFormat(head.data(), head.size());
  if (!format.empty()) return format;

  std::unique_ptr<magic_set, decltype(&magic_close)> cookie(magic_open(MAGIC_MIME_TYPE), &magic_close);
  if (!cookie || magic_load(cookie.get(), nullptr) != 0) {
    throw Failure(kExitUnavailable,
                  "cannot tell the document's format (the file-type database is missing); "
                  "name it with --format");
  }
  const char* type = magic_buffer(cookie.get(), head.data(), head.size());
  if (type == nullptr || *type == 0) return "application/octet-stream";
  return type;
}

bool FormatSupported(const std::string& supported, const std::string& format) {
  std::string wanted = Lower(format);
  size_t start = 0;
  while (start <= supported.size()) {
    size_t comma = supported.find(',', start);
    std::string item = supported.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    size_t b = item.find_first_not_of(' ');
    size_t e = item.find_last_not_of(' ');
    if (b != std::string::npos && Lower(item.substr(b, e - b + 1)) == wanted) return true;
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return false;
}

}  // namespace NorvaneCli
