// Notifications copied for another thread hold nothing of the original.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "mapi/mapi_ptr.h"
#include "store/fault_injector.h"
#include "store/mapi_runtime.h"
#include "store/notification_copy.h"

namespace PIM::store {
namespace {

// Overwrites what a raiser held, as it may once OnNotify returned.
template <class T>
void scribble(T* data, size_t count) {
  std::memset(static_cast<void*>(data), 0xCD, sizeof(T) * count);
}

TEST(NotificationCopy, EveryKindTheStoreRaisesIsCopiedWhole) {
  const int64_t buffersBefore = liveMapiBuffers();
  BYTE entry[] = {0, 0, 0, 0, 1, 2, 3};
  BYTE parent[] = {0, 0, 0, 0, 9};
  wchar_t subject[] = L"Budget";
  char ansiClass[] = "IPM.Note";
  wchar_t wideClass[] = L"IPM.Note.Wide";
  LPWSTR names[] = {subject, wideClass};
  SBinary blobs[] = {{sizeof(entry), entry}, {sizeof(parent), parent}};
  GUID guid = {0x00062002, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
  SizedSPropTagArray(2, tags) = {2, {PR_SUBJECT_W, PR_ENTRYID}};

  std::vector<SPropValue> row(5);
  row[0].ulPropTag = PR_SUBJECT_W;
  row[0].Value.lpszW = subject;
  row[1].ulPropTag = PR_ENTRYID;
  row[1].Value.bin = {sizeof(entry), entry};
  row[2].ulPropTag = PROP_TAG(PT_MV_UNICODE, 0x8001);
  row[2].Value.MVszW = {2, names};
  row[3].ulPropTag = PROP_TAG(PT_MV_BINARY, 0x8002);
  row[3].Value.MVbin = {2, blobs};
  row[4].ulPropTag = PROP_TAG(PT_CLSID, 0x8003);
  row[4].Value.lpguid = &guid;

  NOTIFICATION n[5] = {};
  n[0].ulEventType = fnevTableModified;
  n[0].info.tab.ulTableEvent = TABLE_ROW_ADDED;
  n[0].info.tab.propIndex.ulPropTag = PR_INSTANCE_KEY;
  n[0].info.tab.propIndex.Value.bin = {sizeof(parent), parent};
  n[0].info.tab.propPrior.ulPropTag = PR_NULL;
  n[0].info.tab.row = {0, static_cast<ULONG>(row.size()), row.data()};
  n[1].ulEventType = fnevObjectModified;
  n[1].info.obj = {sizeof(entry),
                   reinterpret_cast<LPENTRYID>(entry),
                   MAPI_MESSAGE,
                   sizeof(parent),
                   reinterpret_cast<LPENTRYID>(parent),
                   0,
                   nullptr,
                   0,
                   nullptr,
                   reinterpret_cast<LPSPropTagArray>(&tags)};
  n[2].ulEventType = fnevNewMail;
  n[2].info.newmail = {sizeof(entry),
                       reinterpret_cast<LPENTRYID>(entry),
                       sizeof(parent),
                       reinterpret_cast<LPENTRYID>(parent),
                       0,
                       reinterpret_cast<LPTSTR>(ansiClass),
                       0};
  n[3].ulEventType = fnevNewMail;
  n[3].info.newmail = {sizeof(entry), reinterpret_cast<LPENTRYID>(entry),  0, nullptr,
                       MAPI_UNICODE,  reinterpret_cast<LPTSTR>(wideClass), 0};
  n[4].ulEventType = fnevExtended;
  n[4].info.ext = {7, sizeof(parent), parent};

  MapiBuffer<NOTIFICATION> copy;
  ASSERT_EQ(copyNotifications(5, n, copy.put()), S_OK);
  // What the raiser had is gone once OnNotify returns.
  const std::vector<BYTE> entryBytes(entry, entry + sizeof(entry));
  const std::vector<BYTE> parentBytes(parent, parent + sizeof(parent));
  scribble(entry, sizeof(entry));
  scribble(parent, sizeof(parent));
  scribble(subject, 6);
  scribble(ansiClass, 8);
  scribble(wideClass, 13);
  scribble(&guid, 1);
  scribble(blobs, 2);
  scribble(names, 2);
  scribble(row.data(), row.size());
  const ULONG secondTag = tags.aulPropTag[1];
  scribble(&tags, 1);

  auto bytes = [](const void* p, ULONG cb) {
    const auto* b = static_cast<const BYTE*>(p);
    return std::vector<BYTE>(b, b + cb);
  };
  const NOTIFICATION* c = copy.get();
  const TABLE_NOTIFICATION& tab = c[0].info.tab;
  EXPECT_EQ(tab.ulTableEvent, static_cast<ULONG>(TABLE_ROW_ADDED));
  EXPECT_EQ(bytes(tab.propIndex.Value.bin.lpb, tab.propIndex.Value.bin.cb), parentBytes);
  ASSERT_EQ(tab.row.cValues, 5u);
  EXPECT_STREQ(tab.row.lpProps[0].Value.lpszW, L"Budget");
  EXPECT_EQ(bytes(tab.row.lpProps[1].Value.bin.lpb, tab.row.lpProps[1].Value.bin.cb), entryBytes);
  ASSERT_EQ(tab.row.lpProps[2].Value.MVszW.cValues, 2u);
  EXPECT_STREQ(tab.row.lpProps[2].Value.MVszW.lppszW[0], L"Budget");
  EXPECT_STREQ(tab.row.lpProps[2].Value.MVszW.lppszW[1], L"IPM.Note.Wide");
  ASSERT_EQ(tab.row.lpProps[3].Value.MVbin.cValues, 2u);
  EXPECT_EQ(bytes(tab.row.lpProps[3].Value.MVbin.lpbin[1].lpb,
                  tab.row.lpProps[3].Value.MVbin.lpbin[1].cb),
            parentBytes);
  EXPECT_EQ(tab.row.lpProps[4].Value.lpguid->Data1, 0x00062002u);

  const OBJECT_NOTIFICATION& obj = c[1].info.obj;
  EXPECT_EQ(bytes(obj.lpEntryID, obj.cbEntryID), entryBytes);
  EXPECT_EQ(bytes(obj.lpParentID, obj.cbParentID), parentBytes);
  EXPECT_EQ(obj.lpOldID, nullptr);
  ASSERT_NE(obj.lpPropTagArray, nullptr);
  EXPECT_EQ(obj.lpPropTagArray->cValues, 2u);
  EXPECT_EQ(obj.lpPropTagArray->aulPropTag[1], secondTag);

  EXPECT_STREQ(reinterpret_cast<const char*>(c[2].info.newmail.lpszMessageClass), "IPM.Note");
  EXPECT_EQ(bytes(c[2].info.newmail.lpParentID, c[2].info.newmail.cbParentID), parentBytes);
  EXPECT_STREQ(reinterpret_cast<const wchar_t*>(c[3].info.newmail.lpszMessageClass),
               L"IPM.Note.Wide");
  EXPECT_EQ(c[3].info.newmail.lpParentID, nullptr);
  EXPECT_EQ(c[4].info.ext.ulEvent, 7u);
  EXPECT_EQ(bytes(c[4].info.ext.pbEventParameters, c[4].info.ext.cb), parentBytes);

  copy.reset();
  EXPECT_EQ(liveMapiBuffers(), buffersBefore) << "one free frees the whole copy";
}

TEST(NotificationCopy, AFailedAllocationLeavesNothingBehind) {
  const int64_t buffersBefore = liveMapiBuffers();
  ScopedFaults faults;
  wchar_t subject[] = L"Budget";
  SPropValue value;
  value.ulPropTag = PR_SUBJECT_W;
  value.Value.lpszW = subject;
  NOTIFICATION n = {};
  n.ulEventType = fnevTableModified;
  n.info.tab.row = {0, 1, &value};
  for (const char* call : {"MAPIAllocateBuffer", "MAPIAllocateMore"}) {
    faults->failCall(call, MAPI_E_NOT_ENOUGH_MEMORY);
    LPNOTIFICATION out = reinterpret_cast<LPNOTIFICATION>(&n);
    EXPECT_EQ(copyNotifications(1, &n, &out), MAPI_E_NOT_ENOUGH_MEMORY) << call;
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(liveMapiBuffers(), buffersBefore) << call;
  }
}

}  // namespace
}  // namespace PIM::store
