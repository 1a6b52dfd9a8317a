// The seam between the portable system and the operating system.
//
// Portable code (core/, data/, mapi/, capture/, prefs/) reaches every OS
// service through `PIM::env()`: files and folders, code pages, clocks and the
// time zone, the settings key store, the user-interface language and the
// crash hook. There is one implementation for Win32 and one for POSIX; tests
// replace single methods by deriving from `EnvWrapper` and installing the
// result with `ScopedEnv` (src/testing).
//
// Strings are UTF-16 (`std::u16string`) on both platforms. Methods are named
// so that no Win32 macro rewrites them.
//
// Thread safety: every method may be called from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/key_store.h"

namespace PIM {

#ifdef _WIN32
inline constexpr char16_t kPathSeparator = u'\\';
#else
inline constexpr char16_t kPathSeparator = u'/';
#endif

// Shell special-folder numbers the system asks for.
inline constexpr int kCsidlLocalAppData = 28;

// Broken-down time, field for field the Win32 SYSTEMTIME.
struct SystemTime {
  uint16_t year = 0;
  uint16_t month = 0;      // 1..12
  uint16_t dayOfWeek = 0;  // 0 = Sunday
  uint16_t day = 0;
  uint16_t hour = 0;
  uint16_t minute = 0;
  uint16_t second = 0;
  uint16_t milliseconds = 0;
};

enum class TimeZoneState { Unknown, Standard, Daylight };

// The current zone, in the sign convention of Win32: UTC = local + bias
// (minutes), the bias in force being bias + standardBias or bias +
// daylightBias according to `state`.
struct TimeZoneInfo {
  int32_t bias = 0;
  int32_t standardBias = 0;
  int32_t daylightBias = 0;
  TimeZoneState state = TimeZoneState::Unknown;
};

// The attribute bits of a folder entry, numbered as Win32 numbers them.
inline constexpr uint32_t kFileAttributeReadOnly = 0x01;
inline constexpr uint32_t kFileAttributeDirectory = 0x10;

// One entry of a folder listing.
struct FolderEntry {
  std::u16string name;  // the bare name
  uint32_t attributes = 0;
};

// What a thread set up so that a crash on it can still be reported; undone
// when destroyed, which must happen on the same thread.
class ThreadCrashScope {
 public:
  virtual ~ThreadCrashScope() = default;
};

// What opening a file with "open always" found.
enum class OpenAlwaysResult { Failed, Created, AlreadyExisted };

// A fatal fault as the crash report needs it. On Windows the fields come from
// the exception record and context; on POSIX the signal is given the Windows
// exception code that names the same fault (access violation, stack
// overflow, illegal instruction, ...).
struct CrashInfo {
  uint32_t code = 0;
  uint64_t address = 0;              // faulting instruction
  std::vector<uint64_t> parameters;  // as in the exception record
  struct RegisterGroup {
    std::string title;                                        // " General registers: "
    std::vector<std::pair<std::string, uint64_t>> registers;  // {"AX", value}
  };
  std::vector<RegisterGroup> registerGroups;
  int registerDigits = 8;  // hexadecimal digits per register value
};

// A file open for writing; closed when destroyed.
class WritableFile {
 public:
  virtual ~WritableFile() = default;
  // The number of bytes written: fewer than `size` when the disk is full or
  // the file has failed.
  virtual size_t write(const void* data, size_t size) = 0;
  // Flushes what is still buffered and closes the file; false when any byte
  // written so far did not reach the file. A small file is often written
  // only here, so a full disk may show up nowhere else.
  virtual bool close() = 0;
};

// Called on the crashing thread. Returns when the report is written; the
// platform then hands the fault to the previous handler or ends the process.
using CrashHandler = void (*)(const CrashInfo&);

class Env {
 public:
  virtual ~Env() = default;

  // The platform's own implementation; never null, never freed.
  static Env* platformDefault();

  // --- Code pages -------------------------------------------------------
  // WideCharToMultiByte with flags 0 and no default character: `units` is
  // the input length (-1 = up to and including its NUL); with outSize 0
  // returns the size needed, else the bytes written, 0 on failure.
  virtual int wideToMultiByte(uint32_t codePage, const char16_t* text, int units, char* out,
                              int outSize) = 0;
  // MultiByteToWideChar with flags 0; same conventions, counted in units.
  virtual int multiByteToWide(uint32_t codePage, const char* text, int bytes, char16_t* out,
                              int outUnits) = 0;

  // --- Clocks -----------------------------------------------------------
  virtual SystemTime systemTimeNow() = 0;  // UTC
  virtual SystemTime localTimeNow() = 0;
  virtual TimeZoneInfo timeZone() = 0;
  virtual uint32_t tickCount() = 0;  // milliseconds since start, wraps

