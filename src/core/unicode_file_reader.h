// Reads a language file line by line: UTF-16 in either byte order when the
// file starts with a signature, UTF-8 from the first byte when it does not.
//
//   UnicodeFileReader reader;
//   if (reader.open(path)) {
//     std::u16string line;
//     while (reader.getLine(line)) use(line);
//   }
//
// Lines end at CR or LF; a last line without a line end is never returned.
// Not thread safe: one reader belongs to one thread at a time.
#pragma once

#include <istream>
#include <memory>
#include <string>

namespace PIM {

class UnicodeFileReader {
 public:
  UnicodeFileReader();
  ~UnicodeFileReader();
  UnicodeFileReader(const UnicodeFileReader&) = delete;
  UnicodeFileReader& operator=(const UnicodeFileReader&) = delete;

  // Opens the file for binary reading and reads its signature; closes any
  // file opened before. False (and logged) when the file cannot be opened.
  bool open(const std::u16string& path);
  // The same over a copy of `bytes`, for tests and the fuzzer.
  bool openBuffer(const std::string& bytes);
  bool isOpen() const;
  void close();

  // The next line without its end; false at the end of the data, with
  // `line` then holding nothing useful. Switches to getLineUtf8 by itself
  // when the file had no UTF-16 signature.
  bool getLine(std::u16string& line);
  // The same for 8-bit UTF-8 text.
  bool getLineUtf8(std::u16string& line);

 private:
  void start(std::unique_ptr<std::istream> stream);
  bool readUnit(char16_t& unit);
  bool readByte(unsigned char& byte);
  void stepBackOneByte();

  std::unique_ptr<std::istream> stream_;
  bool littleEndian_ = true;
  bool singleByte_ = false;
};

}  // namespace PIM
