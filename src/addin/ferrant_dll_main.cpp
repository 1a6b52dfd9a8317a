// The DLL's entry points: its load and unload, and the four exports the COM
// runtime and the registration tools call.
#include <windows.h>

#include "addin/ferrant_module_win32.h"
#include "core/debug_logger.h"

// Loading starts the log before anything else can log, then runs the
// application object's start-up, as the framework does for a DLL: the
// hidden window must exist before the host makes its first call. Unloading
// undoes both, the log last.
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/) {
  if (reason == DLL_PROCESS_ATTACH) {
    _Module.setInstance(instance);
    PIM::DebugLogger::instance().start();
    return theApp.InitInstance();
  }
  if (reason == DLL_PROCESS_DETACH) {
    theApp.ExitInstance();
    PIM::DebugLogger::instance().stop();
  }
  return TRUE;
}

STDAPI DllCanUnloadNow() { return _Module.lockCount() == 0 ? S_OK : S_FALSE; }

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, LPVOID* out) {
  return _Module.getClassObject(clsid, iid, out);
}

STDAPI DllRegisterServer() { return _Module.registerServer(true); }

STDAPI DllUnregisterServer() { return _Module.unregisterServer(true); }
