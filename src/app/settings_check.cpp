#include "app/settings_check.h"

#include <ostream>
#include <string>

#include "core/debug_logger.h"
#include "platform/env.h"
#include "platform/key_store.h"

namespace PIM {

bool settingsUsable(std::ostream& err) {
  PIM_ENTRY("PIM::settingsUsable");
  KeyStore& store = env()->keyStore();
  const KeyStoreState state = store.checkState();
  for (const std::string& problem : store.takeDiagnostics()) PIM_LOG_ERR(problem);
  switch (state.health) {
    case KeyStoreState::Usable:
      return true;
    case KeyStoreState::Damaged:
      err << "ferrant: " << state.message
          << " This run stops here: check the settings with 'ferrant prefs', then run the "
             "command again.\n";
      return false;
    case KeyStoreState::Unreadable:
      err << "ferrant: the settings cannot be read, so nothing was done: " << state.message << "\n";
      return false;
  }
  return false;
}

}  // namespace PIM
