// The crash hook on POSIX: the fatal signals stand in for the unhandled
// structured exceptions of Windows. Each signal is given the Windows
// exception code of the same fault, so that the report reads the same on
// both systems.
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <memory>
#include <vector>

#include "platform/posix/posix_env.h"

namespace PIM {

namespace {

constexpr int kFatalSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
constexpr size_t kSignalCount = std::size(kFatalSignals);

// Windows exception codes the signals are translated to.
constexpr uint32_t kFatalAppExit = 0x40000015;  // not in the report's table: "Unknown exception"
constexpr uint32_t kDatatypeMisalignment = 0x80000002;
constexpr uint32_t kAccessViolation = 0xC0000005;
constexpr uint32_t kInPageError = 0xC0000006;
constexpr uint32_t kIllegalInstruction = 0xC000001D;
constexpr uint32_t kArrayBoundsExceeded = 0xC000008C;
constexpr uint32_t kFloatDivideByZero = 0xC000008E;
constexpr uint32_t kFloatInexactResult = 0xC000008F;
constexpr uint32_t kFloatInvalidOperation = 0xC0000090;
constexpr uint32_t kFloatOverflow = 0xC0000091;
constexpr uint32_t kFloatUnderflow = 0xC0000093;
constexpr uint32_t kIntegerDivideByZero = 0xC0000094;
constexpr uint32_t kIntegerOverflow = 0xC0000095;
constexpr uint32_t kPrivilegedInstruction = 0xC0000096;
constexpr uint32_t kStackOverflow = 0xC00000FD;

// The access-violation kinds of the exception record; "unknown" is neither
// and reads as " accessing ".
constexpr uint64_t kAccessRead = 0;
constexpr uint64_t kAccessWrite = 1;
[[maybe_unused]] constexpr uint64_t kAccessUnknown = 2;

// A fault this close under the stack pointer is the stack running out.
constexpr uintptr_t kNearStackPointer = 64 * 1024;
// Under the lowest page of a stack: a thread's guard pages, or the gap the
// kernel keeps under the main thread's stack (256 pages).
constexpr uintptr_t kGuardReach = 1024 * 1024;
// The report runs on a stack of its own, so that it can be written when the
// thread's stack is used up.
constexpr size_t kAlternateStackSize = 64 * 1024;

// Install and uninstall happen at module start and unload, never during a
// fault; the signal handler only reads these.
std::atomic<CrashHandler> g_handler{nullptr};
struct sigaction g_previous[kSignalCount];
bool g_installed = false;

size_t signalIndex(int signal) {
  return size_t(std::find(std::begin(kFatalSignals), std::end(kFatalSignals), signal) -
                std::begin(kFatalSignals));
}

// Alternate stacks are per thread: the installing thread gets one here, and
// every thread the system starts asks for its own (prepareThreadForCrashes).
// A thread without one runs the handler on its own stack, so its stack
// overflow ends the process without a report.
class AlternateStack final : public ThreadCrashScope {
 public:
  explicit AlternateStack(std::unique_ptr<char[]> memory) : memory_(std::move(memory)) {}
  ~AlternateStack() override {
    stack_t off = {};
    off.ss_flags = SS_DISABLE;
    sigaltstack(&off, nullptr);
  }

