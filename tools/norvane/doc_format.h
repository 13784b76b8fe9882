// What kind of document a file is, told from its bytes, and whether a printer
// takes it: a printer that cannot sniff refuses or aborts a document sent
// without the right document-format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace NorvaneCli {

// The print formats that the system's file-type database does not know: PWG
// and Apple raster, PCL (and PJL naming its language), ZPL labels. Empty when
// none matches.
std::string SniffPrintFormat(const uint8_t* data, size_t length);

// The document-format for a file: SniffPrintFormat, else libmagic's MIME type
// ("application/octet-stream" when neither knows). Throws Failure when the file
// cannot be read.
std::string DetectDocumentFormat(const std::string& path);

// Whether `format` is in the printer's comma-joined document-format-supported
// (MIME types compare without case).
bool FormatSupported(const std::string& supported, const std::string& format);

}  // namespace NorvaneCli