  // --- Files and folders ------------------------------------------------
  // The shell special folder, or empty text. Off Windows only
  // kCsidlLocalAppData is known: $XDG_DATA_HOME or ~/.local/share.
  virtual std::u16string specialFolder(int csidl) = 0;
  // Full path of the module (DLL or program) holding this code.
  virtual std::u16string moduleFileName() = 0;
  // Full path of the host process's executable.
  virtual std::u16string hostExecutablePath() = 0;
  virtual bool pathStatus(const std::u16string& path) = 0;  // true if it exists
  // Creates one folder (parents must exist); true on success.
  virtual bool makeDirectory(const std::u16string& path) = 0;
  // Opens for reading and writing without sharing, creating it if missing,
  // and closes it again at once.
  virtual OpenAlwaysResult openAlways(const std::u16string& path) = 0;
  // Creates the file, or empties an existing one, for writing bytes; null
  // when it cannot be opened.
  virtual std::unique_ptr<WritableFile> openForWriting(const std::u16string& path) = 0;
  // Every entry of `folder` but "." and "..", in no particular order, with
  // its read-only and directory bits. Off Windows a file is read-only when
  // its owner may not write it. False when the folder cannot be read.
  virtual bool listFolder(const std::u16string& folder, std::vector<FolderEntry>& entries) = 0;
  // Deletes one file; true on success.
  virtual bool removeFile(const std::u16string& path) = 0;
  // Renames `from` to `to` in the same folder, replacing `to` in one step:
  // a reader, or a process killed meanwhile, sees the old file or the new
  // one, never none. True on success.
  virtual bool replaceFile(const std::u16string& from, const std::u16string& to) = 0;

  // --- Threads ------------------------------------------------------------
  // Puts the calling thread one step below normal priority where the system
  // lets a process do that.
  virtual void lowerThreadPriority() = 0;
  // Called first thing on every thread the system starts: a fault on it must
  // still reach the crash report (off Windows the report needs an alternate
  // signal stack on each thread). Keep the result until the thread ends;
  // null when nothing had to be done.
  virtual std::unique_ptr<ThreadCrashScope> prepareThreadForCrashes() = 0;

  // --- User-interface language -----------------------------------------
  // The user's default UI language as a Windows language identifier
  // (primary language in the low 10 bits, sub-language above).
  virtual uint16_t userUiLanguage() = 0;
  // The three-letter abbreviation ("ENU", "DEU") of a language identifier,
  // or empty text when unknown.
  virtual std::u16string languageAbbreviation(uint16_t langId) = 0;

  // --- Settings key store ----------------------------------------------
  virtual KeyStore& keyStore() = 0;

  // --- Console ---------------------------------------------------------
  // Whether standard output goes to a terminal (a console window on
  // Windows) rather than a file or a pipe: only there is a progress line
  // redrawn in place.
  virtual bool stdoutIsTerminal() = 0;

  // --- Crash hook --------------------------------------------------------
  // Installs `handler` for fatal faults, keeping whatever it replaces;
  // uninstall puts that back.
  virtual void installCrashHandler(CrashHandler handler) = 0;
  virtual void uninstallCrashHandler() = 0;
  // The one message the user sees after a crash: a message box on Windows, a
  // line on standard error elsewhere.
  virtual void showFatalMessage(const std::u16string& caption, const std::u16string& text) = 0;
};

// Forwards every call to another Env, so a test overrides just one method.
class EnvWrapper : public Env {
 public:
  explicit EnvWrapper(Env* target) : target_(target) {}
  Env* target() const { return target_; }

  int wideToMultiByte(uint32_t cp, const char16_t* t, int u, char* o, int s) override {
    return target_->wideToMultiByte(cp, t, u, o, s);
  }
  int multiByteToWide(uint32_t cp, const char* t, int b, char16_t* o, int s) override {
    return target_->multiByteToWide(cp, t, b, o, s);
  }
  SystemTime systemTimeNow() override { return target_->systemTimeNow(); }
  SystemTime localTimeNow() override { return target_->localTimeNow(); }
  TimeZoneInfo timeZone() override { return target_->timeZone(); }
  uint32_t tickCount() override { return target_->tickCount(); }
  std::u16string specialFolder(int csidl) override { return target_->specialFolder(csidl); }
  std::u16string moduleFileName() override { return target_->moduleFileName(); }
  std::u16string hostExecutablePath() override { return target_->hostExecutablePath(); }
  bool pathStatus(const std::u16string& p) override { return target_->pathStatus(p); }
  bool makeDirectory(const std::u16string& p) override { return target_->makeDirectory(p); }
  OpenAlwaysResult openAlways(const std::u16string& p) override { return target_->openAlways(p); }
  std::unique_ptr<WritableFile> openForWriting(const std::u16string& p) override {
    return target_->openForWriting(p);
  }
  bool listFolder(const std::u16string& f, std::vector<FolderEntry>& e) override {
    return target_->listFolder(f, e);
  }
  bool removeFile(const std::u16string& p) override { return target_->removeFile(p); }
  bool replaceFile(const std::u16string& f, const std::u16string& t) override {
    return target_->replaceFile(f, t);
  }
  void lowerThreadPriority() override { target_->lowerThreadPriority(); }
  std::unique_ptr<ThreadCrashScope> prepareThreadForCrashes() override {
    return target_->prepareThreadForCrashes();
  }
  uint16_t userUiLanguage() override { return target_->userUiLanguage(); }
  std::u16string languageAbbreviation(uint16_t id) override {
    return target_->languageAbbreviation(id);
  }
  KeyStore& keyStore() override { return target_->keyStore(); }
  bool stdoutIsTerminal() override { return target_->stdoutIsTerminal(); }
  void installCrashHandler(CrashHandler h) override { target_->installCrashHandler(h); }
  void uninstallCrashHandler() override { target_->uninstallCrashHandler(); }
  void showFatalMessage(const std::u16string& c, const std::u16string& t) override {
    target_->showFatalMessage(c, t);
  }

 private:
  Env* target_;
};

// The Env in force: the platform's unless a test installed another.
Env* env();
// Installs `e` (null restores the platform's) and returns the previous one.
// For tests; not meant to race with running work.
Env* setEnv(Env* e);

}  // namespace PIM
