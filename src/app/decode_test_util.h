// Shared by the tests of `ferrant decode`: the command run as the command
// line runs it, and blobs written as hexadecimal.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "app/decode_command.h"
#include "app/exit_codes.h"

namespace PIM::testing {

struct DecodeResult {
  int code;
  std::string out;
  std::string err;
};

// `ferrant decode <kind> <args...>`.
inline DecodeResult decode(const std::string& kind, std::vector<std::string> args) {
  args.insert(args.begin(), kind);
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  std::ostringstream out, err;
  const int code = runDecode(static_cast<int>(argv.size()), argv.data(), out, err);
  return {code, out.str(), err.str()};
}

inline std::string hexOf(const std::vector<uint8_t>& bytes) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string hex;
  for (uint8_t b : bytes) {
    hex += kDigits[b >> 4];
    hex += kDigits[b & 15];
  }
  return hex;
}

// A rejected blob: nothing printed, and on the error stream the one error line
// of the diagnostic log, written by `function` ("PIM::decodeOneOffMember").
inline void expectRejected(const DecodeResult& result, const std::string& function,
                           const std::string& reason) {
  EXPECT_EQ(result.code, kExitRejected) << reason;
  EXPECT_EQ(result.out, "") << reason;
  const std::string tail = function + "() > ERR> " + reason + "\n";
  ASSERT_GT(result.err.size(), tail.size()) << reason;
  EXPECT_EQ(result.err.substr(result.err.size() - tail.size()), tail);
  EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
}

}  // namespace PIM::testing
