// The Win32 implementation of Env. Its methods are spread over the files of
// this folder by service (files and clocks, code pages, key store, locale,
// crash hook).
#pragma once

#include <memory>

#include "platform/env.h"

namespace PIM {

class Win32Env : public Env {
 public:
  Win32Env();
  ~Win32Env() override;

  int wideToMultiByte(uint32_t codePage, const char16_t* text, int units, char* out,
                      int outSize) override;
  int multiByteToWide(uint32_t codePage, const char* text, int bytes, char16_t* out,
                      int outUnits) override;
  SystemTime systemTimeNow() override;
  SystemTime localTimeNow() override;
  TimeZoneInfo timeZone() override;
  uint32_t tickCount() override;
  std::u16string specialFolder(int csidl) override;
  std::u16string moduleFileName() override;
  std::u16string hostExecutablePath() override;
  bool pathStatus(const std::u16string& path) override;
  bool makeDirectory(const std::u16string& path) override;
  OpenAlwaysResult openAlways(const std::u16string& path) override;
  std::unique_ptr<WritableFile> openForWriting(const std::u16string& path) override;
  bool listFolder(const std::u16string& folder, std::vector<FolderEntry>& entries) override;
  bool removeFile(const std::u16string& path) override;
  bool replaceFile(const std::u16string& from, const std::u16string& to) override;
  bool stdoutIsTerminal() override;
  void lowerThreadPriority() override;
  std::unique_ptr<ThreadCrashScope> prepareThreadForCrashes() override;
  uint16_t userUiLanguage() override;
  std::u16string languageAbbreviation(uint16_t langId) override;
  KeyStore& keyStore() override;
  void installCrashHandler(CrashHandler handler) override;
  void uninstallCrashHandler() override;
  void showFatalMessage(const std::u16string& caption, const std::u16string& text) override;

 private:
  std::unique_ptr<KeyStore> keyStore_;
};

// UTF-16 crosses to Win32 as is: wchar_t is 16 bits there.
inline const wchar_t* wide(const std::u16string& s) {
  return reinterpret_cast<const wchar_t*>(s.c_str());
}
inline std::u16string fromWide(const wchar_t* s) {
  return s ? std::u16string(reinterpret_cast<const char16_t*>(s)) : std::u16string();
}

}  // namespace PIM
