// Extended MAPI structures, constants and interfaces for builds without the
// Windows SDK: the same names, numbers, layouts and vtable orders as the
// SDK's mapidefs.h/mapix.h, limited to what this system uses. Method
// parameter types follow the toolchain's Windows headers exactly, so one
// implementation overrides both.
#pragma once

#include "mapi/portable/mapi_types.h"

// ---- Property types and tags -------------------------------------------
#define PT_UNSPECIFIED ((ULONG)0)
#define PT_NULL ((ULONG)1)
#define PT_I2 ((ULONG)2)
#define PT_LONG ((ULONG)3)
#define PT_R4 ((ULONG)4)
#define PT_DOUBLE ((ULONG)5)
#define PT_CURRENCY ((ULONG)6)
#define PT_APPTIME ((ULONG)7)
#define PT_ERROR ((ULONG)10)
#define PT_BOOLEAN ((ULONG)11)
#define PT_OBJECT ((ULONG)13)
#define PT_I8 ((ULONG)20)
#define PT_STRING8 ((ULONG)30)
#define PT_UNICODE ((ULONG)31)
#define PT_SYSTIME ((ULONG)64)
#define PT_CLSID ((ULONG)72)
#define PT_BINARY ((ULONG)258)
#define PT_SHORT PT_I2
#define PT_I4 PT_LONG
#define PT_FLOAT PT_R4
#define PT_R8 PT_DOUBLE
#define PT_LONGLONG PT_I8

#define MV_FLAG 0x1000
#define MV_INSTANCE 0x2000
#define MVI_FLAG (MV_FLAG | MV_INSTANCE)
#define MVI_PROP(tag) ((tag) | MVI_FLAG)

#define PT_MV_I2 (MV_FLAG | PT_I2)
#define PT_MV_LONG (MV_FLAG | PT_LONG)
#define PT_MV_DOUBLE (MV_FLAG | PT_DOUBLE)
#define PT_MV_I8 (MV_FLAG | PT_I8)
#define PT_MV_STRING8 (MV_FLAG | PT_STRING8)
#define PT_MV_UNICODE (MV_FLAG | PT_UNICODE)
#define PT_MV_SYSTIME (MV_FLAG | PT_SYSTIME)
#define PT_MV_CLSID (MV_FLAG | PT_CLSID)
#define PT_MV_BINARY (MV_FLAG | PT_BINARY)

#define PT_TSTRING PT_UNICODE
#define PT_MV_TSTRING (MV_FLAG | PT_UNICODE)

#define PROP_TYPE_MASK ((ULONG)0x0000FFFF)
#define PROP_TYPE(ulPropTag) (((ULONG)(ulPropTag)) & PROP_TYPE_MASK)
#define PROP_ID(ulPropTag) (((ULONG)(ulPropTag)) >> 16)
#define PROP_TAG(ulPropType, ulPropID) ((((ULONG)(ulPropID)) << 16) | ((ULONG)(ulPropType)))
#define CHANGE_PROP_TYPE(ulPropTag, ulPropType) (((ULONG)0xFFFF0000 & (ulPropTag)) | (ulPropType))
#define PROP_ID_NULL 0
#define PROP_ID_INVALID 0xFFFF
#define PR_NULL PROP_TAG(PT_NULL, PROP_ID_NULL)

// ---- Flags ----------------------------------------------------------------
#define MAPI_MODIFY ((ULONG)0x00000001)
#define MAPI_CREATE ((ULONG)0x00000002)
#define MAPI_DEFERRED_ERRORS ((ULONG)0x00000008)
#define MAPI_BEST_ACCESS ((ULONG)0x00000010)
#define MAPI_ASSOCIATED ((ULONG)0x00000040)
#define MAPI_UNICODE ((ULONG)0x80000000)

#define MAPI_ACCESS_MODIFY ((ULONG)0x00000001)
#define MAPI_ACCESS_READ ((ULONG)0x00000002)

#define MDB_NO_DIALOG ((ULONG)0x00000001)
#define MDB_WRITE ((ULONG)0x00000004)
#define MDB_TEMPORARY ((ULONG)0x00000020)
#define MDB_NO_MAIL ((ULONG)0x00000080)

#define CONVENIENT_DEPTH ((ULONG)0x00000001)

#define MAPI_STORE ((ULONG)0x00000001)
#define MAPI_ADDRBOOK ((ULONG)0x00000002)
#define MAPI_FOLDER ((ULONG)0x00000003)
#define MAPI_ABCONT ((ULONG)0x00000004)
#define MAPI_MESSAGE ((ULONG)0x00000005)
#define MAPI_MAILUSER ((ULONG)0x00000006)
#define MAPI_ATTACH ((ULONG)0x00000007)
#define MAPI_DISTLIST ((ULONG)0x00000008)
#define MAPI_SESSION ((ULONG)0x0000000B)

