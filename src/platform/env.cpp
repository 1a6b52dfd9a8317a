#include "platform/env.h"

#include <atomic>

namespace PIM {

namespace {
std::atomic<Env*> g_env{nullptr};
}

Env* env() {
  Env* e = g_env.load(std::memory_order_acquire);
  return e ? e : Env::platformDefault();
}

Env* setEnv(Env* e) {
  Env* previous = g_env.exchange(e, std::memory_order_acq_rel);
  return previous ? previous : Env::platformDefault();
}

}  // namespace PIM
