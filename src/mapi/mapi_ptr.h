// Move-only owners of MAPI resources: a COM interface pointer (Release), a
// MAPI buffer (MAPIFreeBuffer) and a row set (FreeProws). Every owner frees
// what it holds when it is destroyed, reset or move-assigned over, and
// `put()` frees the old value before handing out the slot for an out
// parameter:
//
//   PIM::ComPtr<IMAPITable> table;
//   hr = folder->GetContentsTable(0, table.put());
//   PIM::RowSet rows;
//   hr = table->QueryRows(100, 0, rows.put());
//
// The free functions are policies so that tests can count the frees.
#pragma once

#include <utility>

#include "mapi/mapi.h"

namespace PIM {

template <class T>
class ComPtr {
 public:
  ComPtr() noexcept = default;
  // Takes over a reference the caller already holds.
  explicit ComPtr(T* p) noexcept : p_(p) {}
  ComPtr(const ComPtr&) = delete;
  ComPtr& operator=(const ComPtr&) = delete;
  ComPtr(ComPtr&& other) noexcept : p_(other.detach()) {}
  ComPtr& operator=(ComPtr&& other) noexcept {
    if (this != &other) reset(other.detach());
    return *this;
  }
  ~ComPtr() { reset(); }

  // Adds a reference of its own.
  static ComPtr share(T* p) noexcept {
    if (p) p->AddRef();
    return ComPtr(p);
  }

  T* get() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }

  // Releases the held interface, then takes `p` (a reference already held).
  void reset(T* p = nullptr) noexcept {
    T* old = p_;
    p_ = p;
    if (old) old->Release();
  }
  // Gives up ownership without releasing.
  [[nodiscard]] T* detach() noexcept { return std::exchange(p_, nullptr); }
  // The slot for an out parameter; what was held is released first.
  T** put() noexcept {
    reset();
    return &p_;
  }
  // The same slot typed as COM's `void**` / MAPI's `LPUNKNOWN*`.
  void** putVoid() noexcept { return reinterpret_cast<void**>(put()); }
  LPUNKNOWN* putUnknown() noexcept { return reinterpret_cast<LPUNKNOWN*>(put()); }

  // QueryInterface into another owner; the result of the call is returned.
  template <class U>
  [[nodiscard]] HRESULT queryInterface(REFIID iid, ComPtr<U>& out) const noexcept {
    if (!p_) {
      out.reset();
      return E_POINTER;
    }
    return p_->QueryInterface(iid, out.putVoid());
  }

 private:
  T* p_ = nullptr;
};

struct MapiFreeBufferPolicy {
  static void free(void* p) noexcept { MAPIFreeBuffer(p); }
};
struct FreeProwsPolicy {
  static void free(SRowSet* rows) noexcept { FreeProws(rows); }
};

// Owner of one MAPI buffer (the root of an allocation).
template <class T, class Free = MapiFreeBufferPolicy>
class MapiBuffer {
 public:
  MapiBuffer() noexcept = default;
  explicit MapiBuffer(T* p) noexcept : p_(p) {}
  MapiBuffer(const MapiBuffer&) = delete;
  MapiBuffer& operator=(const MapiBuffer&) = delete;
  MapiBuffer(MapiBuffer&& other) noexcept : p_(other.detach()) {}
  MapiBuffer& operator=(MapiBuffer&& other) noexcept {
    if (this != &other) reset(other.detach());
    return *this;
  }
  ~MapiBuffer() { reset(); }

  T* get() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }
  void reset(T* p = nullptr) noexcept {
    T* old = p_;
    p_ = p;
    if (old) Free::free(old);
  }
  [[nodiscard]] T* detach() noexcept { return std::exchange(p_, nullptr); }
  T** put() noexcept {
    reset();
    return &p_;
  }
  // For MAPIAllocateBuffer's `LPVOID*`.
  void** putVoid() noexcept { return reinterpret_cast<void**>(put()); }

 private:
  T* p_ = nullptr;
};

// Owner of a row set from QueryRows or HrQueryAllRows.
template <class Free = FreeProwsPolicy>
class BasicRowSet {
 public:
  BasicRowSet() noexcept = default;
  explicit BasicRowSet(SRowSet* p) noexcept : p_(p) {}
  BasicRowSet(const BasicRowSet&) = delete;
  BasicRowSet& operator=(const BasicRowSet&) = delete;
  BasicRowSet(BasicRowSet&& other) noexcept : p_(other.detach()) {}
  BasicRowSet& operator=(BasicRowSet&& other) noexcept {
    if (this != &other) reset(other.detach());
    return *this;
  }
  ~BasicRowSet() { reset(); }

  SRowSet* get() const noexcept { return p_; }
  SRowSet* operator->() const noexcept { return p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }
  // Rows held; 0 when none.
  ULONG size() const noexcept { return p_ ? p_->cRows : 0; }
  void reset(SRowSet* p = nullptr) noexcept {
    SRowSet* old = p_;
    p_ = p;
    if (old) Free::free(old);
  }
  [[nodiscard]] SRowSet* detach() noexcept { return std::exchange(p_, nullptr); }
  SRowSet** put() noexcept {
    reset();
    return &p_;
  }

 private:
  SRowSet* p_ = nullptr;
};
using RowSet = BasicRowSet<>;

}  // namespace PIM
