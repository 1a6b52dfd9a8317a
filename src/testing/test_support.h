// Fixtures shared by the test suites.
#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "platform/env.h"

namespace PIM::testing {

// Installs an Env for the life of the object and restores the previous one.
class ScopedEnv {
 public:
  explicit ScopedEnv(Env* e) : previous_(setEnv(e)) {}
  ~ScopedEnv() { setEnv(previous_); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  Env* previous_;
};

// Collects the diagnostic log's lines while it lives; lines() gives them
// without their time prefix.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  std::vector<std::string> lines() const;
  // The lines' texts after their " ERR> " or " MSG> " marker.
  std::vector<std::string> messages() const;
  bool contains(const std::string& text) const;

 private:
  std::ostringstream sink_;
};

// A fresh empty folder, removed with everything in it at the end.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  const std::u16string& path() const { return path_; }
  std::u16string file(const std::u16string& name) const { return path_ + kPathSeparator + name; }

 private:
  std::u16string path_;
};

std::string readFileBytes(const std::u16string& path);
void writeFileBytes(const std::u16string& path, const std::string& bytes);

// The folder of captured MAPI blobs beside the repository, or empty text when
// it is absent (tests using it skip).
std::string sharedTestData();
// A captured blob of the shared test data's "mapi-blobs" folder, whose file
// holds it as hexadecimal text; empty when the file is absent.
std::vector<uint8_t> sharedBlob(const std::string& fileName);

}  // namespace PIM::testing