#define MAPI_ORIG 0
#define MAPI_TO 1
#define MAPI_CC 2
#define MAPI_BCC 3

#define NO_ATTACHMENT ((ULONG)0x00000000)
#define ATTACH_BY_VALUE ((ULONG)0x00000001)
#define ATTACH_BY_REFERENCE ((ULONG)0x00000002)
#define ATTACH_EMBEDDED_MSG ((ULONG)0x00000005)
#define ATTACH_OLE ((ULONG)0x00000006)

#define FOLDER_ROOT ((ULONG)0x00000000)
#define FOLDER_GENERIC ((ULONG)0x00000001)
#define FOLDER_SEARCH ((ULONG)0x00000002)

#define MSGFLAG_READ ((ULONG)0x00000001)
#define MSGFLAG_UNSENT ((ULONG)0x00000008)
#define MSGFLAG_HASATTACH ((ULONG)0x00000010)
#define MSGFLAG_ASSOCIATED ((ULONG)0x00000040)

#define STATUS_DEFAULT_STORE ((ULONG)0x00000002)

// Entry identifier flags (abFlags[0]); all four bytes are 0 in a long-term
// identifier.
#define MAPI_SHORTTERM 0x80
#define MAPI_NOTRECIP 0x40
#define MAPI_THISSESSION 0x20
#define MAPI_NOW 0x10
#define MAPI_NOTRESERVED 0x08

#define MAPI_ONE_OFF_UNICODE 0x8000
#define MAPI_ONE_OFF_NO_RICH_INFO 0x0001

// ---- Structures -------------------------------------------------------
typedef struct _MAPIUID {
  BYTE ab[16];
} MAPIUID, *LPMAPIUID;

typedef struct {
  BYTE abFlags[4];
  BYTE ab[MAPI_DIM];
} ENTRYID, *LPENTRYID;
#define CbNewENTRYID(cb) (offsetof(ENTRYID, ab) + (cb))

typedef struct _SPropTagArray {
  ULONG cValues;
  ULONG aulPropTag[MAPI_DIM];
} SPropTagArray, *LPSPropTagArray;
#define CbNewSPropTagArray(_ctag) (offsetof(SPropTagArray, aulPropTag) + (_ctag) * sizeof(ULONG))
#define CbSPropTagArray(_lparray) CbNewSPropTagArray((_lparray)->cValues)
#define SizedSPropTagArray(_ctag, _name) \
  struct _SPropTagArray_##_name {        \
    ULONG cValues;                       \
    ULONG aulPropTag[_ctag];             \
  } _name

typedef struct _SBinary {
  ULONG cb;
  LPBYTE lpb;
} SBinary, *LPSBinary;

typedef struct _SShortArray {
  ULONG cValues;
  SHORT* lpi;
} SShortArray;
typedef struct _SLongArray {
  ULONG cValues;
  LONG* lpl;
} SLongArray;
typedef struct _SDoubleArray {
  ULONG cValues;
  double* lpdbl;
} SDoubleArray;
typedef struct _SBinaryArray {
  ULONG cValues;
  SBinary* lpbin;
} SBinaryArray;
typedef SBinaryArray ENTRYLIST, *LPENTRYLIST;
typedef struct _SDateTimeArray {
  ULONG cValues;
  FILETIME* lpft;
} SDateTimeArray;
typedef struct _SLPSTRArray {
  ULONG cValues;
  LPSTR* lppszA;
} SLPSTRArray;
typedef struct _SWStringArray {
  ULONG cValues;
  LPWSTR* lppszW;
} SWStringArray;
typedef struct _SGuidArray {
  ULONG cValues;
  GUID* lpguid;
} SGuidArray;
typedef struct _SLargeIntegerArray {
  ULONG cValues;
  LARGE_INTEGER* lpli;
} SLargeIntegerArray;

typedef union _PV {
  short int i;
  LONG l;
  ULONG ul;
  float flt;
  double dbl;
  unsigned short int b;
  double at;
  FILETIME ft;
  LPSTR lpszA;
  SBinary bin;
  LPWSTR lpszW;
  LPGUID lpguid;
  LARGE_INTEGER li;
  SShortArray MVi;
  SLongArray MVl;
  SDoubleArray MVdbl;
  SDateTimeArray MVft;
  SBinaryArray MVbin;
  SLPSTRArray MVszA;
  SWStringArray MVszW;
  SGuidArray MVguid;
  SLargeIntegerArray MVli;
  SCODE err;
  LONG x;
} __UPV;

