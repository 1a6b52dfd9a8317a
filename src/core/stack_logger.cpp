#include "core/stack_logger.h"

#include <sstream>

#include "core/debug_logger.h"
#include "platform/thread_local_slot.h"

namespace PIM {

ThreadLocalSlot* StackLogger::slot_ = nullptr;

StackEntry::StackEntry(const char* file, int line, const char* function)
    : file(file), line(line), function(function) {
  StackLogger::push(this);
}

StackEntry::~StackEntry() { StackLogger::pop(); }

void StackLogger::initialise() {
  if (slot_) return;
  auto* slot = new ThreadLocalSlot();
  if (!slot->valid()) {
    delete slot;
    return;
  }
  slot_ = slot;
}

void StackLogger::shutdown() {
  delete slot_;
  slot_ = nullptr;
}

void StackLogger::push(StackEntry* entry) {
  if (!slot_) return;
  auto* caller = static_cast<StackEntry*>(slot_->get());
  entry->caller = caller;
  entry->depth = caller ? caller->depth + 1 : 0;
  slot_->set(entry);
}

void StackLogger::pop() {
  if (!slot_) return;
  auto* current = static_cast<StackEntry*>(slot_->get());
  if (!current) {
    // No record is pushed for this line: the stack stays empty.
    std::ostringstream line;
    writeLogHeader(line, __FILE__, __LINE__, "PIM::StackLogger::Pop");
    line << " ERR> "
         << "Stack was corrupted.";
    DebugLogger::instance().write(line.str());
    return;
  }
  slot_->set(current->caller);
}

const StackEntry* StackLogger::top() {
  return slot_ ? static_cast<const StackEntry*>(slot_->get()) : nullptr;
}

std::string StackLogger::stackTrace() {
  if (!slot_) return {};
  std::ostringstream out;
  out << "Stack trace for thread " << currentThreadId() << "\n";
  for (const StackEntry* e = top(); e; e = e->caller) {
    out << " [" << e->depth << "] " << e->file << "(" << e->line << ") : in " << e->function
        << "()\n";
  }
  return out.str();
}

}  // namespace PIM
