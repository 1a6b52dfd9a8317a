// Storage of the MAPI interface and property-set identifiers. On Windows the
// SDK header defines the MAPI ones here (through initguid.h); Outlook's
// property sets are ours on every platform.
#ifdef _WIN32
#include <initguid.h>
#include <windows.h>
// With INITGUID the SDK header defines only the identifiers asked for.
#define USES_IID_IMAPISession
#define USES_IID_IMAPITable
#define USES_IID_IMAPIAdviseSink
#define USES_IID_IMAPIProp
#define USES_IID_IMsgStore
#define USES_IID_IMessage
#define USES_IID_IAttachment
#define USES_IID_IMailUser
#define USES_IID_IMAPIContainer
#define USES_IID_IMAPIFolder
#define USES_PS_MAPI
#define USES_PS_PUBLIC_STRINGS
#include <mapiguid.h>
#endif

#include "mapi/mapi.h"

namespace {
constexpr GUID oleGuid(uint32_t data1) { return GUID{data1, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}}; }
}  // namespace

const GUID PSETID_Appointment = oleGuid(0x00062002);
const GUID PSETID_Task = oleGuid(0x00062003);
const GUID PSETID_Address = oleGuid(0x00062004);
const GUID PSETID_Common = oleGuid(0x00062008);

#ifndef _WIN32
const IID IID_IUnknown = oleGuid(0x00000000);
const IID IID_IStream = oleGuid(0x0000000C);
const IID IID_ISequentialStream = {
    0x0C733A30, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44, 0x77, 0x3D}};
const IID IID_IMAPISession = oleGuid(0x00020300);
const IID IID_IMAPITable = oleGuid(0x00020301);
const IID IID_IMAPIAdviseSink = oleGuid(0x00020302);
const IID IID_IMAPIProp = oleGuid(0x00020303);
const IID IID_IMsgStore = oleGuid(0x00020306);
const IID IID_IMessage = oleGuid(0x00020307);
const IID IID_IAttachment = oleGuid(0x00020308);
const IID IID_IMailUser = oleGuid(0x0002030A);
const IID IID_IMAPIContainer = oleGuid(0x0002030B);
const IID IID_IMAPIFolder = oleGuid(0x0002030C);
const GUID PS_MAPI = oleGuid(0x00020328);
const GUID PS_PUBLIC_STRINGS = oleGuid(0x00020329);
#endif
