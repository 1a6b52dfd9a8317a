// The reference store as mapi32.dll: the MAPI functions a host and its
// add-ins call, over one profile per process loaded from a fixture file.
//
//   FERRANT_STORE          the fixture (else samples\sample-mailbox.json beside
//                          this DLL, else the source tree's copy)
//   FERRANT_STORE_FAIL     comma-separated names that fail: MAPIInitialize,
//                          MAPILogonEx (MAPI_E_LOGON_FAILED) or any store call
//                          the fault injector knows ("IMAPITable::Advise",
//                          "HrThisThreadAdviseSink", ...: MAPI_E_CALL_FAILED)
//   FERRANT_STORE_POLL_MS  how often the loaded fixture is checked for edits
//                          (default 1000; 0 = never)
//
// The settings are read when MAPIInitialize first counts the process in. The
// first MAPILogonEx loads the profile; every later logon joins it, as a host
// and its add-ins share one session. A watcher thread then polls the file and
// reloads it by difference, so the changed folders' advised tables hear of
// it (on the advising threads: thread_sink.h). The last MAPIUninitialize
// stops the watcher and lets the profile go once no session holds it. The
// MAPI buffer functions and utilities come from the store library
// (mapi_runtime.cpp).

#include <windows.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "core/utils.h"
#include "mapi/mapi.h"
#include "mapi/mapi_ptr.h"
#include "store/fault_injector.h"
#include "store/fixture.h"
#include "store/profile.h"
#include "store/profile_reload.h"

#ifndef FERRANT_SOURCE_SAMPLE
#define FERRANT_SOURCE_SAMPLE ""
#endif

namespace PIM::store {
namespace {

constexpr unsigned kDefaultPollMs = 1000;

// One line on the host's standard error and the debugger: this DLL has no
// diagnostic log of its own, and the host's belongs to the host.
void storeLog(const std::string& line) {
  const std::string text = "mapi32: " + line + "\n";
  std::fputs(text.c_str(), stderr);
  std::fflush(stderr);
  OutputDebugStringA(text.c_str());
}

// Read through the system rather than the C runtime: this DLL's runtime has
// its own copy of the environment, taken when it loaded.
std::u16string environmentVariable(const wchar_t* name) {
  wchar_t buffer[4096];
  const DWORD length = GetEnvironmentVariableW(name, buffer, 4096);
  if (length == 0 || length >= 4096) return {};
  return std::u16string(asU16(buffer), length);
}

std::u16string defaultStorePath() {
  const std::u16string beside = getDllPath() + u"samples" + kPathSeparator + u"sample-mailbox.json";
  if (fileExists(beside)) return beside;
  const std::u16string source = fromUtf8(FERRANT_SOURCE_SAMPLE);
  if (!source.empty() && fileExists(source)) return source;
  return beside;  // named in the logon's error
}

struct Settings {
  std::u16string storePath;
  std::set<std::string> failing;
  unsigned pollMs = kDefaultPollMs;

  static Settings read() {
    Settings s;
    s.storePath = environmentVariable(L"FERRANT_STORE");
    if (s.storePath.empty()) s.storePath = defaultStorePath();
    const std::string fail = toUtf8(environmentVariable(L"FERRANT_STORE_FAIL"));
    size_t start = 0;
    while (start <= fail.size()) {
      size_t end = fail.find(',', start);
      if (end == std::string::npos) end = fail.size();
      std::string name = fail.substr(start, end - start);
      name.erase(0, name.find_first_not_of(" \t"));
      name.erase(name.find_last_not_of(" \t") + 1);
      if (!name.empty()) s.failing.insert(name);
      start = end + 1;
    }
    const std::string poll = toUtf8(environmentVariable(L"FERRANT_STORE_POLL_MS"));
    if (!poll.empty()) {
      char* end = nullptr;
      const unsigned long value = std::strtoul(poll.c_str(), &end, 10);
      if (end && *end == '\0' && value <= 24ul * 3600 * 1000)
        s.pollMs = static_cast<unsigned>(value);
      else
        storeLog("FERRANT_STORE_POLL_MS \"" + poll + "\" is not a number of milliseconds; using " +
                 std::to_string(kDefaultPollMs));
    }
    return s;
  }
};

// Polls the fixture on a thread of its own until stopped.
class Watcher {
 public:
  Watcher(std::shared_ptr<Profile> profile, const std::u16string& path, unsigned pollMs)
      : fixture_(std::move(profile), path), path_(toUtf8(path)) {
    thread_ = std::thread([this, pollMs] { run(pollMs); });
  }
  ~Watcher() {
    {
      std::lock_guard<std::mutex> guard(lock_);
      stop_ = true;
    }
    wake_.notify_all();
    thread_.join();
  }

 private:
  void run(unsigned pollMs) {
    std::unique_lock<std::mutex> guard(lock_);
    while (!wake_.wait_for(guard, std::chrono::milliseconds(pollMs), [this] { return stop_; })) {
      guard.unlock();
      try {
        const ReloadResult result = fixture_.check();
        if (result.status == ReloadResult::Status::LoadFailed ||
            result.status == ReloadResult::Status::RestartNeeded)
          storeLog("the edited store " + path_ + " was not taken in: " + result.error);
      } catch (const std::exception& e) {
        storeLog("reloading " + path_ + " failed: " + e.what());
      }
      guard.lock();
    }
  }

  FixtureWatcher fixture_;  // used on the thread only once it runs
  const std::string path_;
  std::mutex lock_;  // guards stop_
  std::condition_variable wake_;
  bool stop_ = false;
  std::thread thread_;
};

class ProcessStore {
 public:
  // Never destroyed: a watcher still running at process exit must not be
  // joined from the loader's teardown.
  static ProcessStore& instance() {
    static ProcessStore* const store = new ProcessStore;
    return *store;
  }