typedef struct _SPropValue {
  ULONG ulPropTag;
  ULONG dwAlignPad;
  union _PV Value;
} SPropValue, *LPSPropValue;

typedef struct _SPropProblem {
  ULONG ulIndex;
  ULONG ulPropTag;
  SCODE scode;
} SPropProblem;
typedef struct _SPropProblemArray {
  ULONG cProblem;
  SPropProblem aProblem[MAPI_DIM];
} SPropProblemArray, *LPSPropProblemArray;

typedef struct _SRow {
  ULONG ulAdrEntryPad;
  ULONG cValues;
  LPSPropValue lpProps;
} SRow, *LPSRow;

typedef struct _SRowSet {
  ULONG cRows;
  SRow aRow[MAPI_DIM];
} SRowSet, *LPSRowSet;
#define CbNewSRowSet(_crow) (offsetof(SRowSet, aRow) + (_crow) * sizeof(SRow))

typedef struct _ADRENTRY {
  ULONG ulReserved1;
  ULONG cValues;
  LPSPropValue rgPropVals;
} ADRENTRY, *LPADRENTRY;
typedef struct _ADRLIST {
  ULONG cEntries;
  ADRENTRY aEntries[MAPI_DIM];
} ADRLIST, *LPADRLIST;

#define MAPI_ERROR_VERSION 0x00000000L
typedef struct _MAPIERROR {
  ULONG ulVersion;
  LPTSTR lpszError;
  LPTSTR lpszComponent;
  ULONG ulLowLevelError;
  ULONG ulContext;
} MAPIERROR, *LPMAPIERROR;

// ---- Named properties ------------------------------------------------
#define MNID_ID 0
#define MNID_STRING 1
typedef struct _MAPINAMEID {
  LPGUID lpguid;
  ULONG ulKind;
  union {
    LONG lID;
    LPWSTR lpwstrName;
  } Kind;
} MAPINAMEID, *LPMAPINAMEID;

// ---- Restrictions -------------------------------------------------------
#define RES_AND ((ULONG)0x00000000)
#define RES_OR ((ULONG)0x00000001)
#define RES_NOT ((ULONG)0x00000002)
#define RES_CONTENT ((ULONG)0x00000003)
#define RES_PROPERTY ((ULONG)0x00000004)
#define RES_COMPAREPROPS ((ULONG)0x00000005)
#define RES_BITMASK ((ULONG)0x00000006)
#define RES_SIZE ((ULONG)0x00000007)
#define RES_EXIST ((ULONG)0x00000008)
#define RES_SUBRESTRICTION ((ULONG)0x00000009)
#define RES_COMMENT ((ULONG)0x0000000A)

#define RELOP_LT ((ULONG)0)
#define RELOP_LE ((ULONG)1)
#define RELOP_GT ((ULONG)2)
#define RELOP_GE ((ULONG)3)
#define RELOP_EQ ((ULONG)4)
#define RELOP_NE ((ULONG)5)
#define RELOP_RE ((ULONG)6)

#define FL_FULLSTRING ((ULONG)0x00000000)
#define FL_SUBSTRING ((ULONG)0x00000001)
#define FL_PREFIX ((ULONG)0x00000002)
#define FL_IGNORECASE ((ULONG)0x00010000)
#define FL_IGNORENONSPACE ((ULONG)0x00020000)
#define FL_LOOSE ((ULONG)0x00040000)

#define BMR_EQZ ((ULONG)0x00000000)
#define BMR_NEZ ((ULONG)0x00000001)

struct _SRestriction;
typedef struct _SRestriction* LPSRestriction;

