// Our MAPI header: the one include for Extended MAPI in portable code.
//
// On Windows it brings in the toolchain's own Extended MAPI headers (and so
// <windows.h>, which MAPI's declarations need); elsewhere it declares a
// faithful subset of our own (mapi/portable/): the same names, numbers,
// structure layouts and vtable orders, so one body of code compiles against
// both. Either way the few names that only Outlook's headers carry (default
// folder entry ids, the named-property sets) are added below.
//
// Differences portable code must allow for:
//   - ULONG is `unsigned long` on Windows and `uint32_t` elsewhere (both 32
//     bits): print and convert through explicit casts.
//   - WCHAR is `wchar_t` on Windows and `char16_t` elsewhere; asU16()/asWchar()
//     below cross between MAPI text and std::u16string.
//   - The MAPI functions (MAPIAllocateBuffer, FreeProws, HrQueryAllRows...)
//     come from mapi32 on Windows and from the reference store elsewhere; the
//     test programs of every platform link the store's (store/mapi_runtime.h).
#pragma once

#ifdef _WIN32
#include <mapicode.h>
#include <mapidefs.h>
#include <mapiguid.h>
#include <mapitags.h>
#include <mapiutil.h>
#include <mapix.h>
#include <objbase.h>
#include <windows.h>
#else
#include "mapi/portable/mapi_codes.h"
#include "mapi/portable/mapi_defs.h"
#include "mapi/portable/mapi_tags.h"
#endif

#include <string>

// ---- Outlook's additions, missing from the SDK headers --------------------
#ifndef PR_IPM_APPOINTMENT_ENTRYID
#define PR_IPM_APPOINTMENT_ENTRYID PROP_TAG(PT_BINARY, 0x36D0)
#endif
#ifndef PR_IPM_CONTACT_ENTRYID
#define PR_IPM_CONTACT_ENTRYID PROP_TAG(PT_BINARY, 0x36D1)
#endif
#ifndef PR_IPM_JOURNAL_ENTRYID
#define PR_IPM_JOURNAL_ENTRYID PROP_TAG(PT_BINARY, 0x36D2)
#endif
#ifndef PR_IPM_NOTE_ENTRYID
#define PR_IPM_NOTE_ENTRYID PROP_TAG(PT_BINARY, 0x36D3)
#endif
#ifndef PR_IPM_TASK_ENTRYID
#define PR_IPM_TASK_ENTRYID PROP_TAG(PT_BINARY, 0x36D4)
#endif
#ifndef PR_IPM_DRAFTS_ENTRYID
#define PR_IPM_DRAFTS_ENTRYID PROP_TAG(PT_BINARY, 0x36D7)
#endif
#ifndef PR_CHANGE_KEY
#define PR_CHANGE_KEY PROP_TAG(PT_BINARY, 0x65E2)
#endif
#ifndef PR_SMTP_ADDRESS
#define PR_SMTP_ADDRESS PROP_TAG(PT_TSTRING, 0x39FE)
#define PR_SMTP_ADDRESS_W PROP_TAG(PT_UNICODE, 0x39FE)
#define PR_SMTP_ADDRESS_A PROP_TAG(PT_STRING8, 0x39FE)
#endif
#ifndef PR_FLAG_STATUS
#define PR_FLAG_STATUS PROP_TAG(PT_LONG, 0x1090)
#endif
#ifndef PR_HTML
#define PR_HTML PROP_TAG(PT_BINARY, 0x1013)
#endif
#ifndef PR_BODY_HTML
#define PR_BODY_HTML PROP_TAG(PT_TSTRING, 0x1013)
#define PR_BODY_HTML_W PROP_TAG(PT_UNICODE, 0x1013)
#define PR_BODY_HTML_A PROP_TAG(PT_STRING8, 0x1013)
#endif
#ifndef PR_INTERNET_CPID
#define PR_INTERNET_CPID PROP_TAG(PT_LONG, 0x3FDE)
#endif
#ifndef PR_TEST_LINE_SPEED
#define PR_TEST_LINE_SPEED PROP_TAG(PT_BINARY, 0x662B)
#endif
#ifndef PR_LONGTERM_ENTRYID_FROM_TABLE
#define PR_LONGTERM_ENTRYID_FROM_TABLE PROP_TAG(PT_BINARY, 0x6670)
#endif
#ifndef STORE_UNICODE_OK
#define STORE_UNICODE_OK ((ULONG)0x00040000)
#endif
#ifndef MAPI_ONE_OFF_UNICODE
#define MAPI_ONE_OFF_UNICODE 0x8000
#endif
#ifndef MAPI_ONE_OFF_NO_RICH_INFO
#define MAPI_ONE_OFF_NO_RICH_INFO 0x0001
#endif

// Named-property sets of Outlook items.
extern const GUID PSETID_Appointment;  // {00062002-0000-0000-C000-000000000046}
extern const GUID PSETID_Task;         // {00062003-0000-0000-C000-000000000046}
extern const GUID PSETID_Address;      // {00062004-0000-0000-C000-000000000046}
extern const GUID PSETID_Common;       // {00062008-0000-0000-C000-000000000046}
// The same sets under their short names.
#define PS_APPOINTMENT PSETID_Appointment
#define PS_TASK PSETID_Task
#define PS_ADDRESS PSETID_Address
#define PS_COMMON PSETID_Common

namespace PIM {

// MAPI text <-> UTF-16 text. WCHAR and char16_t are both UTF-16 units.
inline const char16_t* asU16(const WCHAR* text) { return reinterpret_cast<const char16_t*>(text); }
inline std::u16string u16FromMapi(const WCHAR* text) {
  return text ? std::u16string(asU16(text)) : std::u16string();
}
inline const WCHAR* asWchar(const char16_t* text) { return reinterpret_cast<const WCHAR*>(text); }

}  // namespace PIM