  HRESULT initialize() {
    std::lock_guard<std::mutex> guard(lock_);
    if (inits_ == 0) {
      settings_ = Settings::read();
      FaultInjector::instance().clear();
      for (const std::string& name : settings_.failing)
        if (name != "MAPIInitialize" && name != "MAPILogonEx")
          FaultInjector::instance().failAlways(name, MAPI_E_CALL_FAILED);
      if (settings_.failing.count("MAPIInitialize")) {
        storeLog("MAPIInitialize fails as FERRANT_STORE_FAIL asks");
        return MAPI_E_CALL_FAILED;
      }
    }
    ++inits_;
    return S_OK;
  }

  void uninitialize() {
    std::unique_ptr<Watcher> watcher;
    std::shared_ptr<Profile> profile;
    {
      std::lock_guard<std::mutex> guard(lock_);
      if (inits_ == 0 || --inits_ > 0) return;
      watcher = std::move(watcher_);
      profile = std::move(profile_);
      FaultInjector::instance().clear();
    }
    // Joined outside the lock: a reload in progress finishes first. The
    // profile lives on in the sessions still open.
    watcher.reset();
  }

  HRESULT logon(LPMAPISESSION* session) {
    std::lock_guard<std::mutex> guard(lock_);
    if (inits_ == 0) return MAPI_E_NOT_INITIALIZED;
    if (settings_.failing.count("MAPILogonEx")) {
      storeLog("MAPILogonEx fails as FERRANT_STORE_FAIL asks");
      return MAPI_E_LOGON_FAILED;
    }
    if (!profile_) {
      const HRESULT hr = load();
      if (FAILED(hr)) return hr;
    }
    return profile_->logon(session);
  }

 private:
  ProcessStore() = default;

  // Under lock_.
  HRESULT load() {
    const std::string name = toUtf8(settings_.storePath);
    if (!fileExists(settings_.storePath)) {
      storeLog("MAPILogonEx: no store file at " + name);
      return MAPI_E_LOGON_FAILED;
    }
    try {
      profile_ = loadFixtureFile(settings_.storePath);
      if (settings_.pollMs > 0)
        watcher_ = std::make_unique<Watcher>(profile_, settings_.storePath, settings_.pollMs);
    } catch (const std::bad_alloc&) {
      profile_.reset();
      storeLog("MAPILogonEx: out of memory loading " + name);
      return MAPI_E_NOT_ENOUGH_MEMORY;
    } catch (const std::exception& e) {
      profile_.reset();
      storeLog("MAPILogonEx: the store could not be loaded: " + std::string(e.what()));
      return MAPI_E_LOGON_FAILED;
    }
    return S_OK;
  }

  std::mutex lock_;  // guards everything below
  unsigned inits_ = 0;
  Settings settings_;
  std::shared_ptr<Profile> profile_;
  std::unique_ptr<Watcher> watcher_;
};

}  // namespace
}  // namespace PIM::store

using PIM::store::ProcessStore;

extern "C" HRESULT STDAPICALLTYPE MAPIInitialize(LPVOID /*lpMapiInit*/) {
  return ProcessStore::instance().initialize();
}

extern "C" void STDAPICALLTYPE MAPIUninitialize() { ProcessStore::instance().uninitialize(); }

// No profiles or logon dialogs: every logon joins the process's one profile.
extern "C" HRESULT STDAPICALLTYPE MAPILogonEx(ULONG_PTR /*ulUIParam*/, LPTSTR /*lpszProfileName*/,
                                              LPTSTR /*lpszPassword*/, ULONG /*flFlags*/,
                                              LPMAPISESSION* lppSession) {
  if (!lppSession) return MAPI_E_INVALID_PARAMETER;
  *lppSession = nullptr;
  try {
    return ProcessStore::instance().logon(lppSession);
  } catch (const std::exception& e) {
    PIM::store::storeLog(std::string("MAPILogonEx failed: ") + e.what());
    return MAPI_E_CALL_FAILED;
  }
}

// ---- Property utilities of the same DLL --------------------------------------

extern "C" HRESULT STDAPICALLTYPE HrSetOneProp(LPMAPIPROP lpMapiProp, LPSPropValue lpProp) {
  if (!lpMapiProp || !lpProp) return MAPI_E_INVALID_PARAMETER;
  PIM::MapiBuffer<SPropProblemArray> problems;
  HRESULT hr = lpMapiProp->SetProps(1, lpProp, problems.put());
  if (FAILED(hr)) return hr;
  if (problems && problems->cProblem > 0) return problems->aProblem[0].scode;
  return S_OK;
}

extern "C" LPSPropValue STDAPICALLTYPE PpropFindProp(LPSPropValue lpPropArray, ULONG cValues,
                                                     ULONG ulPropTag) {
  if (!lpPropArray) return nullptr;
  // PT_UNSPECIFIED finds the identifier whatever its type.
  const bool anyType = PROP_TYPE(ulPropTag) == PT_UNSPECIFIED;
  for (ULONG i = 0; i < cValues; ++i) {
    const ULONG tag = lpPropArray[i].ulPropTag;
    if (anyType ? PROP_ID(tag) == PROP_ID(ulPropTag) : tag == ulPropTag) return &lpPropArray[i];
  }
  return nullptr;
}

extern "C" void STDAPICALLTYPE FreePadrlist(LPADRLIST lpAdrlist) {
  if (!lpAdrlist) return;
  for (ULONG i = 0; i < lpAdrlist->cEntries; ++i) MAPIFreeBuffer(lpAdrlist->aEntries[i].rgPropVals);
  MAPIFreeBuffer(lpAdrlist);
}