typedef struct _SAndRestriction {
  ULONG cRes;
  LPSRestriction lpRes;
} SAndRestriction;
typedef struct _SOrRestriction {
  ULONG cRes;
  LPSRestriction lpRes;
} SOrRestriction;
typedef struct _SNotRestriction {
  ULONG ulReserved;
  LPSRestriction lpRes;
} SNotRestriction;
typedef struct _SContentRestriction {
  ULONG ulFuzzyLevel;
  ULONG ulPropTag;
  LPSPropValue lpProp;
} SContentRestriction;
typedef struct _SBitMaskRestriction {
  ULONG relBMR;
  ULONG ulPropTag;
  ULONG ulMask;
} SBitMaskRestriction;
typedef struct _SPropertyRestriction {
  ULONG relop;
  ULONG ulPropTag;
  LPSPropValue lpProp;
} SPropertyRestriction;
typedef struct _SComparePropsRestriction {
  ULONG relop;
  ULONG ulPropTag1;
  ULONG ulPropTag2;
} SComparePropsRestriction;
typedef struct _SSizeRestriction {
  ULONG relop;
  ULONG ulPropTag;
  ULONG cb;
} SSizeRestriction;
typedef struct _SExistRestriction {
  ULONG ulReserved1;
  ULONG ulPropTag;
  ULONG ulReserved2;
} SExistRestriction;
typedef struct _SSubRestriction {
  ULONG ulSubObject;
  LPSRestriction lpRes;
} SSubRestriction;
typedef struct _SCommentRestriction {
  ULONG cValues;
  LPSRestriction lpRes;
  LPSPropValue lpProp;
} SCommentRestriction;

typedef struct _SRestriction {
  ULONG rt;
  union {
    SComparePropsRestriction resCompareProps;
    SAndRestriction resAnd;
    SOrRestriction resOr;
    SNotRestriction resNot;
    SContentRestriction resContent;
    SPropertyRestriction resProperty;
    SBitMaskRestriction resBitMask;
    SSizeRestriction resSize;
    SExistRestriction resExist;
    SSubRestriction resSub;
    SCommentRestriction resComment;
  } res;
} SRestriction;

// ---- Sorting -------------------------------------------------------------
#define TABLE_SORT_ASCEND ((ULONG)0x00000000)
#define TABLE_SORT_DESCEND ((ULONG)0x00000001)
#define TABLE_SORT_COMBINE ((ULONG)0x00000002)

typedef struct _SSortOrder {
  ULONG ulPropTag;
  ULONG ulOrder;
} SSortOrder, *LPSSortOrder;
typedef struct _SSortOrderSet {
  ULONG cSorts;
  ULONG cCategories;
  ULONG cExpanded;
  SSortOrder aSort[MAPI_DIM];
} SSortOrderSet, *LPSSortOrderSet;
#define CbNewSSortOrderSet(_csort) (offsetof(SSortOrderSet, aSort) + (_csort) * sizeof(SSortOrder))
#define SizedSSortOrderSet(_csort, _name) \
  struct _SSortOrderSet_##_name {         \
    ULONG cSorts;                         \
    ULONG cCategories;                    \
    ULONG cExpanded;                      \
    SSortOrder aSort[_csort];             \
  } _name

// ---- Tables -----------------------------------------------------------
typedef ULONG_PTR BOOKMARK;
#define BOOKMARK_BEGINNING ((BOOKMARK)0)
#define BOOKMARK_CURRENT ((BOOKMARK)1)
#define BOOKMARK_END ((BOOKMARK)2)

#define TBL_ALL_COLUMNS ((ULONG)0x00000001)
#define TBL_ASYNC ((ULONG)0x00000001)
#define TBL_BATCH ((ULONG)0x00000002)
#define TBL_NOADVANCE ((ULONG)0x00000001)
#define TBL_NOWAIT ((ULONG)0x00000001)
#define DIR_BACKWARD ((ULONG)0x00000001)

#define TBLSTAT_COMPLETE ((ULONG)0)
#define TBLSTAT_QCHANGED ((ULONG)7)
#define TBLSTAT_SORTING ((ULONG)9)
#define TBLSTAT_SORT_ERROR ((ULONG)10)
#define TBLSTAT_SETTING_COLS ((ULONG)11)
#define TBLSTAT_SETCOL_ERROR ((ULONG)13)
#define TBLSTAT_RESTRICTING ((ULONG)14)
#define TBLSTAT_RESTRICT_ERROR ((ULONG)15)

#define TBLTYPE_SNAPSHOT ((ULONG)0)
#define TBLTYPE_KEYSET ((ULONG)1)
#define TBLTYPE_DYNAMIC ((ULONG)2)

// ---- Notifications ----------------------------------------------------
#define fnevCriticalError ((ULONG)0x00000001)
#define fnevNewMail ((ULONG)0x00000002)
#define fnevObjectCreated ((ULONG)0x00000004)
#define fnevObjectDeleted ((ULONG)0x00000008)
#define fnevObjectModified ((ULONG)0x00000010)
#define fnevObjectMoved ((ULONG)0x00000020)
#define fnevObjectCopied ((ULONG)0x00000040)
#define fnevSearchComplete ((ULONG)0x00000080)
#define fnevTableModified ((ULONG)0x00000100)
#define fnevStatusObjectModified ((ULONG)0x00000200)
#define fnevExtended ((ULONG)0x80000000)

