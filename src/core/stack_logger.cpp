#include "core/stack_logger.h"

#include <memory>
#include <sstream>

#include "core/debug_logger.h"
#include "platform/thread_local_slot.h"

namespace PIM {

namespace stack_detail {
#if defined(_WIN32)
namespace {
ThreadLocalSlot* g_slot = nullptr;
}  // namespace

StackEntry* loadTop() { return static_cast<StackEntry*>(g_slot->get()); }
void storeTop(StackEntry* entry) { g_slot->set(entry); }

namespace {
bool openTop() {
  if (g_slot) return true;
  auto slot = std::make_unique<ThreadLocalSlot>();
  if (!slot->valid()) return false;
  g_slot = slot.release();
  return true;
}
void closeTop() {
  delete g_slot;
  g_slot = nullptr;
}
}  // namespace
#else
constinit thread_local StackEntry* t_top = nullptr;

namespace {
bool openTop() {
  t_top = nullptr;
  return true;
}
void closeTop() { t_top = nullptr; }
}  // namespace
#endif
}  // namespace stack_detail

std::atomic<bool> StackLogger::enabled_{false};

void StackLogger::initialise() {
  if (enabled_.load(std::memory_order_relaxed)) return;
  if (stack_detail::openTop()) enabled_.store(true, std::memory_order_relaxed);
}

void StackLogger::shutdown() {
  enabled_.store(false, std::memory_order_relaxed);
  stack_detail::closeTop();
}

void StackLogger::reportCorruption() {
  // No record is pushed for this line: the stack stays empty.
  std::ostringstream line;
  writeLogHeader(line, __FILE__, __LINE__, "PIM::StackLogger::Pop");
  line << " ERR> "
       << "Stack was corrupted.";
  DebugLogger::instance().write(line.str());
}

const StackEntry* StackLogger::top() {
  return enabled_.load(std::memory_order_relaxed) ? stack_detail::loadTop() : nullptr;
}

std::string StackLogger::stackTrace() {
  if (!enabled_.load(std::memory_order_relaxed)) return {};
  std::ostringstream out;
  out << "Stack trace for thread " << currentThreadId() << "\n";
  for (const StackEntry* e = top(); e; e = e->caller) {
    out << " [" << e->depth << "] " << e->file << "(" << e->line << ") : in " << e->function
        << "()\n";
  }
  return out.str();
}

}  // namespace PIM
