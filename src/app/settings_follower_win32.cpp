#include "app/settings_follower.h"

namespace PIM {

// The registry: no file to follow.
SettingsFollower::SettingsFollower() = default;

SettingsFollower::Stamp SettingsFollower::stamp() const { return {}; }

}  // namespace PIM