#define TABLE_CHANGED 1
#define TABLE_ERROR 2
#define TABLE_ROW_ADDED 3
#define TABLE_ROW_DELETED 4
#define TABLE_ROW_MODIFIED 5
#define TABLE_SORT_DONE 6
#define TABLE_RESTRICT_DONE 7
#define TABLE_SETCOL_DONE 8
#define TABLE_RELOAD 9

typedef struct _ERROR_NOTIFICATION {
  ULONG cbEntryID;
  LPENTRYID lpEntryID;
  SCODE scode;
  ULONG ulFlags;
  LPMAPIERROR lpMAPIError;
} ERROR_NOTIFICATION;

typedef struct _OBJECT_NOTIFICATION {
  ULONG cbEntryID;
  LPENTRYID lpEntryID;
  ULONG ulObjType;
  ULONG cbParentID;
  LPENTRYID lpParentID;
  ULONG cbOldID;
  LPENTRYID lpOldID;
  ULONG cbOldParentID;
  LPENTRYID lpOldParentID;
  LPSPropTagArray lpPropTagArray;
} OBJECT_NOTIFICATION;

typedef struct _TABLE_NOTIFICATION {
  ULONG ulTableEvent;
  HRESULT hResult;
  SPropValue propIndex;
  SPropValue propPrior;
  SRow row;
  ULONG ulPad;
} TABLE_NOTIFICATION;

typedef struct _NOTIFICATION {
  ULONG ulEventType;
  ULONG ulAlignPad;
  union {
    ERROR_NOTIFICATION err;
    OBJECT_NOTIFICATION obj;
    TABLE_NOTIFICATION tab;
  } info;
} NOTIFICATION, *LPNOTIFICATION;

// ---- Interfaces -------------------------------------------------------
// Only passed through, never called by this system.
struct IMAPIProgress;
struct IAddrBook;
struct IProfSect;
struct IMsgServiceAdmin;
typedef IMAPIProgress* LPMAPIPROGRESS;
typedef IAddrBook* LPADRBOOK;
typedef IProfSect* LPPROFSECT;
typedef IMsgServiceAdmin* LPSERVICEADMIN;

struct IMAPIProp;
struct IMAPIContainer;
struct IMAPIFolder;
struct IMsgStore;
struct IMessage;
struct IAttach;
struct IMailUser;
struct IMAPITable;
struct IMAPISession;
struct IMAPIAdviseSink;
typedef IMAPIProp* LPMAPIPROP;
typedef IMAPIContainer* LPMAPICONTAINER;
typedef IMAPIFolder* LPMAPIFOLDER;
typedef IMsgStore* LPMDB;
typedef IMessage* LPMESSAGE;
typedef IAttach* LPATTACH;
typedef IMailUser* LPMAILUSER;
typedef IMAPITable* LPMAPITABLE;
typedef IMAPISession* LPMAPISESSION;
typedef IMAPIAdviseSink* LPMAPIADVISESINK;

#define MAPIMETHOD_(type, method) virtual type STDMETHODCALLTYPE method
#define MAPIMETHOD(method) MAPIMETHOD_(HRESULT, method)

// Receives notifications. Called on whatever thread the source chooses;
// the notification memory belongs to the caller and is valid during the call.
struct IMAPIAdviseSink : public IUnknown {
  MAPIMETHOD_(ULONG, OnNotify)(ULONG cNotif, LPNOTIFICATION lpNotifications) = 0;
};

struct IMAPIProp : public IUnknown {
  MAPIMETHOD(GetLastError)(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) = 0;
  MAPIMETHOD(SaveChanges)(ULONG ulFlags) = 0;
  MAPIMETHOD(GetProps)
  (LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues, LPSPropValue* lppPropArray) = 0;
  MAPIMETHOD(GetPropList)(ULONG ulFlags, LPSPropTagArray* lppPropTagArray) = 0;
  MAPIMETHOD(OpenProperty)
  (ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags, LPUNKNOWN* lppUnk) = 0;
  MAPIMETHOD(SetProps)
  (ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) = 0;
  MAPIMETHOD(DeleteProps)(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) = 0;
  MAPIMETHOD(CopyTo)
  (ULONG ciidExclude, LPCIID rgiidExclude, LPSPropTagArray lpExcludeProps, ULONG ulUIParam,
   LPMAPIPROGRESS lpProgress, LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
   LPSPropProblemArray* lppProblems) = 0;
  MAPIMETHOD(CopyProps)
  (LPSPropTagArray lpIncludeProps, ULONG ulUIParam, LPMAPIPROGRESS lpProgress, LPCIID lpInterface,
   LPVOID lpDestObj, ULONG ulFlags, LPSPropProblemArray* lppProblems) = 0;
  MAPIMETHOD(GetNamesFromIDs)
  (LPSPropTagArray* lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags, ULONG* lpcPropNames,
   LPMAPINAMEID** lpppPropNames) = 0;
  MAPIMETHOD(GetIDsFromNames)
  (ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags, LPSPropTagArray* lppPropTags) = 0;
};

