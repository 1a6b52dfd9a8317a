#include "prefs/preferences.h"

namespace PIM {

Preferences& Preferences::instance() {
  static Preferences preferences;
  return preferences;
}

}  // namespace PIM
