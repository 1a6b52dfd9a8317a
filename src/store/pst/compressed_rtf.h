// Compressed RTF (PR_RTF_COMPRESSED) as Outlook stores message bodies that
// exist only in RTF: a 16-byte header, then LZ-style runs over a 4 KB
// dictionary that starts with a fixed RTF prologue. Also a plain-text view
// of RTF for bodies that have no other form.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace PIM::store {

// The RTF text of a compressed (or stored uncompressed) RTF value. False,
// with `error` saying why, for bytes that are not one: too short, unknown
// kind, wrong checksum, a run past the end.
bool decompressRtf(const uint8_t* data, size_t size, std::string& rtf, std::string& error);

// The text a reader sees in an RTF document: paragraphs as CR LF, \'hh and
// \uN characters decoded (8-bit ones through the document's \ansicpg code
// page), font tables, pictures and other hidden destinations left out.
std::u16string rtfToText(const std::string& rtf);

}  // namespace PIM::store
