// Reference counting and QueryInterface for the store's MAPI objects. Each
// object implements one interface chain (IMAPIFolder : IMAPIContainer :
// IMAPIProp : IUnknown, ...) and answers the IIDs of that chain.
#pragma once

#include <atomic>
#include <initializer_list>

#include "mapi/mapi.h"
#include "store/fault_injector.h"

namespace PIM::store {

template <class Iface>
class ComBase : public Iface {
 public:
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --refs_;
    if (left == 0) delete this;
    return left;
  }
  // Can be made to fail like any store call ("IMAPIFolder::QueryInterface").
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_INVALIDARG;
    if (HRESULT injected = FaultInjector::instance().check(interfaceName(), "QueryInterface")) {
      *out = nullptr;
      return injected;
    }
    if (iid == IID_IUnknown || answers(iid)) {
      *out = static_cast<Iface*>(this);
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }

 protected:
  ComBase() = default;
  virtual ~ComBase() = default;
  // True for the IIDs of this object's interface chain.
  virtual bool answers(REFIID iid) const = 0;
  // The name fault rules use for this object's calls.
  virtual const char* interfaceName() const = 0;

 private:
  std::atomic<ULONG> refs_{1};
};

inline bool anyOf(REFIID iid, std::initializer_list<const IID*> ids) {
  for (const IID* id : ids)
    if (iid == *id) return true;
  return false;
}

}  // namespace PIM::store
