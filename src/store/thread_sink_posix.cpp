#include <atomic>

#include "mapi/mapi_ptr.h"
#include "store/thread_sink.h"

namespace PIM::store {
namespace {

// Delivers on the raising thread: the store raises on the thread that changed
// it, which is the thread a test or the Linux host runs its loop on.
class ForwardingSink final : public IMAPIAdviseSink {
 public:
  explicit ForwardingSink(IMAPIAdviseSink* target)
      : target_(ComPtr<IMAPIAdviseSink>::share(target)) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_INVALIDARG;
    if (iid == IID_IUnknown || iid == IID_IMAPIAdviseSink) {
      *out = static_cast<IMAPIAdviseSink*>(this);
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --refs_;
    if (left == 0) delete this;
    return left;
  }
  ULONG STDMETHODCALLTYPE OnNotify(ULONG count, LPNOTIFICATION notifications) override {
    return target_->OnNotify(count, notifications);
  }

 private:
  std::atomic<ULONG> refs_{1};
  ComPtr<IMAPIAdviseSink> target_;
};

}  // namespace

HRESULT makeThreadSink(IMAPIAdviseSink* target, IMAPIAdviseSink** out) {
  *out = new ForwardingSink(target);
  return S_OK;
}

}  // namespace PIM::store
