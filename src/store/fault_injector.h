// Fault injection for tests: any store call, named "Interface::Method"
// ("IMAPITable::Restrict", "IMsgStore::OpenEntry") or by its method name
// alone (matching every interface), or one of the MAPI functions
// ("MAPIAllocateBuffer", "MAPIAllocateMore"), can be made to answer a chosen
// result the nth time it is called, a number of times, or always.
//
//   PIM::store::ScopedFaults faults;              // clears everything at the end
//   faults->failCall("IMAPITable::Restrict", MAPI_E_BUSY);        // next call
//   faults->failCall("QueryRows", MAPI_E_BUSY, 2, 0);  // 2nd call and every later one
//
// The name "*" (kAnyCall) matches every call, so that a test can fail the
// nth store call of a piece of work whatever it is:
//
//   faults->failCall(PIM::store::FaultInjector::kAnyCall, MAPI_E_CALL_FAILED, 120);
//
// Every call is counted whether or not a rule matches (`callCount`), so tests
// can also see that a call was made, and can be recorded in order
// (`recordCalls`). Thread-safe; the injector is process-wide because the
// MAPI functions are.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "mapi/mapi.h"

namespace PIM::store {

class FaultInjector {
 public:
  // A rule under this name matches every call.
  static constexpr const char* kAnyCall = "*";

  static FaultInjector& instance();

  // From the `nth` matching call after this one (1 = the very next), `times`
  // calls answer `result`; times 0 = every call from then on.
  void failCall(const std::string& name, HRESULT result, unsigned nth = 1, unsigned times = 1);
  void failAlways(const std::string& name, HRESULT result) { failCall(name, result, 1, 0); }
  // Forgets all rules and all counts.
  void clear();
  // Calls made under this qualified name ("IMAPITable::Restrict") or bare
  // method name ("Restrict", every interface) since the last clear().
  unsigned callCount(const std::string& name) const;
  // Every name callCount() knows since the last clear(), qualified and bare,
  // sorted: the calls a piece of work makes, for tests that fail each in
  // turn.
  std::vector<std::string> calledNames() const;
  // Every call since the last clear(), of any name.
  unsigned totalCalls() const;
  // From now until clear(), keeps the qualified name of every call in the
  // order made (recordedCalls()[n - 1] is the call that failCall(kAnyCall,
  // hr, n) would fail, counted from the same clear()).
  void recordCalls();
  std::vector<std::string> recordedCalls() const;
  // Runs `hook` on the calling thread when the nth call of any kind since
  // the last clear() is made, before it is answered (a test holds a run
  // there, or cancels it). Outside the injector's lock, so it may wait.
  void atCall(unsigned nth, std::function<void()> hook);

  // Entry of every store call: counts it and returns the injected result, or
  // S_OK when none applies.
  HRESULT check(const char* interfaceName, const char* method);

 private:
  struct Rule {
    std::string name;
    HRESULT result;
    unsigned nth;
    unsigned times;
    unsigned seen = 0;
  };
  mutable std::mutex lock_;  // guards everything below
  std::vector<Rule> rules_;
  std::map<std::string, unsigned> counts_;
  unsigned total_ = 0;
  bool recording_ = false;
  std::vector<std::string> recorded_;
  unsigned hookAt_ = 0;
  std::function<void()> hook_;
};

// Gives a test the injector and clears it before and after.
class ScopedFaults {
 public:
  ScopedFaults() { FaultInjector::instance().clear(); }
  ~ScopedFaults() { FaultInjector::instance().clear(); }
  ScopedFaults(const ScopedFaults&) = delete;
  ScopedFaults& operator=(const ScopedFaults&) = delete;
  FaultInjector* operator->() const { return &FaultInjector::instance(); }
};

}  // namespace PIM::store
