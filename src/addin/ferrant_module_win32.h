// The DLL's module and application objects: what the COM runtime and the
// host see of the DLL as a whole.
//
// CFerrantModule counts the locks that keep the DLL loaded (one per live
// object and per LockServer), hands out the class factory, registers and
// unregisters the server, and keeps the type information the objects'
// IDispatch answers with. CFerrantApp brings up what must exist from the
// moment the DLL is loaded (the action window) and takes it down at unload.
//
// Threads: everything here runs on the host's main thread, except the lock
// count, which COM may touch from any thread.
#pragma once

#include <windows.h>
// after windows.h, which it needs
#include <oaidl.h>

#include <atomic>
#include <string>

#include "mapi/mapi_ptr.h"

class CFerrantModule {
 public:
  // {34C2CE7C-96FF-402E-AE16-D5DB06F2A021}
  static const GUID kAppId;
  // The AppID in braces, as the registration scripts get it.
  static const wchar_t kAppIdText[];

  void setInstance(HINSTANCE instance) { instance_ = instance; }
  HINSTANCE instance() const { return instance_; }
  // The DLL's full path.
  std::u16string modulePath() const;

  void lock() { ++locks_; }
  void unlock() { --locks_; }
  long lockCount() const { return locks_.load(); }

  // DllGetClassObject: the class factory of the one class this DLL serves.
  HRESULT getClassObject(REFCLSID clsid, REFIID iid, void** out);
  // Applies both registration scripts (add or removal mode) and, when asked,
  // registers or unregisters the embedded type library; the first failure or
  // S_OK.
  HRESULT registerServer(bool registerTypeLib);
  HRESULT unregisterServer(bool unregisterTypeLib);

  // The type information of an interface described by the DLL's type
  // libraries (FerrantLib first, then the host interfaces); null and a log
  // line when neither describes it. Loaded once, kept until unload.
  ITypeInfo* typeInfo(REFIID iid);
  void releaseTypeInfo();

 private:
  HINSTANCE instance_ = nullptr;
  std::atomic<long> locks_{0};
  PIM::ComPtr<ITypeLib> ferrantLib_;
  PIM::ComPtr<ITypeLib> hostLib_;
};

class CFerrantApp {
 public:
  // At load, before any COM call: starts the hidden action window on the
  // loading thread and gives its buttons their actions.
  BOOL InitInstance();
  int ExitInstance();
};

extern CFerrantModule _Module;
extern CFerrantApp theApp;