struct IMAPITable : public IUnknown {
  MAPIMETHOD(GetLastError)(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) = 0;
  MAPIMETHOD(Advise)(ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink, ULONG* lpulConnection) = 0;
  MAPIMETHOD(Unadvise)(ULONG ulConnection) = 0;
  MAPIMETHOD(GetStatus)(ULONG* lpulTableStatus, ULONG* lpulTableType) = 0;
  MAPIMETHOD(SetColumns)(LPSPropTagArray lpPropTagArray, ULONG ulFlags) = 0;
  MAPIMETHOD(QueryColumns)(ULONG ulFlags, LPSPropTagArray* lpPropTagArray) = 0;
  MAPIMETHOD(GetRowCount)(ULONG ulFlags, ULONG* lpulCount) = 0;
  MAPIMETHOD(SeekRow)(BOOKMARK bkOrigin, LONG lRowCount, LONG* lplRowsSought) = 0;
  MAPIMETHOD(SeekRowApprox)(ULONG ulNumerator, ULONG ulDenominator) = 0;
  MAPIMETHOD(QueryPosition)(ULONG* lpulRow, ULONG* lpulNumerator, ULONG* lpulDenominator) = 0;
  MAPIMETHOD(FindRow)(LPSRestriction lpRestriction, BOOKMARK bkOrigin, ULONG ulFlags) = 0;
  MAPIMETHOD(Restrict)(LPSRestriction lpRestriction, ULONG ulFlags) = 0;
  MAPIMETHOD(CreateBookmark)(BOOKMARK* lpbkPosition) = 0;
  MAPIMETHOD(FreeBookmark)(BOOKMARK bkPosition) = 0;
  MAPIMETHOD(SortTable)(LPSSortOrderSet lpSortCriteria, ULONG ulFlags) = 0;
  MAPIMETHOD(QuerySortOrder)(LPSSortOrderSet* lppSortCriteria) = 0;
  MAPIMETHOD(QueryRows)(LONG lRowCount, ULONG ulFlags, LPSRowSet* lppRows) = 0;
  MAPIMETHOD(Abort)() = 0;
  MAPIMETHOD(ExpandRow)
  (ULONG cbInstanceKey, LPBYTE pbInstanceKey, ULONG ulRowCount, ULONG ulFlags, LPSRowSet* lppRows,
   ULONG* lpulMoreRows) = 0;
  MAPIMETHOD(CollapseRow)
  (ULONG cbInstanceKey, LPBYTE pbInstanceKey, ULONG ulFlags, ULONG* lpulRowCount) = 0;
  MAPIMETHOD(WaitForCompletion)(ULONG ulFlags, ULONG ulTimeout, ULONG* lpulTableStatus) = 0;
  MAPIMETHOD(GetCollapseState)
  (ULONG ulFlags, ULONG cbInstanceKey, LPBYTE lpbInstanceKey, ULONG* lpcbCollapseState,
   LPBYTE* lppbCollapseState) = 0;
  MAPIMETHOD(SetCollapseState)
  (ULONG ulFlags, ULONG cbCollapseState, LPBYTE pbCollapseState, BOOKMARK* lpbkLocation) = 0;
};

