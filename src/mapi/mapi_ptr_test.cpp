#include "mapi/mapi_ptr.h"

#include <gtest/gtest.h>

namespace PIM {
namespace {

// An IUnknown that counts its references and tells when it was destroyed.
struct CountingUnknown : public IUnknown {
  int refs = 1;
  int releases = 0;
  bool* destroyed = nullptr;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_INVALIDARG;
    if (iid == IID_IUnknown) {
      *out = this;
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++refs); }
  ULONG STDMETHODCALLTYPE Release() override {
    ++releases;
    const int left = --refs;
    if (left == 0 && destroyed) *destroyed = true;
    return static_cast<ULONG>(left);
  }
};

TEST(ComPtrTest, ReleasesOnDestructionResetAndPut) {
  CountingUnknown a;
  {
    ComPtr<IUnknown> p(&a);
    EXPECT_EQ(p.get(), &a);
  }
  EXPECT_EQ(a.releases, 1);
  EXPECT_EQ(a.refs, 0);

  CountingUnknown b;
  ComPtr<IUnknown> p(&b);
  IUnknown** slot = p.put();
  EXPECT_EQ(b.releases, 1) << "put() releases what was held";
  EXPECT_EQ(*slot, nullptr);
  *slot = &a;
  a.refs = 1;
  p.reset();
  EXPECT_EQ(a.refs, 0);
  EXPECT_FALSE(p);
}

TEST(ComPtrTest, MoveAssignmentReleasesTheOldInterfaceAndKeepsTheNewOne) {
  CountingUnknown a, b;
  ComPtr<IUnknown> pa(&a), pb(&b);
  pa = std::move(pb);
  EXPECT_EQ(a.refs, 0) << "the interface held before the move is released";
  EXPECT_EQ(b.refs, 1) << "the moved interface is not released";
  EXPECT_EQ(pa.get(), &b);
  EXPECT_EQ(pb.get(), nullptr);

  ComPtr<IUnknown> pc(std::move(pa));
  EXPECT_EQ(pc.get(), &b);
  EXPECT_EQ(b.refs, 1);
  pc = std::move(pc);  // self-move keeps the interface
  EXPECT_EQ(b.refs, 1);
  EXPECT_EQ(pc.get(), &b);
}

TEST(ComPtrTest, ShareAddsAReferenceAndDetachGivesOneUp) {
  CountingUnknown a;
  {
    auto p = ComPtr<IUnknown>::share(&a);
    EXPECT_EQ(a.refs, 2);
  }
  EXPECT_EQ(a.refs, 1);
  ComPtr<IUnknown> p(&a);
  IUnknown* raw = p.detach();
  EXPECT_EQ(raw, &a);
  EXPECT_EQ(a.releases, 1) << "detach does not release";
  EXPECT_FALSE(p);
}

TEST(ComPtrTest, QueryInterfaceFillsTheOtherOwner) {
  CountingUnknown a;
  ComPtr<IUnknown> p(&a);
  ComPtr<IUnknown> q;
  EXPECT_EQ(p.queryInterface(IID_IUnknown, q), S_OK);
  EXPECT_EQ(q.get(), &a);
  EXPECT_EQ(a.refs, 2);
  ComPtr<IMAPITable> t;
  EXPECT_EQ(p.queryInterface(IID_IMAPITable, t), E_NOINTERFACE);
  EXPECT_FALSE(t);
  ComPtr<IUnknown> empty;
  EXPECT_EQ(empty.queryInterface(IID_IUnknown, q), E_POINTER);
  EXPECT_FALSE(q);
  EXPECT_EQ(a.refs, 1) << "the failed query released what q held";
}

// Counts the buffers it is asked to free.
struct CountingFree {
  static inline int frees = 0;
  static inline void* last = nullptr;
  static void free(void* p) noexcept {
    ++frees;
    last = p;
  }
};

TEST(MapiBufferTest, FreesOnceOnDestructionResetPutAndMoveAssignment) {
  CountingFree::frees = 0;
  int x = 0, y = 0;
  { MapiBuffer<int, CountingFree> b(&x); }
  EXPECT_EQ(CountingFree::frees, 1);
  EXPECT_EQ(CountingFree::last, &x);

  MapiBuffer<int, CountingFree> a(&x), b(&y);
  a = std::move(b);
  EXPECT_EQ(CountingFree::frees, 2);
  EXPECT_EQ(CountingFree::last, &x) << "move-assignment frees the old buffer";
  EXPECT_EQ(a.get(), &y);
  EXPECT_EQ(b.get(), nullptr);

  a.put();
  EXPECT_EQ(CountingFree::frees, 3);
  EXPECT_EQ(CountingFree::last, &y);
  a.reset();
  EXPECT_EQ(CountingFree::frees, 3) << "an empty owner frees nothing";

  MapiBuffer<int, CountingFree> c(&x);
  EXPECT_EQ(c.detach(), &x);
  c.reset();
  EXPECT_EQ(CountingFree::frees, 3);
}

struct CountingProws {
  static inline int frees = 0;
  static void free(SRowSet*) noexcept { ++frees; }
};

TEST(RowSetTest, FreesWithItsPolicyAndCountsRows) {
  CountingProws::frees = 0;
  SRowSet one{};
  one.cRows = 1;
  SRowSet two{};
  {
    BasicRowSet<CountingProws> rows(&one);
    EXPECT_EQ(rows.size(), 1u);
    BasicRowSet<CountingProws> other(&two);
    rows = std::move(other);
    EXPECT_EQ(CountingProws::frees, 1);
    EXPECT_EQ(rows.get(), &two);
    EXPECT_EQ(rows.size(), 0u);
  }
  EXPECT_EQ(CountingProws::frees, 2);
  BasicRowSet<CountingProws> empty;
  EXPECT_EQ(empty.size(), 0u);
}

}  // namespace
}  // namespace PIM
