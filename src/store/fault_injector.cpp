#include "store/fault_injector.h"

#include <utility>

namespace PIM::store {

FaultInjector& FaultInjector::instance() {
  static FaultInjector injector;
  return injector;
}

void FaultInjector::failCall(const std::string& name, HRESULT result, unsigned nth,
                             unsigned times) {
  std::lock_guard<std::mutex> guard(lock_);
  rules_.push_back(Rule{name, result, nth == 0 ? 1 : nth, times});
}

void FaultInjector::clear() {
  std::lock_guard<std::mutex> guard(lock_);
  rules_.clear();
  counts_.clear();
  total_ = 0;
  recording_ = false;
  recorded_.clear();
  hookAt_ = 0;
  hook_ = nullptr;
}

unsigned FaultInjector::callCount(const std::string& name) const {
  std::lock_guard<std::mutex> guard(lock_);
  auto it = counts_.find(name);
  return it == counts_.end() ? 0 : it->second;
}

std::vector<std::string> FaultInjector::calledNames() const {
  std::lock_guard<std::mutex> guard(lock_);
  std::vector<std::string> names;
  for (const auto& [name, count] : counts_) names.push_back(name);
  return names;
}

unsigned FaultInjector::totalCalls() const {
  std::lock_guard<std::mutex> guard(lock_);
  return total_;
}

void FaultInjector::recordCalls() {
  std::lock_guard<std::mutex> guard(lock_);
  recording_ = true;
}

std::vector<std::string> FaultInjector::recordedCalls() const {
  std::lock_guard<std::mutex> guard(lock_);
  return recorded_;
}

void FaultInjector::atCall(unsigned nth, std::function<void()> hook) {
  std::lock_guard<std::mutex> guard(lock_);
  hookAt_ = nth;
  hook_ = std::move(hook);
}

HRESULT FaultInjector::check(const char* interfaceName, const char* method) {
  const std::string bare = method;
  const std::string qualified =
      interfaceName && *interfaceName ? std::string(interfaceName) + "::" + bare : bare;
  std::unique_lock<std::mutex> guard(lock_);
  ++counts_[qualified];
  if (qualified != bare) ++counts_[bare];
  ++total_;
  if (recording_) recorded_.push_back(qualified);
  std::function<void()> hook;
  if (hook_ && total_ == hookAt_) hook = std::exchange(hook_, nullptr);
  HRESULT answer = S_OK;
  for (Rule& rule : rules_) {
    if (rule.name != qualified && rule.name != bare && rule.name != kAnyCall) continue;
    ++rule.seen;
    const bool started = rule.seen >= rule.nth;
    const bool within = rule.times == 0 || rule.seen < rule.nth + rule.times;
    // The first rule that fires wins; later rules still count the call.
    if (started && within && answer == S_OK) answer = rule.result;
  }
  guard.unlock();
  if (hook) hook();
  return answer;
}

}  // namespace PIM::store