 private:
  std::unique_ptr<char[]> memory_;
};

// Null when the calling thread has an alternate stack already or none can be
// set.
std::unique_ptr<ThreadCrashScope> newAlternateStack() {
  stack_t current;
  if (sigaltstack(nullptr, &current) == 0 && !(current.ss_flags & SS_DISABLE)) return nullptr;
  const size_t size = std::max<size_t>(kAlternateStackSize, size_t(SIGSTKSZ));
  auto memory = std::make_unique<char[]>(size);
  stack_t stack = {};
  stack.ss_sp = memory.get();
  stack.ss_size = size;
  if (sigaltstack(&stack, nullptr) != 0) return nullptr;
  return std::make_unique<AlternateStack>(std::move(memory));
}

// The installing thread's stack stays reachable here and is never freed, as
// the thread may still be running on it when the hook is removed.
void ensureAlternateStack() {
  static auto* kept = new std::vector<std::unique_ptr<ThreadCrashScope>>();
  if (auto stack = newAlternateStack()) kept->push_back(std::move(stack));
}

bool nearStackGuard(uintptr_t fault) {
#if defined(__GLIBC__)
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return false;
  void* low = nullptr;
  size_t size = 0;
  size_t guard = 0;
  pthread_attr_getstack(&attributes, &low, &size);
  pthread_attr_getguardsize(&attributes, &guard);
  pthread_attr_destroy(&attributes);
  uintptr_t bottom = uintptr_t(low);
  uintptr_t page = uintptr_t(sysconf(_SC_PAGESIZE));
  uintptr_t reach = std::max<uintptr_t>(guard, kGuardReach);
  return fault < bottom + page && fault + reach >= bottom;
#else
  (void)fault;
  return false;
#endif
}

#if defined(__x86_64__) && defined(__linux__)
uint64_t reg(const ucontext_t* context, int index) {
  return uint64_t(context->uc_mcontext.gregs[index]);
}
#endif

bool isStackOverflow(uintptr_t fault, [[maybe_unused]] const ucontext_t* context) {
#if defined(__x86_64__) && defined(__linux__)
  uintptr_t sp = uintptr_t(reg(context, REG_RSP));
  if (fault + kNearStackPointer >= sp && fault < sp + 256) return true;
#endif
  return nearStackGuard(fault);
}

uint32_t floatingPointCode(int code) {
  switch (code) {
    case FPE_INTDIV:
      return kIntegerDivideByZero;
    case FPE_INTOVF:
      return kIntegerOverflow;
    case FPE_FLTDIV:
      return kFloatDivideByZero;
    case FPE_FLTOVF:
      return kFloatOverflow;
    case FPE_FLTUND:
      return kFloatUnderflow;
    case FPE_FLTRES:
      return kFloatInexactResult;
    case FPE_FLTSUB:
      return kArrayBoundsExceeded;
    default:
      return kFloatInvalidOperation;
  }
}

void addRegisters([[maybe_unused]] CrashInfo& crash, [[maybe_unused]] const ucontext_t* context) {
#if defined(__x86_64__) && defined(__linux__)
  uint64_t csgsfs = reg(context, REG_CSGSFS);
  crash.registerDigits = 16;
  crash.registerGroups = {
      {" General registers: ",
       {{"RAX", reg(context, REG_RAX)},
        {"RBX", reg(context, REG_RBX)},
        {"RCX", reg(context, REG_RCX)},
        {"RDX", reg(context, REG_RDX)},
        {"RSI", reg(context, REG_RSI)},
        {"RDI", reg(context, REG_RDI)},
        {"R8", reg(context, REG_R8)},
        {"R9", reg(context, REG_R9)},
        {"R10", reg(context, REG_R10)},
        {"R11", reg(context, REG_R11)},
        {"R12", reg(context, REG_R12)},
        {"R13", reg(context, REG_R13)},
        {"R14", reg(context, REG_R14)},
        {"R15", reg(context, REG_R15)}}},
      {" Control registers: ",
       {{"RSP", reg(context, REG_RSP)},
        {"RBP", reg(context, REG_RBP)},
        {"RIP", reg(context, REG_RIP)},
        {"EFL", reg(context, REG_EFL)},
        {"CS", csgsfs & 0xFFFF}}},
      {" Segment registers: ", {{"FS", (csgsfs >> 32) & 0xFFFF}, {"GS", (csgsfs >> 16) & 0xFFFF}}},
  };
#endif
}

CrashInfo describe(int signal, const siginfo_t& info, const ucontext_t* context) {
  CrashInfo crash;
  uint64_t dataAddress = uint64_t(uintptr_t(info.si_addr));
#if defined(__x86_64__) && defined(__linux__)
  crash.address = reg(context, REG_RIP);
#else
  // SIGILL and SIGFPE carry the instruction's address, the others the data's.
  if (signal == SIGILL || signal == SIGFPE) crash.address = dataAddress;
#endif
  switch (signal) {
    case SIGSEGV:
      if (isStackOverflow(uintptr_t(dataAddress), context)) {
        crash.code = kStackOverflow;
      } else {
        crash.code = kAccessViolation;
#if defined(__x86_64__) && defined(__linux__)
        // Bit 1 of the page-fault error code is set for writes.
        uint64_t kind = (reg(context, REG_ERR) & 2) ? kAccessWrite : kAccessRead;
#else
        uint64_t kind = kAccessUnknown;
#endif
        crash.parameters = {kind, dataAddress};
      }
      break;
    case SIGBUS:
      crash.code = info.si_code == BUS_ADRALN ? kDatatypeMisalignment : kInPageError;
      break;
    case SIGILL:
      crash.code = info.si_code == ILL_PRVOPC ? kPrivilegedInstruction : kIllegalInstruction;
      break;
    case SIGFPE:
      crash.code = floatingPointCode(info.si_code);
      break;
    default:
      crash.code = kFatalAppExit;
      break;
  }
  addRegisters(crash, context);
  return crash;
}

void onFatalSignal(int signal, siginfo_t* info, void* context) {
  if (CrashHandler handler = g_handler.load()) {
    handler(describe(signal, *info, static_cast<const ucontext_t*>(context)));
  }
  // Hand the signal to whoever had it before. A fault from an instruction
  // happens again on return; a signal that was sent must be sent again.
  size_t index = signalIndex(signal);
  if (index < kSignalCount) sigaction(signal, &g_previous[index], nullptr);
  if (info->si_code <= 0) raise(signal);
}

}  // namespace

void PosixEnv::installCrashHandler(CrashHandler handler) {
  g_handler = handler;
  if (g_installed) return;
  ensureAlternateStack();
  struct sigaction action = {};
  action.sa_sigaction = onFatalSignal;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigemptyset(&action.sa_mask);
  for (size_t i = 0; i < kSignalCount; ++i) sigaction(kFatalSignals[i], &action, &g_previous[i]);
  g_installed = true;
}

void PosixEnv::uninstallCrashHandler() {
  if (!g_installed) return;
  for (size_t i = 0; i < kSignalCount; ++i) sigaction(kFatalSignals[i], &g_previous[i], nullptr);
  g_installed = false;
  g_handler = nullptr;
}

std::unique_ptr<ThreadCrashScope> PosixEnv::prepareThreadForCrashes() {
  return newAlternateStack();
}

void PosixEnv::showFatalMessage(const std::u16string& caption, const std::u16string& text) {
  // write(2) rather than stdio: the message is shown from a signal handler.
  std::string line = nativePath(caption) + ": " + nativePath(text) + "\n";
  const char* next = line.data();
  size_t left = line.size();
  while (left > 0) {
    ssize_t written = write(STDERR_FILENO, next, left);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) break;
    next += written;
    left -= size_t(written);
  }
}

}  // namespace PIM
