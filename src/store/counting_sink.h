// An advise sink that only counts the table notifications it hears, for
// programs that measure or check how many changes a store reports.
#pragma once

#include "mapi/mapi.h"

namespace PIM::store {

class CountingSink final : public IMAPIAdviseSink {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (iid != IID_IUnknown && iid != IID_IMAPIAdviseSink) return E_NOINTERFACE;
    *out = this;
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs_; }
  ULONG STDMETHODCALLTYPE OnNotify(ULONG count, LPNOTIFICATION) override {
    events += count;
    return 0;
  }
  unsigned long long events = 0;

 private:
  ULONG refs_ = 1;
};

}  // namespace PIM::store
