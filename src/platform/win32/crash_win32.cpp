// The crash hook on Windows: the process's unhandled-exception filter.
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <string>

#include "platform/win32/win32_env.h"

namespace PIM {

namespace {

// Install and uninstall happen at module start and unload, never during a
// fault; the filter only reads these.
std::atomic<CrashHandler> g_handler{nullptr};
LPTOP_LEVEL_EXCEPTION_FILTER g_previous = nullptr;
bool g_installed = false;

// A stack overflow leaves the filter a few KiB of stack, too little for the
// report (Wine also ignores SetThreadStackGuarantee). The report of an
// overflow therefore runs on a fiber of its own: the thread stays the same,
// so its thread-local call stack is still there to be traced.
constexpr SIZE_T kReportStackCommit = 64 * 1024;
constexpr SIZE_T kReportStackReserve = 256 * 1024;
LPVOID g_reportFiber = nullptr;
std::atomic<bool> g_reportFiberTaken{false};

// What the report fiber is to do; written by the thread that switches to it.
struct FiberJob {
  CrashHandler handler;
  const EXCEPTION_POINTERS* pointers;
  LPVOID caller;
};
FiberJob g_fiberJob = {};

bool holds(const CONTEXT& context, DWORD flags) { return (context.ContextFlags & flags) != 0; }

void addRegisters(CrashInfo& crash, const CONTEXT& c) {
#if defined(__i386__) || defined(_M_IX86)
  crash.registerDigits = 8;
  if (holds(c, CONTEXT_INTEGER)) {
    crash.registerGroups.push_back({" General registers: ",
                                    {{"AX", c.Eax},
                                     {"BX", c.Ebx},
                                     {"CX", c.Ecx},
                                     {"DX", c.Edx},
                                     {"SI", c.Esi},
                                     {"DI", c.Edi}}});
  }
  if (holds(c, CONTEXT_CONTROL)) {
    crash.registerGroups.push_back({" Control registers: ",
                                    {{"SP", c.Esp},
                                     {"BP", c.Ebp},
                                     {"CS", c.SegCs},
                                     {"SS", c.SegSs},
                                     {"IP", c.Eip},
                                     {"Flags", c.EFlags}}});
  }
#elif defined(__x86_64__) || defined(_M_X64)
  crash.registerDigits = 16;
  if (holds(c, CONTEXT_INTEGER)) {
    crash.registerGroups.push_back({" General registers: ",
                                    {{"RAX", c.Rax},
                                     {"RBX", c.Rbx},
                                     {"RCX", c.Rcx},
                                     {"RDX", c.Rdx},
                                     {"RSI", c.Rsi},
                                     {"RDI", c.Rdi},
                                     {"R8", c.R8},
                                     {"R9", c.R9},
                                     {"R10", c.R10},
                                     {"R11", c.R11},
                                     {"R12", c.R12},
                                     {"R13", c.R13},
                                     {"R14", c.R14},
                                     {"R15", c.R15}}});
  }
  if (holds(c, CONTEXT_CONTROL)) {
    crash.registerGroups.push_back({" Control registers: ",
                                    {{"RSP", c.Rsp},
                                     {"RBP", c.Rbp},
                                     {"CS", c.SegCs},
                                     {"SS", c.SegSs},
                                     {"RIP", c.Rip},
                                     {"Flags", c.EFlags}}});
  }
#endif
#if defined(__i386__) || defined(_M_IX86) || defined(__x86_64__) || defined(_M_X64)
  if (holds(c, CONTEXT_SEGMENTS)) {
    crash.registerGroups.push_back(
        {" Segment registers: ",
         {{"DS", c.SegDs}, {"ES", c.SegEs}, {"FS", c.SegFs}, {"GS", c.SegGs}}});
  }
#else
  (void)crash;
  (void)c;
#endif
}

CrashInfo describe(const EXCEPTION_POINTERS& pointers) {
  CrashInfo crash;
  if (const EXCEPTION_RECORD* record = pointers.ExceptionRecord) {
    crash.code = record->ExceptionCode;
    crash.address = uint64_t(uintptr_t(record->ExceptionAddress));
    DWORD count = std::min<DWORD>(record->NumberParameters, EXCEPTION_MAXIMUM_PARAMETERS);
    crash.parameters.assign(record->ExceptionInformation, record->ExceptionInformation + count);
  }
  if (pointers.ContextRecord) addRegisters(crash, *pointers.ContextRecord);
  return crash;
}

// A fiber must never return: it would end the thread.
VOID CALLBACK reportOnFiber(LPVOID) {
  for (;;) {
    g_fiberJob.handler(describe(*g_fiberJob.pointers));
    SwitchToFiber(g_fiberJob.caller);
  }
}

void report(CrashHandler handler, const EXCEPTION_POINTERS& pointers) {
  bool overflow = pointers.ExceptionRecord &&
                  pointers.ExceptionRecord->ExceptionCode == EXCEPTION_STACK_OVERFLOW;
  if (overflow && g_reportFiber && !g_reportFiberTaken.exchange(true)) {
    bool wasFiber = IsThreadAFiber();
    LPVOID self = wasFiber ? GetCurrentFiber() : ConvertThreadToFiber(nullptr);
    if (self) {
      g_fiberJob = {handler, &pointers, self};
      SwitchToFiber(g_reportFiber);
      if (!wasFiber) ConvertFiberToThread();
      return;
    }
  }
  handler(describe(pointers));
}

LONG WINAPI crashFilter(EXCEPTION_POINTERS* pointers) {
  CrashHandler handler = g_handler.load();
  if (handler && pointers) report(handler, *pointers);
  if (g_previous) return g_previous(pointers);
  std::abort();
}

}  // namespace

void Win32Env::installCrashHandler(CrashHandler handler) {
  g_handler = handler;
  if (g_installed) return;
  g_previous = SetUnhandledExceptionFilter(&crashFilter);
  g_reportFiber =
      CreateFiberEx(kReportStackCommit, kReportStackReserve, 0, &reportOnFiber, nullptr);
  g_reportFiberTaken = false;
  g_installed = true;
}

void Win32Env::uninstallCrashHandler() {
  if (!g_installed) return;
  SetUnhandledExceptionFilter(g_previous);
  g_previous = nullptr;
  if (g_reportFiber) DeleteFiber(g_reportFiber);
  g_reportFiber = nullptr;
  g_installed = false;
  g_handler = nullptr;
}

// The report of a stack overflow switches to its fiber from whichever thread
// overflowed, so threads need nothing of their own.
std::unique_ptr<ThreadCrashScope> Win32Env::prepareThreadForCrashes() { return nullptr; }

void Win32Env::showFatalMessage(const std::u16string& caption, const std::u16string& text) {
  // Runs that expect a crash with nobody at the screen (the crash tests) set
  // this variable: the message then goes to standard error as it does off
  // Windows, instead of a box that waits for a click. Nothing else reads it.
  if (GetEnvironmentVariableW(L"FERRANT_FATAL_MESSAGE_TO_STDERR", nullptr, 0) == 0) {
    MessageBoxW(nullptr, wide(text), wide(caption), MB_OK);
    return;
  }
  std::u16string line = caption + u": " + text + u"\n";
  int size =
      WideCharToMultiByte(CP_UTF8, 0, wide(line), int(line.size()), nullptr, 0, nullptr, nullptr);
  std::string bytes(size_t(std::max(size, 0)), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide(line), int(line.size()), bytes.data(), size, nullptr,
                      nullptr);
  DWORD written = 0;
  WriteFile(GetStdHandle(STD_ERROR_HANDLE), bytes.data(), DWORD(bytes.size()), &written, nullptr);
}

}  // namespace PIM