struct IMAPIContainer : public IMAPIProp {
  MAPIMETHOD(GetContentsTable)(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
  MAPIMETHOD(GetHierarchyTable)(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
  MAPIMETHOD(OpenEntry)
  (ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
   LPUNKNOWN* lppUnk) = 0;
  MAPIMETHOD(SetSearchCriteria)
  (LPSRestriction lpRestriction, LPENTRYLIST lpContainerList, ULONG ulSearchFlags) = 0;
  MAPIMETHOD(GetSearchCriteria)
  (ULONG ulFlags, LPSRestriction* lppRestriction, LPENTRYLIST* lppContainerList,
   ULONG* lpulSearchState) = 0;
};

struct IMAPIFolder : public IMAPIContainer {
  MAPIMETHOD(CreateMessage)(LPCIID lpInterface, ULONG ulFlags, LPMESSAGE* lppMessage) = 0;
  MAPIMETHOD(CopyMessages)
  (LPENTRYLIST lpMsgList, LPCIID lpInterface, LPVOID lpDestFolder, ULONG ulUIParam,
   LPMAPIPROGRESS lpProgress, ULONG ulFlags) = 0;
  MAPIMETHOD(DeleteMessages)
  (LPENTRYLIST lpMsgList, ULONG ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags) = 0;
  MAPIMETHOD(CreateFolder)
  (ULONG ulFolderType, LPTSTR lpszFolderName, LPTSTR lpszFolderComment, LPCIID lpInterface,
   ULONG ulFlags, LPMAPIFOLDER* lppFolder) = 0;
  MAPIMETHOD(CopyFolder)
  (ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, LPVOID lpDestFolder,
   LPTSTR lpszNewFolderName, ULONG ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags) = 0;
  MAPIMETHOD(DeleteFolder)
  (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulUIParam, LPMAPIPROGRESS lpProgress,
   ULONG ulFlags) = 0;
  MAPIMETHOD(SetReadFlags)
  (LPENTRYLIST lpMsgList, ULONG ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags) = 0;
  MAPIMETHOD(GetMessageStatus)
  (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulFlags, ULONG* lpulMessageStatus) = 0;
  MAPIMETHOD(SetMessageStatus)
  (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulNewStatus, ULONG ulNewStatusMask,
   ULONG* lpulOldStatus) = 0;
  MAPIMETHOD(SaveContentsSort)(LPSSortOrderSet lpSortCriteria, ULONG ulFlags) = 0;
  MAPIMETHOD(EmptyFolder)(ULONG ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags) = 0;
};

struct IMsgStore : public IMAPIProp {
  MAPIMETHOD(Advise)
  (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink,
   ULONG* lpulConnection) = 0;
  MAPIMETHOD(Unadvise)(ULONG ulConnection) = 0;
  MAPIMETHOD(CompareEntryIDs)
  (ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2, ULONG ulFlags,
   ULONG* lpulResult) = 0;
  MAPIMETHOD(OpenEntry)
  (ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
   LPUNKNOWN* lppUnk) = 0;
  MAPIMETHOD(SetReceiveFolder)
  (LPTSTR lpszMessageClass, ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID) = 0;
  MAPIMETHOD(GetReceiveFolder)
  (LPTSTR lpszMessageClass, ULONG ulFlags, ULONG* lpcbEntryID, LPENTRYID* lppEntryID,
   LPTSTR* lppszExplicitClass) = 0;
  MAPIMETHOD(GetReceiveFolderTable)(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
  MAPIMETHOD(StoreLogoff)(ULONG* lpulFlags) = 0;
  MAPIMETHOD(AbortSubmit)(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulFlags) = 0;
  MAPIMETHOD(GetOutgoingQueue)(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
  MAPIMETHOD(SetLockState)(LPMESSAGE lpMessage, ULONG ulLockState) = 0;
  MAPIMETHOD(FinishedMsg)(ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID) = 0;
  MAPIMETHOD(NotifyNewMail)(LPNOTIFICATION lpNotification) = 0;
};

struct IMessage : public IMAPIProp {
  MAPIMETHOD(GetAttachmentTable)(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
  MAPIMETHOD(OpenAttach)
  (ULONG ulAttachmentNum, LPCIID lpInterface, ULONG ulFlags, LPATTACH* lppAttach) = 0;
  MAPIMETHOD(CreateAttach)
  (LPCIID lpInterface, ULONG ulFlags, ULONG* lpulAttachmentNum, LPATTACH* lppAttach) = 0;
  MAPIMETHOD(DeleteAttach)
  (ULONG ulAttachmentNum, ULONG ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags) = 0;
  MAPIMETHOD(GetRecipientTable)(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
  MAPIMETHOD(ModifyRecipients)(ULONG ulFlags, LPADRLIST lpMods) = 0;
  MAPIMETHOD(SubmitMessage)(ULONG ulFlags) = 0;
  MAPIMETHOD(SetReadFlag)(ULONG ulFlags) = 0;
};

struct IAttach : public IMAPIProp {};
struct IMailUser : public IMAPIProp {};

struct IMAPISession : public IUnknown {
  MAPIMETHOD(GetLastError)(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) = 0;
  MAPIMETHOD(GetMsgStoresTable)(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
  MAPIMETHOD(OpenMsgStore)
  (ULONG_PTR ulUIParam, ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags,
   LPMDB* lppMDB) = 0;
  MAPIMETHOD(OpenAddressBook)
  (ULONG_PTR ulUIParam, LPCIID lpInterface, ULONG ulFlags, LPADRBOOK* lppAdrBook) = 0;
  MAPIMETHOD(OpenProfileSection)
  (LPMAPIUID lpUID, LPCIID lpInterface, ULONG ulFlags, LPPROFSECT* lppProfSect) = 0;
  MAPIMETHOD(GetStatusTable)(ULONG ulFlags, LPMAPITABLE* lppTable) = 0;
  MAPIMETHOD(OpenEntry)
  (ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
   LPUNKNOWN* lppUnk) = 0;
  MAPIMETHOD(CompareEntryIDs)
  (ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2, ULONG ulFlags,
   ULONG* lpulResult) = 0;
  MAPIMETHOD(Advise)
  (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink,
   ULONG* lpulConnection) = 0;
  MAPIMETHOD(Unadvise)(ULONG ulConnection) = 0;
  MAPIMETHOD(MessageOptions)
  (ULONG_PTR ulUIParam, ULONG ulFlags, LPTSTR lpszAdrType, LPMESSAGE lpMessage) = 0;
  MAPIMETHOD(QueryDefaultMessageOpt)
  (LPTSTR lpszAdrType, ULONG ulFlags, ULONG* lpcValues, LPSPropValue* lppOptions) = 0;
  MAPIMETHOD(EnumAdrTypes)(ULONG ulFlags, ULONG* lpcAdrTypes, LPTSTR** lpppszAdrTypes) = 0;
  MAPIMETHOD(QueryIdentity)(ULONG* lpcbEntryID, LPENTRYID* lppEntryID) = 0;
  MAPIMETHOD(Logoff)(ULONG_PTR ulUIParam, ULONG ulFlags, ULONG ulReserved) = 0;
  MAPIMETHOD(SetDefaultStore)(ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID) = 0;
  MAPIMETHOD(AdminServices)(ULONG ulFlags, LPSERVICEADMIN* lppServiceAdmin) = 0;
  MAPIMETHOD(ShowForm)
  (ULONG_PTR ulUIParam, LPMDB lpMsgStore, LPMAPIFOLDER lpParentFolder, LPCIID lpInterface,
   ULONG ulMessageToken, LPMESSAGE lpMessageSent, ULONG ulFlags, ULONG ulMessageStatus,
   ULONG ulMessageFlags, ULONG ulAccess, LPSTR lpszMessageClass) = 0;
  MAPIMETHOD(PrepareForm)(LPCIID lpInterface, LPMESSAGE lpMessage, ULONG* lpulMessageToken) = 0;
};

extern const IID IID_IMAPISession;
extern const IID IID_IMAPITable;
extern const IID IID_IMAPIAdviseSink;
extern const IID IID_IMAPIProp;
extern const IID IID_IMsgStore;
extern const IID IID_IMessage;
extern const IID IID_IAttachment;
extern const IID IID_IMailUser;
extern const IID IID_IMAPIContainer;
extern const IID IID_IMAPIFolder;
extern const GUID PS_MAPI;
extern const GUID PS_PUBLIC_STRINGS;

// ---- Memory and helper functions ------------------------------------------
// MAPI buffers: a root from MAPIAllocateBuffer, further blocks tied to it by
// MAPIAllocateMore; MAPIFreeBuffer of the root frees them all.
extern "C" {
SCODE STDAPICALLTYPE MAPIAllocateBuffer(ULONG cbSize, LPVOID* lppBuffer);
SCODE STDAPICALLTYPE MAPIAllocateMore(ULONG cbSize, LPVOID lpObject, LPVOID* lppBuffer);
ULONG STDAPICALLTYPE MAPIFreeBuffer(LPVOID lpBuffer);
// Frees every row's value array, then the row set itself.
void STDAPICALLTYPE FreeProws(LPSRowSet lpRows);
HRESULT STDAPICALLTYPE HrQueryAllRows(LPMAPITABLE lpTable, LPSPropTagArray lpPropTags,
                                      LPSRestriction lpRestriction, LPSSortOrderSet lpSortOrderSet,
                                      LONG crowsMax, LPSRowSet* lppRows);
HRESULT STDAPICALLTYPE HrGetOneProp(LPMAPIPROP lpMapiProp, ULONG ulPropTag, LPSPropValue* lppProp);
HRESULT STDAPICALLTYPE HrThisThreadAdviseSink(LPMAPIADVISESINK lpAdviseSink,
                                              LPMAPIADVISESINK* lppAdviseSink);
}
